// Text: the StringBuffer edits, searches and splits the transforms and document
// adjustments rely on; XString's serial re-encoding, charsets and UTF-8 repair.
#include <string>
#include <vector>

#include "SupportTestHelpers.h"
#include "support/Charset.h"
#include "support/ExtPtrArray.h"
#include "support/XString.h"

using supporttest::bytesOf;
using Pieces = std::vector<std::string>;

namespace {

Pieces pieces(const ExtPtrArraySb& a) {
  Pieces v;
  for (int i = 0; i < a.getSize(); ++i) v.emplace_back(a.strAt(i));
  return v;
}

}  // namespace

TEST(StringBuffer, ReplaceAllNeverRescansReplacements) {
  const struct {
    const char *text, *from, *to;
    int count;
    const char* result;
  } cases[] = {{"aa", "a", "aa", 2, "aaaa"},
               {"<a/>&#13;\n<b/>&#13;", "&#13;", "", 2, "<a/>\n<b/>"},
               {"aaa", "aa", "b", 1, "ba"},  // non-overlapping, left to right
               {"xyz", "q", "r", 0, "xyz"}};
  for (const auto& c : cases) {
    StringBuffer sb(c.text);
    EXPECT_EQ(sb.replaceAllOccurances(c.from, c.to), c.count) << c.text;
    EXPECT_EQ(sb.str(), c.result);
  }
  StringBuffer sb("one ONE one");
  EXPECT_TRUE(sb.replaceFirstOccurance("one", "1", false));
  EXPECT_EQ(sb.str(), "1 ONE one");
  EXPECT_FALSE(sb.replaceFirstOccurance("two", "2", false));
}

TEST(StringBuffer, SplitTokenizeAndMatch) {
  auto split = [](const char* text, bool trimAndDrop) {
    ExtPtrArraySb out;
    EXPECT_TRUE(StringBuffer(text).split(out, ';', trimAndDrop, trimAndDrop));
    return pieces(out);
  };
  EXPECT_EQ(split("a;;b ; ", true), (Pieces{"a", "b"}));
  EXPECT_EQ(split("a;;b ", false), (Pieces{"a", "", "b "}));
  EXPECT_EQ(split("  /tmp/a ;\t/tmp/b\r\n", true), (Pieces{"/tmp/a", "/tmp/b"}));
  ExtPtrArraySb xp;
  ASSERT_TRUE(StringBuffer("ancestor-or-self::*[@Id='x']").tokenize(xp, ":[=]"));
  EXPECT_EQ(pieces(xp), (Pieces{"ancestor-or-self", ":", ":", "*", "[", "@Id", "=", "'x'", "]"}));
  EXPECT_STREQ(xp.strAt(99), "");

  const char* token = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-x509-token-profile-1.0#X509v3";
  const char* qrFilter = "not(//ancestor-or-self::*[*ID='*'])";
  const struct {
    const char *text, *pattern;
    bool caseSensitive, match;
  } cases[] = {{token, "*#X509v3", true, true},
               {token, "*#X509v3x", true, false},
               {token, "*#x509V3", true, false},
               {token, "*#x509V3", false, true},
               {token, "http*wss*#*", true, true},
               {"", "*", true, true},
               {"", "", true, true},
               {"a", "", true, false},
               {"not(//ancestor-or-self::*[*ID='QR'])", qrFilter, true, true},
               {"not(//ancestor-or-self::ds:Signature)", qrFilter, true, false}};
  for (const auto& c : cases) EXPECT_EQ(StringBuffer(c.text).matches(c.pattern, c.caseSensitive), c.match) << c.pattern;
  // Many stars against a long text with no match: backtracking search would never finish.
  const StringBuffer as(std::string(2000, 'a'));
  std::string pat;
  for (int i = 0; i < 40; ++i) pat += "*a";
  EXPECT_FALSE(as.matches((pat + "*b").c_str(), true));
  EXPECT_TRUE(as.matches((pat + "*").c_str(), true));
}

