// The XML scanner: token spans the locators cut by, located error messages, reference
// expansion, DTD defaults, and the limits that stop hostile documents.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "VectorFile.h"
#include "support/xml/XmlScanner.h"

using xml::XmlScanner;
using xml::XmlToken;
using xml::XmlTokenType;

namespace {

struct ScanResult {
  std::vector<XmlToken> tokens;
  std::string error;
};

ScanResult scanAll(std::string_view text) {
  ScanResult r;
  XmlScanner scanner(text);
  XmlToken tok;
  while (scanner.next(tok)) r.tokens.push_back(tok);
  r.error = scanner.errorMessage();
  return r;
}

std::string scanError(std::string_view text) { return scanAll(text).error; }

// tests/support/data/malformed-xml.tsv, escapes undone.
struct MalformedCase {
  int line = 0;
  std::string document, error;
};

std::vector<MalformedCase> readMalformedCases() {
  std::ifstream in(testsupport::sourceDir() + "/tests/support/data/malformed-xml.tsv");
  std::vector<MalformedCase> cases;
  std::string text;
  for (int line = 1; std::getline(in, text); ++line) {
    if (text.empty() || text[0] == '#') continue;
    const size_t tab = text.find('\t');
    cases.push_back({line, vectors::unescaped(text.substr(0, tab)),
                     tab == std::string::npos ? "" : vectors::unescaped(text.substr(tab + 1))});
  }
  EXPECT_GT(cases.size(), 30u);
  return cases;
}

}  // namespace

TEST(XmlScanner, TokensCarryExactSpansNamesAndDepths) {
  const std::string text =
      "<?xml version=\"1.0\"?>\n"
      "<!DOCTYPE r [ <!ENTITY e \"v\"> ]>\n"
      "<!-- c -->\n"
      "<r xmlns:ds='urn:x' a = \"1\">t&amp;<ds:k/><![CDATA[<x>]]><?pi  data?></r>\n"
      "<!--end-->";
  ScanResult r = scanAll(text);
  ASSERT_EQ(r.error, "");
  // The spans tile the whole text, so locators and the canonicalizer can cut by them.
  size_t at = 0;
  for (const XmlToken& t : r.tokens) {
    EXPECT_EQ(t.start, at);
    at = t.end;
  }
  EXPECT_EQ(at, text.size());

  std::vector<XmlTokenType> types;
  for (const XmlToken& t : r.tokens) types.push_back(t.type);
  const std::vector<XmlTokenType> expected = {XmlTokenType::XmlDecl,  XmlTokenType::Text,    XmlTokenType::Doctype,
                                              XmlTokenType::Text,     XmlTokenType::Comment, XmlTokenType::Text,
                                              XmlTokenType::StartTag, XmlTokenType::Text,    XmlTokenType::StartTag,
                                              XmlTokenType::CData,    XmlTokenType::PI,      XmlTokenType::EndTag,
                                              XmlTokenType::Text,     XmlTokenType::Comment};
  ASSERT_EQ(types, expected);

  // Name, content and depth of each token, "t&amp;" raw, not expanded.
  const struct {
    size_t i;
    const char *name, *content;
    size_t depth;
  } expect[] = {{0, "", " version=\"1.0\"", 0},
                {2, "r", " <!ENTITY e \"v\"> ", 0},
                {4, "", " c ", 0},
                {6, "r", "", 1},
                {7, "", "t&amp;", 1},
                {8, "ds:k", "", 2},
                {9, "", "<x>", 1},
                {10, "pi", "data", 1},
                {11, "r", "", 1},
                {13, "", "end", 0}};
  for (const auto& e : expect) {
    EXPECT_EQ(r.tokens[e.i].name, e.name) << e.i;
    EXPECT_EQ(r.tokens[e.i].content, e.content) << e.i;
    EXPECT_EQ(r.tokens[e.i].depth, e.depth) << e.i;
  }
  EXPECT_TRUE(r.tokens[8].selfClosing);
  const auto& attrs = r.tokens[6].attributes;
  ASSERT_EQ(attrs.size(), 2u);
  EXPECT_EQ(attrs[0].qname, "xmlns:ds");
  EXPECT_EQ(attrs[0].rawValue, "urn:x");
  EXPECT_EQ(attrs[0].quote, '\'');
  EXPECT_EQ(text.substr(attrs[0].start, attrs[0].end - attrs[0].start), "xmlns:ds='urn:x'");
  EXPECT_EQ(text.substr(attrs[1].start, attrs[1].end - attrs[1].start), "a = \"1\"");

  // Lenient where real documents are: "]]>" in text, a UTF-8 BOM, UTF-8 names.
  EXPECT_EQ(scanError("<a>x ]]> y</a>"), "");
  EXPECT_EQ(scanError("\xEF\xBB\xBF<?xml version='1.0'?><a/>"), "");
  EXPECT_EQ(scanError("<f\xC3\xBC:\xC3\xA9l\xC3\xA9ment \xC3\xA9=\"1\"/>"), "");
}

