// The canonicalization transform of reference verification and the public
// CanonicalizeXml / CanonicalizeFragment operations.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "LogProbe.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

const char kC14n[] = "http://www.w3.org/TR/2001/REC-xml-c14n-20010315";
const char kExcC14n[] = "http://www.w3.org/2001/10/xml-exc-c14n#";
const char kSortBugInfo[] = "Will duplicate the XML canonicalization attribute sorting bug...";

// A document on which the four canonicalizations all differ: an unused namespace, a comment.
const std::string kDoc = "<r xmlns:u=\"urn:u\" xmlns:v=\"urn:v\"><a Id=\"a1\"><!--c--><b/></a></r>";

struct TransformRun {
  TransformRun() : dsig(ClsXmlDSig::createNewCls()) {}
  bool run(std::string& text, const std::string& algorithm, const std::string& fragment,
           const std::string& transformXml = "") {
    log.clear();
    RcPtr<ClsXml> transform;
    if (!transformXml.empty()) {
      transform.reset(ClsXml::createNewCls());
      EXPECT_TRUE(transform->loadXml(StringBuffer(transformXml), true, log));
    }
    StringBuffer xml(text);
    const bool ok = dsig->transformCanonicalize(transform.get(), xml, StringBuffer(algorithm), StringBuffer(fragment),
                                                log);
    text = xml.str();
    return ok;
  }
  std::string apply(const std::string& algorithm, const std::string& transformXml = "") {
    std::string t = kDoc;
    return run(t, algorithm, "xpointer(id('a1'))", transformXml) ? t : "FAILED";
  }
  std::unique_ptr<ClsXmlDSig> dsig;
  _btLogger log;
};

std::string transformElement(const char* algorithm, const std::string& prefixList) {
  return std::string("<ds:Transform xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\" Algorithm=\"") + algorithm +
         "\"><ec:InclusiveNamespaces xmlns:ec=\"" + kExcC14n + "\" PrefixList=\"" + prefixList + "\"/></ds:Transform>";
}

}  // namespace

TEST(CanonicalizeTransform, AlgorithmChoosesMethodAndComments) {
  TransformRun r;
  const std::string inclusive = "<a xmlns:u=\"urn:u\" xmlns:v=\"urn:v\" Id=\"a1\"><b></b></a>";
  const std::string inclusiveComments = "<a xmlns:u=\"urn:u\" xmlns:v=\"urn:v\" Id=\"a1\"><!--c--><b></b></a>";
  EXPECT_EQ(r.apply(kC14n), inclusive);
  EXPECT_EQ(r.apply(std::string(kC14n) + "#WithComments"), inclusiveComments);
  EXPECT_EQ(r.apply(std::string(kExcC14n) + "WithComments"), "<a Id=\"a1\"><!--c--><b></b></a>");
  EXPECT_EQ(r.apply("urn:unknown:canonicalization"), inclusive);
  EXPECT_FALSE(r.log.containsText("Failed to canonicalize XML fragment."));

  // InclusiveNamespaces counts only under the exclusive algorithm; blanks between prefixes
  // do not make empty prefixes.
  EXPECT_EQ(r.apply(kC14n, transformElement(kC14n, "u")), inclusive);
  EXPECT_EQ(r.apply(kExcC14n, transformElement(kExcC14n, "  v   u ")),
            "<a xmlns:u=\"urn:u\" xmlns:v=\"urn:v\" Id=\"a1\"><b></b></a>");
  EXPECT_EQ(r.apply(kExcC14n, transformElement(kExcC14n, "v")), "<a xmlns:v=\"urn:v\" Id=\"a1\"><b></b></a>");
}

TEST(CanonicalizeTransform, FailureLeavesTextAndSortBugIsAnnounced) {
  TransformRun r;
  std::string text = kDoc;
  EXPECT_FALSE(r.run(text, kC14n, "missing"));
  EXPECT_EQ(text, kDoc);
  EXPECT_TRUE(logprobe::hasError(r.log, "Failed to canonicalize XML fragment."));

  r.dsig->m_dupAttrSortBug = true;
  text = "<r xmlns:p=\"urn:z\" z=\"1\" p:a=\"2\"/>";
  EXPECT_TRUE(r.run(text, kC14n, ""));
  EXPECT_EQ(text, "<r xmlns:p=\"urn:z\" p:a=\"2\" z=\"1\"></r>");
  EXPECT_TRUE(r.log.containsText(kSortBugInfo));
}

