// XmlCanon beyond the conformance vectors: document subsets (Id, xpointer, start offset,
// EBICS), the exclusive prefix list, the attribute-sorting emulation, failures, very
// many attributes, and a differential test against libxml2's xmllint.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "XmlTestHelpers.h"

using xmltest::Canon;
using xmltest::canonicalize;

namespace {

const std::string kSoap =
    "<?xml version=\"1.0\"?>\n"
    "<soap:Envelope xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xmlns=\"urn:default\" xmlns:x=\"urn:x\" "
    "xml:lang=\"en\" xml:space=\"preserve\">\n"
    "  <soap:Header><Other ID=\"first\"/></soap:Header>\n"
    "  <soap:Body wsu:Id=\"body\" xml:lang=\"de\"><Item a=\"1\"/><!--note--></soap:Body>\n"
    "  <Late Id=\"body\"/>\n"
    "</soap:Envelope>";

}  // namespace

TEST(XmlCanon, DocumentSubsetsInheritTheirContext) {
  // Inclusive: every namespace in scope and the inherited xml:space land on the apex; the
  // bare-name form drops comments even with withComments.
  EXPECT_EQ(canonicalize(kSoap, "body", {1, true}),
            "<soap:Body xmlns=\"urn:default\" xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xmlns:x=\"urn:x\" "
            "xml:lang=\"de\" xml:space=\"preserve\" wsu:Id=\"body\"><Item a=\"1\"></Item></soap:Body>");
  // Exclusive: only what is visibly used, declared where it is first used; no xml:* inheritance.
  // The xpointer form keeps comments when asked; an ID attribute (any case) identifies too.
  EXPECT_EQ(canonicalize(kSoap, "xpointer(id('body'))", {2, true}),
            "<soap:Body xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xml:lang=\"de\" wsu:Id=\"body\">"
            "<Item xmlns=\"urn:default\" a=\"1\"></Item><!--note--></soap:Body>");
  EXPECT_EQ(canonicalize(kSoap, "first", {2}), "<Other xmlns=\"urn:default\" ID=\"first\"></Other>");
  // Attributes declared of type ID in the DTD identify their element whatever their name,
  // with the value normalised as an ID.
  EXPECT_EQ(canonicalize("<!DOCTYPE r [<!ATTLIST item key ID #IMPLIED>]><r><item key=\" k1 \">x</item></r>", "k1"),
            "<item key=\"k1\">x</item>");
  EXPECT_EQ(canonicalize("<!--c--><r/>", "xpointer(/)", {1, true}), "<!--c-->\n<r></r>");  // the whole document

  // The element at an offset is the same subset as the element named by its Id.
  const size_t body = kSoap.find("<soap:Body");
  EXPECT_EQ(canonicalize(kSoap, nullptr, {1, false, nullptr, body}), canonicalize(kSoap, "body"));
  // Listed prefixes are declared on the apex though unused ("#default" = xmlns); a listed
  // prefix that is not in scope is ignored.
  EXPECT_EQ(canonicalize(kSoap, nullptr, {2, false, "x nope #default", body}),
            "<soap:Body xmlns=\"urn:default\" xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xmlns:x=\"urn:x\" "
            "xml:lang=\"de\" wsu:Id=\"body\"><Item a=\"1\"></Item></soap:Body>");

  const std::string attrs =
      "<e xmlns:q=\"urn:a\" xmlns:p=\"urn:z\" xmlns=\"urn:d\" zz=\"3\" q:b=\"2\" p:a=\"1\" Id=\"i\"/>";
  EXPECT_EQ(canonicalize(attrs, nullptr),
            "<e xmlns=\"urn:d\" xmlns:p=\"urn:z\" xmlns:q=\"urn:a\" Id=\"i\" zz=\"3\" q:b=\"2\" p:a=\"1\"></e>");
  // The attribute-sorting emulation orders by qualified name, as some signers did.
  EXPECT_EQ(canonicalize(attrs, nullptr, {1, false, nullptr, 0, true}),
            "<e xmlns=\"urn:d\" xmlns:p=\"urn:z\" xmlns:q=\"urn:a\" Id=\"i\" p:a=\"1\" q:b=\"2\" zz=\"3\"></e>");
}

