// XmlCanon behaviour beyond the conformance vectors: document subsets (Id, xpointer,
// start offset, EBICS), the exclusive prefix list, the attribute-sorting emulation,
// failures and hostile input.
#include <gtest/gtest.h>

#include <string>

#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "xml/XmlCanon.h"

namespace {

struct Result {
  bool ok = false;
  std::string out;
  std::string error;
  _btLogger log;
};

struct Settings {
  int method = 1;
  bool comments = false;
  const char* prefixes = nullptr;
  bool sortBug = false;
};

void run(Result& r, const std::string& xml, const char* fragment, Settings s = {}, size_t offset = 0) {
  XmlCanon canon;
  canon.canonMethod = s.method;
  canon.withComments = s.comments;
  canon.emulateAttrSortBug = s.sortBug;
  if (s.prefixes) StringBuffer(s.prefixes).split(canon.inclusivePrefixes, ' ', true, true);
  StringBuffer out;
  r.ok = canon.xmlCanonicalize(StringBuffer(xml), fragment, offset, out, r.log);
  r.out = out.str();
  r.error = r.log.lastErrorLine();
}

std::string canon(const std::string& xml, const char* fragment, Settings s = {}, size_t offset = 0) {
  Result r;
  run(r, xml, fragment, s, offset);
  return r.ok ? r.out : "FAILED: " + r.error;
}

const std::string kSoap =
    "<?xml version=\"1.0\"?>\n"
    "<soap:Envelope xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xmlns=\"urn:default\" xmlns:x=\"urn:x\" "
    "xml:lang=\"en\" xml:space=\"preserve\">\n"
    "  <soap:Header><Other ID=\"first\"/></soap:Header>\n"
    "  <soap:Body wsu:Id=\"body\" xml:lang=\"de\"><Item a=\"1\"/><!--note--></soap:Body>\n"
    "  <Late Id=\"body\"/>\n"
    "</soap:Envelope>";

}  // namespace

TEST(XmlCanon, FragmentByIdInheritsItsContext) {
  // Inclusive: every namespace in scope and the inherited xml:space land on the apex; the
  // bare-name form drops comments even with withComments.
  EXPECT_EQ(canon(kSoap, "body", {1, true}),
            "<soap:Body xmlns=\"urn:default\" xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xmlns:x=\"urn:x\" "
            "xml:lang=\"de\" xml:space=\"preserve\" wsu:Id=\"body\"><Item a=\"1\"></Item></soap:Body>");
  // Exclusive: only what is visibly used, declared where it is first used; no xml:* inheritance.
  EXPECT_EQ(canon(kSoap, "body", {2}),
            "<soap:Body xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xml:lang=\"de\" wsu:Id=\"body\">"
            "<Item xmlns=\"urn:default\" a=\"1\"></Item></soap:Body>");
  // The xpointer form keeps comments when asked; an ID attribute (any case) identifies too.
  EXPECT_EQ(canon(kSoap, "xpointer(id('body'))", {2, true}),
            "<soap:Body xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xml:lang=\"de\" wsu:Id=\"body\">"
            "<Item xmlns=\"urn:default\" a=\"1\"></Item><!--note--></soap:Body>");
  EXPECT_EQ(canon(kSoap, "first", {2}), "<Other xmlns=\"urn:default\" ID=\"first\"></Other>");

  // Attributes declared of type ID in the DTD identify their element whatever their name,
  // with the value normalised as an ID.
  const std::string dtd =
      "<!DOCTYPE r [<!ATTLIST item key ID #IMPLIED>]><r><item key=\" k1 \">x</item></r>";
  EXPECT_EQ(canon(dtd, "k1"), "<item key=\"k1\">x</item>");

  // "xpointer(/)" is the whole document.
  EXPECT_EQ(canon("<!--c--><r/>", "xpointer(/)", {1, true}), "<!--c-->\n<r></r>");
}

TEST(XmlCanon, StartOffsetAndPrefixList) {
  // The element at an offset is the same subset as the element named by its Id.
  const size_t body = kSoap.find("<soap:Body");
  EXPECT_EQ(canon(kSoap, nullptr, {1}, body), canon(kSoap, "body", {1}));
  // Listed prefixes are declared on the apex though unused ("#default" = xmlns); a listed
  // prefix that is not in scope is ignored.
  EXPECT_EQ(canon(kSoap, nullptr, {2, false, "x nope #default"}, body),
            "<soap:Body xmlns=\"urn:default\" xmlns:soap=\"urn:soap\" xmlns:wsu=\"urn:wsu\" xmlns:x=\"urn:x\" "
            "xml:lang=\"de\" wsu:Id=\"body\"><Item a=\"1\"></Item></soap:Body>");
}

