// Attacks on corpus documents that verify (tests/dsig/data/corpus-attacks.tsv): a change an
// application would read must not verify, however the family's adjustments cut the document.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "CorpusCases.h"
#include "LogProbe.h"
#include "TestSupport.h"

namespace {

struct Attack {
  std::string name, caseId, find, replace, verdict, error, cause;
};

std::vector<std::string> splitOn(const std::string& s, const std::string& sep) {
  std::vector<std::string> parts;
  size_t from = 0;
  for (size_t at; (at = s.find(sep, from)) != std::string::npos; from = at + sep.size())
    parts.push_back(s.substr(from, at - from));
  parts.push_back(s.substr(from));
  return parts;
}

std::string unescaped(std::string s) {
  for (size_t at; (at = s.find("\\n")) != std::string::npos;) s.replace(at, 2, "\n");
  return s;
}

std::vector<Attack> attacks() {
  std::ifstream in(testsupport::sourceDir() + "/tests/dsig/data/corpus-attacks.tsv");
  std::vector<Attack> out;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> f = splitOn(line, "\t");
    EXPECT_TRUE(f.size() >= 5 && f.size() <= 7) << line;
    if (f.size() >= 5)
      out.push_back(
          {f[0], f[1], unescaped(f[2]), unescaped(f[3]), f[4], f.size() > 5 ? f[5] : "", f.size() > 6 ? f[6] : ""});
  }
  return out;
}

}  // namespace

TEST(CorpusAttacks, EveryAttackGetsItsVerdict) {
  REQUIRE_CORPUS();
  const std::vector<corpuscases::Case> cases = corpuscases::allCases();
  const std::vector<Attack> all = attacks();
  ASSERT_GT(all.size(), 3u);
  for (const Attack& a : all) {
    SCOPED_TRACE(a.name);
    const corpuscases::Case* c = nullptr;
    for (const corpuscases::Case& each : cases)
      if (each.id == a.caseId) c = &each;
    ASSERT_NE(c, nullptr) << a.caseId;
    std::string doc = corpuscases::documentOf(*c);
    if (!a.find.empty()) {
      const std::vector<std::string> finds = splitOn(a.find, " |then| ");
      const std::vector<std::string> replaces = splitOn(a.replace, " |then| ");
      ASSERT_EQ(finds.size(), replaces.size());
      for (size_t i = 0; i < finds.size(); ++i) {
        const size_t at = doc.find(finds[i]);
        ASSERT_NE(at, std::string::npos) << finds[i];
        doc.replace(at, finds[i].size(), replaces[i]);
      }
    }
    const std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(*c, doc);
    const bool valid = dsig && dsig->VerifySignature(true);
    EXPECT_EQ(valid, a.verdict == "valid");
    if (!valid && dsig && !a.error.empty()) {
      EXPECT_TRUE(logprobe::hasError(dsig->m_log, a.error)) << dsig->lastErrorText();
    }
    if (!valid && dsig && !a.cause.empty()) {
      XString cause;
      dsig->get_FailureCause(cause);
      EXPECT_EQ(std::string(cause.getUtf8()), a.cause);
    }
  }
}