TEST(StringBuffer, DelimitedSpans) {
  StringBuffer out("unchanged");
  EXPECT_FALSE(StringBuffer("<x><doda><a/></x>").getDelimited("<doda>", "</doda>", true, out));
  EXPECT_EQ(out.str(), "unchanged");
  const StringBuffer t("pre</doda><doda>mid</doda>post</doda>");
  ASSERT_TRUE(t.getDelimited("<doda>", "</doda>", true, out));
  EXPECT_EQ(out.str(), "<doda>mid</doda>");
  ASSERT_TRUE(t.getDelimited("<doda>", "</doda>", false, out));
  EXPECT_EQ(out.str(), "mid");

  StringBuffer inv(
      "<Invoice><ext:UBLExtensions>u</ext:UBLExtensions>"
      "<cac:AdditionalDocumentReference><cbc:ID>ICV</cbc:ID></cac:AdditionalDocumentReference>"
      "<cac:AdditionalDocumentReference><cbc:ID>QR</cbc:ID></cac:AdditionalDocumentReference>"
      "<cac:Signature>s</cac:Signature><cac:Signature>t</cac:Signature></Invoice>");
  EXPECT_TRUE(inv.removeDelimited("<ext:UBLExtensions>", "</ext:UBLExtensions>", true, true));
  EXPECT_TRUE(inv.removeDelimitedIfContains("<cac:AdditionalDocumentReference>", "</cac:AdditionalDocumentReference>",
                                            "<cbc:ID>QR", true, true));
  EXPECT_TRUE(inv.removeDelimited("<cac:Signature>", "</cac:Signature>", true, true));
  EXPECT_EQ(inv.str(),
            "<Invoice><cac:AdditionalDocumentReference><cbc:ID>ICV</cbc:ID></cac:AdditionalDocumentReference>"
            "<cac:Signature>t</cac:Signature></Invoice>");
  EXPECT_FALSE(inv.removeDelimitedIfContains("<cac:AdditionalDocumentReference>", "</cac:AdditionalDocumentReference>",
                                             "QR", true, true));
  EXPECT_TRUE(inv.removeDelimited("<cac:", "</cac:", true, false));  // every span
  EXPECT_EQ(inv.str(), "<Invoice>AdditionalDocumentReference>Signature></Invoice>");

  StringBuffer c("<Signature>abc</Signature>rest");
  c.chopAtSubstr("</Signature>", true);
  c.removeBefore("abc", false);
  EXPECT_EQ(c.str(), "abc</Signature>");
  c.removeBefore("zzz", false);
  EXPECT_EQ(c.str(), "abc</Signature>");
}

TEST(StringBuffer, SearchCompareAndEdit) {
  const StringBuffer sb("<ds:Signature xmlns:ds=\"x\"><ds:SignedInfo/></ds:Signature>");
  EXPECT_EQ(sb.find("ds:", 1000), StringBuffer::npos);
  EXPECT_EQ(sb.rfind("<ds:"), 27u);
  EXPECT_EQ(sb.rfind("<ds:", 27), 0u);  // strictly before
  EXPECT_EQ(sb.rfind("<ds:", 0), StringBuffer::npos);
  EXPECT_EQ(sb.findChar('>', 30), 42u);
  EXPECT_TRUE(StringBuffer("opt: zatca, x").containsSubstringNoCase("ZATCA"));
  EXPECT_FALSE(StringBuffer("MyInvoi").containsSubstringNoCase("MYINVOIS"));
  EXPECT_FALSE(StringBuffer("AllowXmlDigestError").containsSubstring("allowxmldigesterror"));
  EXPECT_FALSE(StringBuffer("bc").endsWith("abc"));
  EXPECT_TRUE(StringBuffer("0A1f").isHexidecimal());
  for (const char* notHex : {"AB+/", "", "0A 1f"}) EXPECT_FALSE(StringBuffer(notHex).isHexidecimal()) << notHex;

  StringBuffer e("a\r\nb\rc\nd");
  e.toLF();
  EXPECT_EQ(e.str(), "a\nb\nc\nd");
  e.setString(" \t\r\n <a  b\t\n c> \n");
  e.trim2();
  EXPECT_EQ(e.str(), "<a  b\t\n c>");
  e.trimInsideSpaces();
  EXPECT_EQ(e.str(), "<a b c>");
  e.setString("<Invoice\txmlns=\"x\"\r\n  b=\"1\">");
  e.replaceChar5("\r\n\t\t\t", ' ');
  EXPECT_EQ(e.str(), "<Invoice xmlns=\"x\"    b=\"1\">");
  e.setString("AbC-xYz");
  e.toLowerCase();
  e.removeCharOccurances('-');
  e.removeChunk(1, 2);
  EXPECT_TRUE(e.insertAt(std::string_view("BC"), 1));
  EXPECT_FALSE(e.insertAt(std::string_view("!"), 99));
  e.shorten(2);
  EXPECT_EQ(e.str(), "aBCx");
  e.shorten(99);
  EXPECT_STREQ(e.getString(), "");
  EXPECT_TRUE(e.append3("<", "y", ">") && e.append(-42));
  e.append(e);  // appending itself doubles the text
  EXPECT_EQ(e.str(), "<y>-42<y>-42");
}