TEST(XmlScanner, MalformedDocumentsFailWithLocatedMessages) {
  for (const MalformedCase& c : readMalformedCases())
    EXPECT_EQ(scanError(c.document), c.error) << "malformed-xml.tsv line " << c.line << ": " << c.document;

  // Text runs are crossed in blocks: a bad '&' is found at every position of a block, also
  // when the '<' that ends the text lies in the same block; an end tag that only begins
  // with the open element's name does not match it.
  for (size_t pad = 0; pad < 40; ++pad) {
    const std::string text(pad, 'x');
    EXPECT_EQ(
        scanError("<a>" + text + "& <b/></a>"),
        "line 1, column " + std::to_string(4 + pad) + ": '&' must start a reference; write &amp; for a literal '&'");
    EXPECT_EQ(scanError("<a>" + text + "&amp;" + text + "</a>"), "");
  }
  EXPECT_EQ(scanError("<a></ab>"), "line 1, column 4: end tag </ab> does not match start tag <a>");
  EXPECT_EQ(scanError("<ab></a>"), "line 1, column 5: end tag </a> does not match start tag <ab>");
}

TEST(XmlScanner, ExpandsReferencesAndNormalisesText) {
  const std::string text =
      "<!DOCTYPE d [\n"
      "  <!ENTITY inner \"in&#x41;\">\n"
      "  <!ENTITY outer 'o[&inner;]&amp;'>\n"
      "  <!ENTITY ws \"a&#10;b\">\n"
      "]>\n"
      "<d a=\" x\t&#10;y&#13;&ws;\" n=\"  p   q &#32; \">&outer;&lt;&#233;\r\nz\rw</d>";
  XmlScanner scanner(text);
  XmlToken d, body;
  while (scanner.next(d) && d.type != XmlTokenType::StartTag) {
  }
  ASSERT_TRUE(scanner.next(body)) << scanner.errorMessage();
  std::string out;
  ASSERT_TRUE(scanner.decodeText(body.content, out));
  EXPECT_EQ(out, "o[inA]&<\xC3\xA9\nz\nw");

  // Literal TAB/LF become spaces, character references keep their character, white
  // space inside entity text becomes a space.
  out.clear();
  ASSERT_TRUE(scanner.decodeAttributeValue(d.attributes[0].rawValue, out));
  EXPECT_EQ(out, " x \ny\ra b");
  out.clear();
  ASSERT_TRUE(scanner.decodeAttributeValue(d.attributes[1].rawValue, out, true));
  EXPECT_EQ(out, "p q");

  // Decoding text the scan did not validate still refuses unknown entities.
  out = "keep";
  EXPECT_FALSE(scanner.decodeText("&unknown;", out));
  EXPECT_EQ(out, "keep");
  EXPECT_EQ(scanner.errorMessage(), "undefined entity 'unknown'");
}