TEST(XmlCanon, EbicsModeEmitsOneAuthenticatedElementPerCall) {
  const std::string doc =
      "<ebicsRequest xmlns=\"urn:org:ebics:H004\" Version=\"H004\">"
      "<header authenticate=\"true\"><static><Nonce>1</Nonce></static></header>"
      "<body><x/><DataTransfer authenticate=\"true\"><inner authenticate=\"true\"/></DataTransfer>"
      "<ns:Other xmlns:ns=\"urn:o\" ns:authenticate=\"true\"/></body></ebicsRequest>";
  const char* xpointer = "xpointer(//*[@authenticate='true'])";
  StringBuffer out;
  _btLogger log;
  const int emitted = xmltest::canonicalizeEbics(doc, xpointer, out, log);
  EXPECT_EQ(emitted, 3);  // the nested "inner" belongs to DataTransfer
  const std::string expected =
      "<header xmlns=\"urn:org:ebics:H004\" authenticate=\"true\"><static><Nonce>1</Nonce></static></header>"
      "<DataTransfer xmlns=\"urn:org:ebics:H004\" authenticate=\"true\"><inner authenticate=\"true\"></inner>"
      "</DataTransfer><ns:Other xmlns=\"urn:org:ebics:H004\" xmlns:ns=\"urn:o\" ns:authenticate=\"true\"></ns:Other>";
  EXPECT_EQ(out.str(), expected);
  EXPECT_TRUE(log.containsText("No more elements with authenticate=\"true\" (3 canonicalized)."));
  EXPECT_EQ(log.lastErrorLine(), "");
  // Without EBICS mode the same xpointer yields all of them at once.
  EXPECT_EQ(canonicalize(doc, xpointer), expected);
  EXPECT_EQ(canonicalize("<ebicsRequest><header/></ebicsRequest>", xpointer),
            "FAILED: No element with authenticate=\"true\" found.");
}

TEST(XmlCanon, FailuresExplainAndLeaveOutputAsItWas) {
  XmlCanon canon;
  _btLogger log;
  StringBuffer out("kept|");
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer("<a>\n<b></a>"), nullptr, 0, out, log));
  EXPECT_EQ(log.lastErrorLine().rfind("XML parse error: line 2", 0), 0u) << log.lastErrorLine();
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), "nope", 0, out, log));
  EXPECT_EQ(log.lastErrorLine(), "Element with Id 'nope' not found.");
  const size_t inTag = kSoap.find("<soap:Body") + 1;
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), nullptr, inTag, out, log));
  EXPECT_EQ(log.lastErrorLine(), "No element starts at offset " + std::to_string(inTag) + ".");
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), nullptr, kSoap.size() + 1, out, log));
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), "xpointer(//foo)", 0, out, log));
  EXPECT_EQ(log.lastErrorLine(), "Unsupported XPointer expression.");
  // Two attributes with one expanded name are not namespace-well-formed.
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer("<r xmlns:a=\"urn:x\" xmlns:b=\"urn:x\" a:k=\"1\" b:k=\"2\"/>"),
                                     nullptr, 0, out, log));
  EXPECT_EQ(out.str(), "kept|");
  EXPECT_TRUE(canon.xmlCanonicalize(StringBuffer("<r/>"), nullptr, 0, out, log));
  EXPECT_EQ(out.str(), "kept|<r></r>");  // success appends
}