TEST(XString, DecimalSerialToHex) {
  const struct {
    const char *decimal, *hex;
  } cases[] = {{"0", "00"},
               {"256", "0100"},
               {"4294967296", "0100000000"},  // 2^32: carries into a new limb
               {"18446744073709551615", "FFFFFFFFFFFFFFFF"},
               {" 1000000000000000000000 \n", "3635C9ADC5DEA00000"},
               // A 39-digit serial of the size certificate authorities issue (2^127 + 1).
               {"170141183460469231731687303715884105729", "80000000000000000000000000000001"}};
  for (const auto& c : cases) {
    XString x(c.decimal);
    EXPECT_TRUE(x.reencode("decimal", "hex")) << c.decimal;
    EXPECT_STREQ(x.getUtf8(), c.hex);
  }
  XString bad("12a4");
  EXPECT_FALSE(bad.reencode("decimal", "hex"));
  EXPECT_STREQ(bad.getUtf8(), "12a4");
  XString empty("");
  EXPECT_FALSE(empty.reencode("decimal", "hex"));
  XString other("12");
  EXPECT_FALSE(other.reencode("hex", "base64"));
}

TEST(XString, Windows1252RepairCharsetsAndSecrets) {
  _btLogger log;
  XString ok("caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_FALSE(ok.checkFixUtf8Windows1252(log));
  EXPECT_STREQ(ok.getUtf8(), "caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_TRUE(log.entries().empty());
  // Invalid bytes are read as Windows-1252; the valid UTF-8 around them is kept.
  XString mixed("caf\xE9 \x80 \xC3\xB1 \x81 \xED\xA0\x80");
  EXPECT_TRUE(mixed.checkFixUtf8Windows1252(log));
  EXPECT_STREQ(mixed.getUtf8(), "caf\xC3\xA9 \xE2\x82\xAC \xC3\xB1 \xC2\x81 \xC3\xAD\xC2\xA0\xE2\x82\xAC");
  EXPECT_TRUE(log.containsText("Text was not valid UTF-8; its invalid bytes were read as Windows-1252."));

  const XString text("\xC3\xA9\xE2\x82\xAC");  // e-acute, euro sign
  const struct {
    const char* charset;
    bool ok;
    std::string bytes;
  } cases[] = {{"utf-16le", true, std::string("\xE9\0\xAC\x20", 4)},
               {"Windows-1252", true, "\xE9\x80"},
               {"latin1", false, "\xE9"},                           // no euro sign in ISO-8859-1
               {"no-such-charset", true, "\xC3\xA9\xE2\x82\xAC"}};  // unknown names keep UTF-8
  for (const auto& c : cases) {
    _btCharset cs;
    EXPECT_EQ(cs.setByName(c.charset), std::string(c.charset) != "no-such-charset");
    DataBuffer out;
    EXPECT_EQ(text.getConverted(cs, out), c.ok) << c.charset;
    EXPECT_EQ(bytesOf(out), c.bytes) << c.charset;
  }
  std::string out;
  size_t at = 0;
  EXPECT_FALSE(convertCharsetAt("UTF-8", "ISO-8859-1", "ab\xC3\xA9\xFF", 5, out, at));
  EXPECT_EQ(at, 4u);
  EXPECT_EQ(out, "ab\xE9");

  XString secret("hmac-key");
  secret.setSecureX(true);
  XString copy(secret);
  EXPECT_TRUE(copy.isSecure());
  secret.clear();
  EXPECT_STREQ(copy.getUtf8(), "hmac-key");
  XString self("abcdef");
  self.setFromUtf8(self.getUtf8() + 2);  // from its own storage
  self.getUtf8Sb_rw().append("!");
  EXPECT_STREQ(self.getUtf8(), "cdef!");
}
