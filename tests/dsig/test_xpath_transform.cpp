// The XPath transform's recognised expressions, applied to document text, and general
// expressions evaluated on corpus documents.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "CorpusCases.h"
#include "LogProbe.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"

namespace {

const char kXPathUri[] = "http://www.w3.org/TR/1999/REC-xpath-19991116";
const char kFilter2Uri[] = "http://www.w3.org/2002/06/xmldsig-filter2";
const std::string kDs = "xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"";
const std::string kCac = "urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2";
const std::string kSig = "urn:oasis:names:specification:ubl:schema:xsd:CommonSignatureComponents-2";
const std::string kUblNamespaces =
    " xmlns:ext=\"urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2\" xmlns:cac=\"" + kCac +
    "\" xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\"";

struct XPathRun {
  XPathRun() : dsig(ClsXmlDSig::createNewCls()) {}
  // Applies the transform; `transformXml` is the Transform element when the test needs one.
  bool run(std::string& text, const char* algorithm, const std::string& xpath, const std::string& transformXml = "") {
    log.clear();
    RcPtr<ClsXml> transform;
    if (!transformXml.empty()) {
      transform.reset(ClsXml::createNewCls());
      EXPECT_TRUE(transform->loadXml(StringBuffer(transformXml), true, log));
    }
    StringBuffer xml(text);
    const bool ok = dsig->transformXPath(transform.get(), xml, StringBuffer(algorithm), StringBuffer(xpath), log);
    text = xml.str();
    EXPECT_EQ(logprobe::value(log, "transformXPathSuccess"), ok ? "true" : "false");
    return ok;
  }
  std::string option() const { return logprobe::value(log, "commonXPathOption"); }
  std::string unhandled() const { return logprobe::value(log, "unhandledXPath"); }
  std::unique_ptr<ClsXmlDSig> dsig;
  _btLogger log;
};

std::string filter2Transform(const std::string& children) {
  return "<ds:Transform " + kDs + " xmlns:dsig-xpath=\"" + kFilter2Uri + "\" Algorithm=\"" + kFilter2Uri + "\">" +
         children + "</ds:Transform>";
}

}  // namespace

TEST(XPathTransform, SignatureExclusions) {
  XPathRun r;
  const std::string dsSig = "<ds:Signature " + kDs + "><ds:SignedInfo/></ds:Signature>";
  const std::string doc = "<r><a/>" + dsSig + "<cac:Signature>c</cac:Signature></r>";
  for (const char* xp : {"not(ancestor-or-self::ds:Signature)", "not(//ancestor-or-self::ds:Signature)"}) {
    std::string t = doc;
    EXPECT_TRUE(r.run(t, kXPathUri, xp));
    EXPECT_EQ(t, "<r><a/><cac:Signature>c</cac:Signature></r>");
    EXPECT_EQ(r.option(), "1");
    EXPECT_TRUE(r.log.containsText("removing all Signatures from the XML to be canonicalized"));
  }

  // UBL: every cac:Signature block among the document element's children goes; ds:Signature stays.
  const std::string ublRoot = "<r xmlns:cac=\"" + kCac + "\">";
  std::string ubl = ublRoot + dsSig;
  for (int i = 0; i < 101; ++i) ubl += "<cac:Signature>" + std::to_string(i) + "</cac:Signature>";
  ubl += "</r>";
  EXPECT_TRUE(r.run(ubl, kXPathUri, "not(//ancestor-or-self::cac:Signature)"));
  EXPECT_EQ(ubl, ublRoot + dsSig + "</r>");

  std::string ublSigs = "<r><sig:UBLDocumentSignatures xmlns:sig=\"" + kSig +
                        "\">s</sig:UBLDocumentSignatures><b/></r>";
  EXPECT_TRUE(r.run(
      ublSigs, kXPathUri,
      "count(ancestor-or-self::sig:UBLDocumentSignatures | here()/ancestor::sig:UBLDocumentSignatures[1]) > count(ancestor-or-self::sig:UBLDocumentSignatures)"));
  EXPECT_EQ(r.option(), "3");
  EXPECT_EQ(ublSigs, "<r><b/></r>");
  EXPECT_TRUE(r.log.containsText("Found UBLDocumentSignatures transform."));

  // XPath Filter 2.0 signature subtraction with another filter: not handled, text unchanged.
  const std::string expr = "/descendant::ds:Signature";
  std::string f2 = doc;
  EXPECT_FALSE(r.run(f2, kFilter2Uri, expr,
                     filter2Transform("<dsig-xpath:XPath Filter=\"intersect\">" + expr + "</dsig-xpath:XPath>")));
  EXPECT_EQ(r.option(), "4");
  EXPECT_EQ(r.unhandled(), "1");
  EXPECT_EQ(f2, doc);
}