// A cut-out span is written as if it had been removed from the text, and output handed
// to a sink in pieces is the same as output appended in one piece.
TEST(XmlCanon, CutSpanAndPiecewiseOutputMatchTheCutText) {
  std::string body;
  for (int i = 0; body.size() < 300 * 1024; ++i)
    body += "<p:i n=\"" + std::to_string(i) + "\" xmlns:q=\"urn:q\">t &amp; &#x3C; \r\n</p:i>";
  const std::string cut = "<Signature xmlns=\"urn:sig\" xml:lang=\"x\"><!--c--><v>1</v></Signature>";
  const std::string head = "<r xmlns:p=\"urn:p\" xmlns=\"urn:d\">text ";
  const std::string tail = body + "</r>";
  const std::string whole = head + cut + tail;
  const std::string removed = head + tail;

  for (const int method : {1, 2}) {
    XmlCanon expected;
    expected.canonMethod = method;
    StringBuffer want;
    LogNull log;
    ASSERT_TRUE(expected.xmlCanonicalize(StringBuffer(removed), nullptr, 0, want, log));

    XmlCanon canon;
    canon.canonMethod = method;
    canon.cutStart = head.size();
    canon.cutLength = cut.size();
    std::string pieces;
    int calls = 0;
    canon.outputSink = [&](std::string_view piece) {
      pieces.append(piece);
      ++calls;
    };
    StringBuffer untouched("kept");
    ASSERT_TRUE(canon.xmlCanonicalize(StringBuffer(whole), nullptr, 0, untouched, log));
    EXPECT_EQ(pieces, want.str()) << method;
    EXPECT_GT(calls, 2);
    EXPECT_EQ(untouched.str(), "kept");
  }

  // References in text: &amp; &lt; &gt; are their own canonical form, the others are not.
  EXPECT_EQ(canonicalize("<r>&amp;x&lt;&gt;&quot;&apos;&#62;&#x26;amp;\r\nz</r>", nullptr),
            "<r>&amp;x&lt;&gt;\"'&gt;&amp;amp;\nz</r>");
}

TEST(XmlCanon, ThousandsOfNamespacesAndAttributesAreSorted) {
  // Many namespaces and attributes within the scanner's limits are sorted and written.
  std::string many = "<r";
  for (int i = 12000; i > 0; --i) {
    const std::string n = std::to_string(i);
    many += " xmlns:p" + n + "=\"urn:" + n + "\" p" + n + ":a=\"v\" a" + n + "=\"v\"";
  }
  many += "/>";
  for (int method : {1, 2}) {
    const std::string out = canonicalize(many, nullptr, {method});
    const std::string head = "<r xmlns:p1=\"urn:1\" xmlns:p10=\"urn:10\" xmlns:p100=\"urn:100\"";
    EXPECT_EQ(out.substr(0, head.size()), head);
    EXPECT_NE(out.find("xmlns:p9999=\"urn:9999\" a1=\"v\" a10=\"v\" a100=\"v\""), std::string::npos);
    EXPECT_NE(out.find("a9999=\"v\" p1:a=\"v\" p10:a=\"v\""), std::string::npos);
  }
}