TEST(XmlScanner, DtdDeclarationsAndDefaultAttributes) {
  const std::string text =
      "<!DOCTYPE doc [\n"
      "  <!ELEMENT doc (e)*>\n"
      "  <!-- a comment with ] and > and 'quote -->\n"
      "  <?pi with ] ?>\n"
      "  <!NOTATION n SYSTEM \"x>y]\">\n"
      "  <!ENTITY % pe \"ignored]>\">\n"
      "  %pe;\n"
      "  <!ATTLIST e a1 CDATA \"d]>1\" a2 (x|y) 'x'\n"
      "              a3 ID #IMPLIED a4 NMTOKENS #FIXED \" t  u \" a5 CDATA #REQUIRED>\n"
      "  <!ATTLIST e a1 CDATA \"ignored: first declaration binds\">\n"
      "]>\n"
      "<doc><e a2=\"y\"/><e a1=\"own\"></e></doc>";
  XmlScanner scanner(text);
  XmlToken tok;
  std::vector<XmlToken> starts;
  while (scanner.next(tok))
    if (tok.type == XmlTokenType::StartTag) starts.push_back(tok);
  ASSERT_FALSE(scanner.hasError()) << scanner.errorMessage();
  ASSERT_EQ(starts.size(), 3u);
  EXPECT_EQ(scanner.dtd().findEntity("pe"), nullptr);  // a parameter entity only

  // Specified attributes first, then the declared defaults the tag leaves out.
  const XmlToken& e1 = starts[1];
  ASSERT_EQ(e1.attributes.size(), 3u);
  EXPECT_FALSE(e1.attributes[0].defaulted);
  EXPECT_EQ(e1.attributes[1].qname, "a1");
  EXPECT_EQ(e1.attributes[1].rawValue, "d]>1");
  EXPECT_TRUE(e1.attributes[1].defaulted);
  EXPECT_EQ(e1.attributes[2].qname, "a4");
  std::string out;
  ASSERT_TRUE(scanner.decodeAttributeValue(e1.attributes[2].rawValue, out, true));
  EXPECT_EQ(out, "t u");

  const XmlToken& e2 = starts[2];
  ASSERT_EQ(e2.attributes.size(), 3u);
  EXPECT_EQ(e2.attributes[0].rawValue, "own");
  EXPECT_EQ(e2.attributes[1].qname, "a2");
  EXPECT_EQ(e2.attributes[1].rawValue, "x");
}

TEST(XmlScanner, HostileDocumentsEndQuicklyAtTheirLimit) {
  std::string laughs = "<!DOCTYPE lolz [<!ENTITY lol \"lol\">";
  for (int i = 1; i <= 9; ++i) {
    laughs += "<!ENTITY lol" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) laughs += "&lol" + (i == 1 ? std::string() : std::to_string(i - 1)) + ";";
    laughs += "\">";
  }
  laughs += "]><lolz>&lol9;</lolz>";
  EXPECT_NE(scanError(laughs).find("entity expansion exceeds the limit of 33554432 bytes (kMaxEntityExpansionBytes)"),
            std::string::npos);

  // Many modest references add up to the same bound.
  std::string quadratic = "<!DOCTYPE q [<!ENTITY big \"" + std::string(100000, 'x') + "\">]><q>";
  for (int i = 0; i < 400; ++i) quadratic += "&big;";
  quadratic += "</q>";
  EXPECT_NE(scanError(quadratic).find("(kMaxEntityExpansionBytes)"), std::string::npos);

  std::string nested = "<!DOCTYPE n [<!ENTITY e0 \"x\">";
  for (int i = 1; i <= 20; ++i) nested += "<!ENTITY e" + std::to_string(i) + " \"&e" + std::to_string(i - 1) + ";\">";
  nested += "]><n>&e20;</n>";
  EXPECT_NE(scanError(nested).find("entities nested deeper than the limit of 16 (kMaxEntityNesting)"),
            std::string::npos);

  std::string deep;
  deep.reserve(3000000);
  for (int i = 0; i < 1000000; ++i) deep += "<a>";
  EXPECT_EQ(scanError(deep), "line 1, column 15001: elements nested deeper than the limit of 5000 (kMaxElementDepth)");

  auto manyAttributes = [](int n, bool duplicateLast) {
    std::string s = "<a";
    for (int i = 0; i < n; ++i) s += " a" + std::to_string(i) + "=\"\"";
    if (duplicateLast) s += " a7=\"\"";
    return s + "/>";
  };
  EXPECT_NE(scanError(manyAttributes(100000, false))
                .find("more attributes than the limit of 50000 (kMaxAttributesPerElement) in start tag <a>"),
            std::string::npos);
  EXPECT_EQ(scanError(manyAttributes(xml::kMaxAttributesPerElement, false)), "");
  EXPECT_NE(scanError(manyAttributes(40000, true)).find("duplicate attribute 'a7' in start tag <a>"),
            std::string::npos);

  const std::string longName = "<" + std::string(xml::kMaxNameLength + 1, 'n') + "/>";
  EXPECT_EQ(scanError(longName),
            "line 1, column 2: element name longer than the limit of 50000 bytes (kMaxNameLength)");
}
