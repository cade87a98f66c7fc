// Every case of the corpus manifests verified end to end with the key material, secrets,
// certificates and detached data its row names, and the options a user would give for
// its family. An interoperability vector must verify exactly when its signature is
// intact (crypto_valid): a genuine signature is accepted, an altered one never is. The
// genuine ones this verifier cannot check yet are listed, each with its reason, in
// data/corpus_not_verified.tsv. The documents of real signing software are held to the
// same rule.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>

#include "CorpusCases.h"

namespace {

using corpuscases::Case;

// case id -> reason, from the list of genuine vectors that are known not to verify.
std::map<std::string, std::string> notVerifiedList() {
  std::map<std::string, std::string> out;
  const std::string text = testsupport::readFile(testsupport::sourceDir() + "/tests/dsig/data/corpus_not_verified.tsv");
  for (const std::string& line : corpuscases::split(text, '\n', true)) {
    if (line[0] == '#') continue;
    const size_t tab = line.find('\t');
    out[line.substr(0, tab)] = tab == std::string::npos ? std::string() : line.substr(tab + 1);
  }
  return out;
}

// Verifies one case the way a user would; false with the verifier's reason when invalid.
bool verifyCase(const Case& c, std::string& why) {
  std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, corpuscases::documentOf(c));
  if (!dsig) {
    why = "did not load";
    return false;
  }
  const bool valid = dsig->VerifySignature(true);
  if (!valid) why = dsig->lastErrorLine();
  return valid;
}

// Every case whose intactness is known: genuine ones verify unless listed, altered ones
// never do. Cases of unknown intactness are only run (they must not crash).
void runManifest(const std::string& name, const std::map<std::string, std::string>& notVerified, int& listed) {
  int genuine = 0, verified = 0, altered = 0, unknown = 0;
  for (const Case& c : corpuscases::readManifest(name)) {
    SCOPED_TRACE(c.id);
    std::string why;
    const bool valid = verifyCase(c, why);
    if (c.cryptoValid == "no") {
      ++altered;
      EXPECT_FALSE(valid) << c.xmlPath << ": an altered signature verified";
    } else if (c.cryptoValid != "yes") {
      ++unknown;
    } else {
      ++genuine;
      verified += valid ? 1 : 0;
      if (notVerified.count(c.id)) {
        ++listed;
        EXPECT_FALSE(valid) << c.xmlPath << " verifies now: take it off the not-verified list";
      } else {
        EXPECT_TRUE(valid) << c.xmlPath << " failed: " << why;
      }
    }
  }
  std::printf("%s: %d of %d genuine signatures verify, %d altered refused, %d of unknown intactness\n", name.c_str(),
              verified, genuine, altered, unknown);
}

}  // namespace

TEST(CorpusVerdicts, GenuineSignaturesVerifyAlteredOnesNever) {
  REQUIRE_CORPUS();
  const std::map<std::string, std::string> notVerified = notVerifiedList();
  ASSERT_FALSE(notVerified.empty()) << "tests/dsig/data/corpus_not_verified.tsv not read";
  int listed = 0;
  runManifest("interop.tsv", notVerified, listed);
  runManifest("families.tsv", notVerified, listed);
  EXPECT_EQ(listed, static_cast<int>(notVerified.size())) << "the not-verified list names a case not in the manifests";
}