namespace {

std::string runXmllint(const std::string& option, const std::string& path) {
  std::string out;
  FILE* pipe = popen(("xmllint " + option + " '" + path + "' 2>/dev/null").c_str(), "r");
  if (!pipe) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  pclose(pipe);
  return out;
}

// Hand-written documents that exercise one area each.
const std::vector<std::pair<const char*, std::string>> kDifferentialDocs = {
    {"namespaces redeclared and undeclared",
     "<?xml version=\"1.0\"?>\n"
     "<a:root xmlns:a=\"urn:a\" xmlns:b=\"urn:b\" xmlns=\"urn:default\" xmlns:unused=\"urn:unused\">\n"
     "  <child xmlns:a=\"urn:a\"><a:x xmlns:b=\"urn:b2\" b:attr=\"1\"/></child>\n"
     "  <plain xmlns=\"\"><inner xmlns=\"urn:other\"><deep xmlns=\"\"><b:z/></deep></inner></plain>\n"
     "  <b:y xmlns=\"urn:default\"><again xmlns=\"urn:default\"/></b:y>\n"
     "</a:root>\n"},
    {"empty default namespace at the root and below",
     "<root xmlns=\"\"><p:a xmlns:p=\"http://p.example/\" xmlns=\"http://d.example/\"><b xmlns=\"\"/><c/></p:a></root>"},
    {"attribute order and xml attributes",
     "<doc xmlns:z=\"http://a.example/z\" xmlns:a=\"http://z.example/a\" xml:lang=\"en\" z:first=\"1\" "
     "a:second=\"2\" b=\"3\" a=\"4\" xml:space=\"preserve\" A=\"5\">"
     "<e xml:lang=\"fr\" z:k=\"v\" k=\"w\" a:k=\"x\"/></doc>"},
    {"entities, character references and attribute escaping",
     "<!DOCTYPE doc [\n<!ENTITY ent \"entity &#38;amp; text\">\n<!ENTITY nested \"[&ent;]\">\n]>\n"
     "<doc><e>&ent; &nested; &#x41;&#9;&#13;&lt;&gt;\"' &#xE9;&#x10000;</e>"
     "<f attr=\"a&#9;b&#10;c&#13;d &quot; &lt; &amp; '&gt; &ent;\" other='\"quoted\"' "
     "spaces=\"  tab\tnewline\n  \"/></doc>"},
    {"DTD default attributes and attribute types",
     "<!DOCTYPE doc [\n<!ATTLIST doc def CDATA \"default value\" tok NMTOKENS #IMPLIED>\n"
     "<!ATTLIST e id ID #IMPLIED kind (x|y) \"x\" fixed CDATA #FIXED \"f\">\n]>\n"
     "<doc tok=\"  a   b  \"><e id=\"  spaced  \"/><e kind=\"y\" fixed=\"f\"/></doc>"},
    {"CDATA, comments, PIs and white space outside the root",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<?pi-before some data ?>\n<!-- before -->\n\n"
     "<doc>\n<![CDATA[ <cdata> & ]]> ]]&gt; text\n<?inner   pi data  ?><?empty?><!-- inner\ncomment -->\n"
     "<![CDATA[]]></doc>\n\n<!-- after -->\n<?pi-after?>\n"},
    {"line ends",
     "<doc attr=\"one\r\ntwo\rthree\">line1\r\nline2\rline3\r\n<!-- c\r\nd --><![CDATA[x\r\ny]]></doc>\r\n"},
    {"exclusive visibility",
     "<r:root xmlns:r=\"urn:r\" xmlns:u=\"urn:u\" xmlns:v=\"urn:v\" xmlns=\"urn:d\">"
     "<r:a><b u:at=\"1\"><r:c xmlns:v=\"urn:v2\"><v:d/></r:c></b></r:a><u:e xmlns=\"\"><f/></u:e></r:root>"},
    {"empty elements and mixed content", "<doc><a/><b></b><c>x<d/>y<e>z</e></c>  <f  a = 'v' /></doc>"},
};

}  // namespace

// Our canonical form against xmllint --c14n / --exc-c14n (which always keep comments).
TEST(XmlCanonDifferential, MatchesXmllintInclusiveAndExclusive) {
  if (std::system("command -v xmllint >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "xmllint not installed (package libxml2-utils); differential test skipped";
  const std::string dir = testsupport::makeTempDir("canon-diff");
  ASSERT_FALSE(dir.empty());
  for (const auto& [what, doc] : kDifferentialDocs) {
    SCOPED_TRACE(what);
    const std::string path = dir + "/doc.xml";
    ASSERT_TRUE(testsupport::writeFile(path, doc));
    const std::string inclusive = runXmllint("--c14n", path);
    ASSERT_FALSE(inclusive.empty()) << "xmllint rejected the document";
    EXPECT_EQ(canonicalize(doc, nullptr, {1, true}), inclusive);
    EXPECT_EQ(canonicalize(doc, nullptr, {2, true}), runXmllint("--exc-c14n", path));
    std::remove(path.c_str());
  }
  std::remove(dir.c_str());
}