TEST(XPathTransform, UblExtensionsAndQrAndUnhandled) {
  XPathRun r;
  const std::string ext1 = "<ext:UBLExtensions><ext:UBLExtension>1</ext:UBLExtension></ext:UBLExtensions>";
  const std::string ext2 = "<ext:UBLExtensions><ext:UBLExtension>2</ext:UBLExtension></ext:UBLExtensions>";
  const std::string open = "<Invoice" + kUblNamespaces + ">";
  const std::string doc = open + ext1 + "<x/>" + ext2 + "</Invoice>";
  const std::string one = open + ext1 + "<x/></Invoice>";

  // Filter 2.0 subtraction of the UBL extensions: the second child carries the filter.
  const std::string sub = "ancestor::ext:UBLExtensions/ext:UBLExtension";
  const std::string kids =
      "<dsig-xpath:XPath Filter=\"intersect\">/</dsig-xpath:XPath>"
      "<dsig-xpath:XPath Filter=\"subtract\">" +
      sub + "</dsig-xpath:XPath>";
  std::string t = one;
  EXPECT_TRUE(r.run(t, kFilter2Uri, "/", filter2Transform(kids)));
  EXPECT_EQ(r.option(), "5");
  EXPECT_EQ(t, open + "<x/></Invoice>");
  t = doc;
  EXPECT_FALSE(r.run(t, kFilter2Uri, "/",
                     filter2Transform("<dsig-xpath:XPath Filter=\"subtract\">" + sub + "</dsig-xpath:XPath>")));
  EXPECT_EQ(r.unhandled(), "3");
  EXPECT_EQ(t, doc);

  // not(//ancestor-or-self::P:E): one UBLExtensions block goes; two are refused, except that
  // MyInvois keeps the first and cuts the second.
  t = one;
  EXPECT_TRUE(r.run(t, kXPathUri, "not(//ancestor-or-self::ext:UBLExtensions)"));
  EXPECT_EQ(r.option(), "7");
  EXPECT_EQ(t, open + "<x/></Invoice>");
  t = doc;
  EXPECT_FALSE(r.run(t, kXPathUri, "not(//ancestor-or-self::ext:UBLExtensions)"));
  EXPECT_EQ(t, doc);
  r.dsig->m_isMyInvois = true;
  EXPECT_TRUE(r.run(t, kXPathUri, "not(//ancestor-or-self::ext:UBLExtensions)"));
  EXPECT_EQ(t, open + ext1 + "<x/></Invoice>");
  r.dsig->m_isMyInvois = false;

  // The ZATCA QR reference: the block whose cbc:ID child is the expression's value.
  const std::string other = "<cac:AdditionalDocumentReference><cbc:ID>PIH</cbc:ID></cac:AdditionalDocumentReference>";
  const std::string qr = "<cac:AdditionalDocumentReference><cbc:ID>QR</cbc:ID></cac:AdditionalDocumentReference>";
  const std::string inv = open + other + qr + "</Invoice>";
  t = inv;
  EXPECT_TRUE(r.run(t, kXPathUri, "not(//ancestor-or-self::cac:AdditionalDocumentReference[cbc:ID='QR'])"));
  EXPECT_EQ(r.option(), "6");
  EXPECT_EQ(t, open + other + "</Invoice>");

  t = inv;
  EXPECT_FALSE(r.run(t, kXPathUri, "count(//x)=1"));
  EXPECT_EQ(r.unhandled(), "2");
  EXPECT_EQ(r.option(), "<absent>");
  EXPECT_EQ(t, inv);
}

// Corpus documents whose references select nodes with general XPath and XPath Filter 2.0
// expressions: a change inside the selected nodes makes them fail, a change outside them
// does not (xpath_corpus_changes.tsv).
TEST(XPathTransform, ChangesInsideAndOutsideTheSelectedNodesOfCorpusDocuments) {
  REQUIRE_CORPUS();
  std::map<std::string, corpuscases::Case> byId;
  for (const corpuscases::Case& c : corpuscases::allCases()) byId[c.id] = c;
  const std::string table = testsupport::readFile(testsupport::sourceDir() +
                                                  "/tests/dsig/data/xpath-corpus-changes.tsv");
  int rows = 0;
  for (const std::string& line : corpuscases::split(table, '\n', true)) {
    if (line[0] == '#') continue;
    const std::vector<std::string> cols = corpuscases::split(line, '\t', false);
    ASSERT_EQ(cols.size(), 5u) << line;
    SCOPED_TRACE(cols[0] + ": " + cols[4]);
    ASSERT_EQ(byId.count(cols[0]), 1u);
    const corpuscases::Case& c = byId[cols[0]];
    std::string doc = corpuscases::documentOf(c);
    std::unique_ptr<ClsXmlDSig> original = corpuscases::prepare(c, doc);
    ASSERT_TRUE(original && original->VerifySignature(true));
    const size_t at = doc.find(cols[1]);
    ASSERT_NE(at, std::string::npos);
    doc.replace(at, cols[1].size(), cols[2]);
    std::unique_ptr<ClsXmlDSig> changed = corpuscases::prepare(c, doc);
    ASSERT_TRUE(changed);
    EXPECT_EQ(changed->VerifySignature(true), cols[3] == "pass");
    ++rows;
  }
  EXPECT_GE(rows, 10);
}
