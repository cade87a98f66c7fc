// The transforms of reference verification and the public canonicalization calls, driven
// by tests/dsig/data/transforms.txt.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "VectorFile.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

// Runs the case's call on its document; false when the call failed. `text` is the output.
bool run(const vectors::Case& c, ClsXmlDSig& dsig, _btLogger& log, std::string& text) {
  std::istringstream words(c.get("set"));
  for (std::string word; words >> word;) {
    if (word == "sortbug") dsig.m_dupAttrSortBug = true;
    else if (word == "cmastp") dsig.m_isCmaStp = true;
    else if (word == "myinvois") dsig.m_isMyInvois = true;
    else ADD_FAILURE() << "unknown setting " << word;
  }
  const std::string call = c.get("call");
  if (call == "canonicalize-xml" || call == "canonicalize-fragment") {
    XString xml(c.get("doc").c_str()), fragment(c.get("select").c_str()), prefixes(c.get("prefixes").c_str()), version,
        out;
    version.setFromUtf8(c.get("algorithm").c_str());
    const bool comments = c.get("comments") == "yes";
    const bool ok = call == "canonicalize-xml"
                        ? dsig.CanonicalizeXml(xml, version, comments, out)
                        : dsig.CanonicalizeFragment(xml, fragment, version, prefixes, comments, out);
    text = out.getUtf8();
    log.LogError(dsig.lastErrorLine().c_str());
    return ok;
  }
  RcPtr<ClsXml> transform;
  if (c.has("transform")) {
    transform.reset(ClsXml::createNewCls());
    EXPECT_TRUE(transform->loadXml(StringBuffer(c.get("transform")), true, log));
  }
  StringBuffer xml(c.get("doc"));
  const StringBuffer algorithm(c.get("algorithm")), select(c.get("select"));
  EXPECT_TRUE(call == "canonicalize" || call == "xpath") << call;
  const bool ok = call == "canonicalize" ? dsig.transformCanonicalize(transform.get(), xml, algorithm, select, log)
                                         : dsig.transformXPath(transform.get(), xml, algorithm, select, log);
  text = xml.str();
  return ok;
}

}  // namespace

TEST(TransformVectors, CasesOfTheVectorFile) {
  const auto cases = vectors::read(
      testsupport::sourceDir() + "/tests/dsig/data/transforms.txt",
      {"call", "doc", "algorithm", "select", "transform", "prefixes", "comments", "set", "expect", "fails", "log"});
  ASSERT_GT(cases.size(), 15u);
  for (const vectors::Case& c : cases) {
    SCOPED_TRACE(c.where());
    std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
    _btLogger log;
    std::string text;
    const bool ok = run(c, *dsig, log, text);
    if (c.has("fails")) {
      EXPECT_FALSE(ok) << text;
      EXPECT_EQ(text, c.get("call") == "canonicalize-fragment" ? "" : c.get("doc"));
      EXPECT_TRUE(log.containsText(c.get("fails"))) << log.lastErrorLine();
    } else {
      EXPECT_TRUE(ok) << log.lastErrorLine();
      EXPECT_EQ(text, c.get("expect"));
    }
    for (const std::string& line : c.all("log")) EXPECT_TRUE(log.containsText(line)) << line;
  }
}