TEST(XmlCanon, EbicsModeEmitsOneAuthenticatedElementPerCall) {
  const std::string doc =
      "<ebicsRequest xmlns=\"urn:org:ebics:H004\" Version=\"H004\">"
      "<header authenticate=\"true\"><static><Nonce>1</Nonce></static></header>"
      "<body><x/><DataTransfer authenticate=\"true\"><inner authenticate=\"true\"/></DataTransfer>"
      "<ns:Other xmlns:ns=\"urn:o\" ns:authenticate=\"true\"/></body></ebicsRequest>";
  const char* xpointer = "#xpointer(//*[@authenticate='true'])";

  // The caller's loop: index 0, 1, 2, ... appending to one buffer until a call fails.
  XmlCanon canon;
  canon.ebicsMode = true;
  StringBuffer in(doc), out;
  _btLogger log;
  int emitted = 0;
  for (int i = 0; i < 100; ++i) {
    canon.ebicsIndex = i;
    canon.ebicsCount = 0;
    if (!canon.xmlCanonicalize(in, xpointer + 1, 0, out, log)) break;
    ++emitted;
  }
  EXPECT_EQ(emitted, 3);  // the nested "inner" belongs to DataTransfer
  const std::string expected =
      "<header xmlns=\"urn:org:ebics:H004\" authenticate=\"true\"><static><Nonce>1</Nonce></static></header>"
      "<DataTransfer xmlns=\"urn:org:ebics:H004\" authenticate=\"true\"><inner authenticate=\"true\"></inner>"
      "</DataTransfer><ns:Other xmlns=\"urn:org:ebics:H004\" xmlns:ns=\"urn:o\" ns:authenticate=\"true\"></ns:Other>";
  EXPECT_EQ(out.str(), expected);
  EXPECT_TRUE(log.containsText("No more elements with authenticate=\"true\" (3 canonicalized)."));
  EXPECT_EQ(log.lastErrorLine(), "");

  // Without EBICS mode the same xpointer yields all of them at once.
  EXPECT_EQ(::canon(doc, xpointer + 1), expected);

  Result none;
  run(none, "<ebicsRequest><header/></ebicsRequest>", xpointer + 1);
  EXPECT_FALSE(none.ok);
  EXPECT_EQ(none.error, "No element with authenticate=\"true\" found.");
}

TEST(XmlCanon, AttributeSortBugOrdersByQualifiedName) {
  const std::string doc =
      "<e xmlns:q=\"urn:a\" xmlns:p=\"urn:z\" xmlns=\"urn:d\" zz=\"3\" q:b=\"2\" p:a=\"1\" Id=\"i\"/>";
  EXPECT_EQ(canon(doc, nullptr),
            "<e xmlns=\"urn:d\" xmlns:p=\"urn:z\" xmlns:q=\"urn:a\" Id=\"i\" zz=\"3\" q:b=\"2\" p:a=\"1\"></e>");
  EXPECT_EQ(canon(doc, nullptr, {1, false, nullptr, true}),
            "<e xmlns=\"urn:d\" xmlns:p=\"urn:z\" xmlns:q=\"urn:a\" Id=\"i\" p:a=\"1\" q:b=\"2\" zz=\"3\"></e>");
}

TEST(XmlCanon, FailuresExplainAndLeaveOutputAsItWas) {
  XmlCanon canon;
  _btLogger log;
  StringBuffer out("kept|");
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer("<a>\n<b></a>"), nullptr, 0, out, log));
  EXPECT_EQ(out.str(), "kept|");
  EXPECT_EQ(log.lastErrorLine().rfind("XML parse error: line 2", 0), 0u) << log.lastErrorLine();

  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), "nope", 0, out, log));
  EXPECT_EQ(out.str(), "kept|");
  EXPECT_EQ(log.lastErrorLine(), "Element with Id 'nope' not found.");

  const size_t inTag = kSoap.find("<soap:Body") + 1;
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), nullptr, inTag, out, log));
  EXPECT_EQ(log.lastErrorLine(), "No element starts at offset " + std::to_string(inTag) + ".");
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), nullptr, kSoap.size() + 1, out, log));
  EXPECT_EQ(out.str(), "kept|");

  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer(kSoap), "xpointer(//foo)", 0, out, log));
  EXPECT_EQ(log.lastErrorLine(), "Unsupported XPointer expression.");

  // Success appends.
  EXPECT_TRUE(canon.xmlCanonicalize(StringBuffer("<r/>"), nullptr, 0, out, log));
  EXPECT_EQ(out.str(), "kept|<r></r>");

  // Two attributes with one expanded name are not namespace-well-formed.
  EXPECT_FALSE(canon.xmlCanonicalize(StringBuffer("<r xmlns:a=\"urn:x\" xmlns:b=\"urn:x\" a:k=\"1\" b:k=\"2\"/>"),
                                     nullptr, 0, out, log));
  EXPECT_EQ(out.str(), "kept|<r></r>");
}

TEST(XmlCanon, HostileInputFailsCleanly) {
  Result r;
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  run(r, deep, nullptr);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.error.rfind("XML parse error: ", 0), 0u) << r.error;

  // Eleven levels of ten references each: 3 * 10^11 bytes if expanded.
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 12; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) laughs += "&l" + std::to_string(i - 1) + ";";
    laughs += "\">";
  }
  laughs += "]><r>&l11;</r>";
  run(r, laughs, nullptr);
  EXPECT_FALSE(r.ok);
  EXPECT_TRUE(r.out.empty());
  EXPECT_EQ(r.error.rfind("XML parse error: ", 0), 0u) << r.error;

  // Many namespaces and attributes within the scanner's limits are sorted and written.
  std::string many = "<r";
  for (int i = 12000; i > 0; --i) {
    const std::string n = std::to_string(i);
    many += " xmlns:p" + n + "=\"urn:" + n + "\" p" + n + ":a=\"v\" a" + n + "=\"v\"";
  }
  many += "/>";
  for (int method : {1, 2}) {
    run(r, many, nullptr, {method});
    ASSERT_TRUE(r.ok) << r.error;
    const std::string head = "<r xmlns:p1=\"urn:1\" xmlns:p10=\"urn:10\" xmlns:p100=\"urn:100\"";
    EXPECT_EQ(r.out.substr(0, head.size()), head);
    EXPECT_NE(r.out.find("xmlns:p9999=\"urn:9999\" a1=\"v\" a10=\"v\" a100=\"v\""), std::string::npos);
    EXPECT_NE(r.out.find("a9999=\"v\" p1:a=\"v\" p10:a=\"v\""), std::string::npos);
  }
}