TEST(CanonicalizeTransform, EbicsRoadConcatenatesAuthenticatedElements) {
  TransformRun r;
  const std::string doc =
      "<ebicsRequest xmlns=\"urn:org:ebics:H004\"><header authenticate=\"true\"><static/></header>"
      "<body><DataTransfer authenticate=\"true\">x</DataTransfer></body></ebicsRequest>";
  std::string text = doc;
  EXPECT_TRUE(r.run(text, kC14n, "xpointer(//*[@authenticate='true'])"));
  EXPECT_EQ(text,
            "<header xmlns=\"urn:org:ebics:H004\" authenticate=\"true\"><static></static></header>"
            "<DataTransfer xmlns=\"urn:org:ebics:H004\" authenticate=\"true\">x</DataTransfer>");
  EXPECT_TRUE(r.log.containsText("Canonicalizing for EBICS..."));

  text = doc;
  EXPECT_TRUE(r.run(text, kC14n, "EBICS"));

  text = "<ebicsRequest><header/></ebicsRequest>";
  EXPECT_FALSE(r.run(text, kC14n, "EBICS"));
  EXPECT_EQ(text, "<ebicsRequest><header/></ebicsRequest>");
  EXPECT_TRUE(logprobe::hasError(r.log, "Failed to canonicalize XML fragment."));
}

TEST(CanonicalizeTransform, CmaStpKeepsOnlyTheDocumentElement) {
  TransformRun r;
  r.dsig->m_isCmaStp = true;
  std::string text =
      "<?xml version=\"1.0\"?><soap:Envelope xmlns:soap=\"urn:soap\"><soap:Body>"
      "<Document xmlns=\"urn:cma:stp:xsd:stp.1.0\"><a/></Document></soap:Body></soap:Envelope>";
  EXPECT_TRUE(r.run(text, kC14n, ""));
  EXPECT_EQ(text, "<Document xmlns=\"urn:cma:stp:xsd:stp.1.0\"><a></a></Document>");
}

TEST(CanonicalizeApi, VersionAndPrefixList) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  XString xml(kDoc.c_str()), out, fragment("a1"), prefixes(" u  "), version;

  version.setFromUtf8("  EXCL_C14N ");
  EXPECT_TRUE(dsig->CanonicalizeXml(xml, version, true, out));
  EXPECT_STREQ(out.getUtf8(), "<r><a Id=\"a1\"><!--c--><b></b></a></r>");
  version.setFromUtf8("excl-c14n");
  EXPECT_TRUE(dsig->CanonicalizeXml(xml, version, false, out));
  EXPECT_STREQ(out.getUtf8(), "<r xmlns:u=\"urn:u\" xmlns:v=\"urn:v\"><a Id=\"a1\"><b></b></a></r>");

  version.setFromUtf8("excl_c14n");
  EXPECT_TRUE(dsig->CanonicalizeFragment(xml, fragment, version, prefixes, false, out));
  EXPECT_STREQ(out.getUtf8(), "<a xmlns:u=\"urn:u\" Id=\"a1\"><b></b></a>");
  EXPECT_EQ(logprobe::value(dsig->m_log, "prefixList"), " u  ");
  version.setFromUtf8("");  // inclusive: the prefix list is ignored
  EXPECT_TRUE(dsig->CanonicalizeFragment(xml, fragment, version, prefixes, false, out));
  EXPECT_STREQ(out.getUtf8(), "<a xmlns:u=\"urn:u\" xmlns:v=\"urn:v\" Id=\"a1\"><b></b></a>");

  fragment.setFromUtf8("none");
  EXPECT_FALSE(dsig->CanonicalizeFragment(xml, fragment, version, prefixes, false, out));
  EXPECT_STREQ(out.getUtf8(), "");
  EXPECT_EQ(dsig->lastErrorLine(), "Element with Id 'none' not found.");
}
