// StringBuffer: the edits, searches and splits that the transforms and document
// adjustments rely on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/ExtPtrArray.h"
#include "support/StringBuffer.h"

namespace {

std::vector<std::string> pieces(const ExtPtrArraySb& a) {
  std::vector<std::string> v;
  for (int i = 0; i < a.getSize(); ++i) v.emplace_back(a.strAt(i));
  return v;
}

}  // namespace

TEST(StringBuffer, ReplaceAllNeverRescansReplacements) {
  StringBuffer sb("aa");
  EXPECT_EQ(sb.replaceAllOccurances("a", "aa"), 2);
  EXPECT_EQ(sb.str(), "aaaa");

  sb.setString("<a/>&#13;\n<b/>&#13;");
  EXPECT_EQ(sb.replaceAllOccurances("&#13;", ""), 2);
  EXPECT_EQ(sb.str(), "<a/>\n<b/>");

  sb.setString("aaa");  // non-overlapping, left to right
  EXPECT_EQ(sb.replaceAllOccurances("aa", "b"), 1);
  EXPECT_EQ(sb.str(), "ba");

  sb.setString("xyz");
  EXPECT_EQ(sb.replaceAllOccurances("q", "r"), 0);
  EXPECT_EQ(sb.str(), "xyz");

  sb.setString("one ONE one");
  EXPECT_TRUE(sb.replaceFirstOccurance("one", "1", false));
  EXPECT_EQ(sb.str(), "1 ONE one");
  EXPECT_FALSE(sb.replaceFirstOccurance("two", "2", false));
}

TEST(StringBuffer, SplitAndTokenize) {
  ExtPtrArraySb out;
  ASSERT_TRUE(StringBuffer("a;;b ; ").split(out, ';', true, true));
  EXPECT_EQ(pieces(out), (std::vector<std::string>{"a", "b"}));

  ExtPtrArraySb raw;
  ASSERT_TRUE(StringBuffer("a;;b ").split(raw, ';', false, false));
  EXPECT_EQ(pieces(raw), (std::vector<std::string>{"a", "", "b "}));

  ExtPtrArraySb dirs;
  ASSERT_TRUE(StringBuffer("  /tmp/a ;\t/tmp/b\r\n").split(dirs, ';', true, true));
  EXPECT_EQ(pieces(dirs), (std::vector<std::string>{"/tmp/a", "/tmp/b"}));

  ExtPtrArraySb tok;
  ASSERT_TRUE(StringBuffer("a::b[c]").tokenize(tok, ":[]"));
  EXPECT_EQ(pieces(tok), (std::vector<std::string>{"a", ":", ":", "b", "[", "c", "]"}));

  ExtPtrArraySb xp;
  ASSERT_TRUE(StringBuffer("ancestor-or-self::*[@Id='x']").tokenize(xp, ":[=]"));
  EXPECT_EQ(pieces(xp), (std::vector<std::string>{"ancestor-or-self", ":", ":", "*", "[", "@Id", "=", "'x'", "]"}));
  EXPECT_STREQ(xp.strAt(99), "");
}

TEST(StringBuffer, WildcardMatch) {
  const StringBuffer v("http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-x509-token-profile-1.0#X509v3");
  EXPECT_TRUE(v.matches("*#X509v3", true));
  EXPECT_FALSE(v.matches("*#X509v3x", true));
  EXPECT_FALSE(v.matches("*#x509V3", true));
  EXPECT_TRUE(v.matches("*#x509V3", false));
  EXPECT_TRUE(v.matches("http*wss*#*", true));
  EXPECT_TRUE(StringBuffer("").matches("*", true));
  EXPECT_TRUE(StringBuffer("").matches("", true));
  EXPECT_FALSE(StringBuffer("a").matches("", true));
  EXPECT_TRUE(StringBuffer("not(//ancestor-or-self::*[*ID='QR'])").matches("not(//ancestor-or-self::*[*ID='*'])", true));
  EXPECT_FALSE(StringBuffer("not(//ancestor-or-self::ds:Signature)").matches("not(//ancestor-or-self::*[*ID='*'])", true));

  // Many stars against a long text with no match: backtracking search would never finish.
  const StringBuffer as(std::string(2000, 'a'));
  std::string pat;
  for (int i = 0; i < 40; ++i) pat += "*a";
  EXPECT_FALSE(as.matches((pat + "*b").c_str(), true));
  EXPECT_TRUE(as.matches((pat + "*").c_str(), true));
}

TEST(StringBuffer, DelimitedSpans) {
  StringBuffer out("unchanged");
  const StringBuffer doda("<x><doda><a/></x>");
  EXPECT_FALSE(doda.getDelimited("<doda>", "</doda>", true, out));
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
  EXPECT_FALSE(inv.removeDelimitedIfContains("<cac:AdditionalDocumentReference>",
                                             "</cac:AdditionalDocumentReference>", "QR", true, true));
  EXPECT_TRUE(inv.removeDelimited("<cac:", "</cac:", true, false));  // every span
  EXPECT_EQ(inv.str(), "<Invoice>AdditionalDocumentReference>Signature></Invoice>");

  StringBuffer c("<Signature>abc</Signature>rest");
  c.chopAtSubstr("</Signature>", true);
  EXPECT_EQ(c.str(), "<Signature>abc</Signature>");
  c.removeBefore("abc", false);
  EXPECT_EQ(c.str(), "abc</Signature>");
  c.removeBefore("zzz", false);
  EXPECT_EQ(c.str(), "abc</Signature>");
}

TEST(StringBuffer, SearchAndCompare) {
  const StringBuffer sb("<ds:Signature xmlns:ds=\"x\"><ds:SignedInfo/></ds:Signature>");
  EXPECT_EQ(sb.indexOf("<ds:SignedInfo"), 27);
  EXPECT_EQ(sb.indexOf("<SignedInfo"), -1);
  EXPECT_EQ(sb.find("ds:", 5), 28u);
  EXPECT_EQ(sb.find("ds:", 1000), StringBuffer::npos);
  EXPECT_EQ(sb.rfind("<ds:"), 27u);
  EXPECT_EQ(sb.rfind("<ds:", 27), 0u);  // strictly before
  EXPECT_EQ(sb.rfind("<ds:", 0), StringBuffer::npos);
  EXPECT_EQ(sb.findChar('>', 30), 42u);
  EXPECT_STREQ(sb.findSubstr("</ds:"), "</ds:Signature>");
  EXPECT_EQ(sb.findSubstr("nope"), nullptr);
  EXPECT_STREQ(sb.pCharAt(sb.getSize()), "");
  EXPECT_EQ(sb.pCharAt(sb.getSize() + 1), nullptr);

  EXPECT_TRUE(StringBuffer("opt: zatca, x").containsSubstringNoCase("ZATCA"));
  EXPECT_TRUE(StringBuffer("MyInvois").containsSubstringNoCase("MYINVOIS"));
  EXPECT_FALSE(StringBuffer("MyInvoi").containsSubstringNoCase("MYINVOIS"));
  EXPECT_FALSE(StringBuffer("AllowXmlDigestError").containsSubstring("allowxmldigesterror"));
  EXPECT_TRUE(StringBuffer("abc").beginsWith("ab"));
  EXPECT_TRUE(StringBuffer("abc").endsWith("bc"));
  EXPECT_FALSE(StringBuffer("bc").endsWith("abc"));

  EXPECT_TRUE(StringBuffer("0A1f").isHexidecimal());
  EXPECT_FALSE(StringBuffer("AB+/").isHexidecimal());
  EXPECT_FALSE(StringBuffer("").isHexidecimal());
  EXPECT_FALSE(StringBuffer("0A 1f").isHexidecimal());
}

TEST(StringBuffer, InPlaceEdits) {
  StringBuffer sb("a\r\nb\rc\nd");
  sb.toLF();
  EXPECT_EQ(sb.str(), "a\nb\nc\nd");
  sb.setString("a\r\nb\nc\r");
  sb.toCRLF();
  EXPECT_EQ(sb.str(), "a\r\nb\r\nc\r\n");

  sb.setString(" \t\r\n <a  b\t\n c> \n");
  sb.trim2();
  EXPECT_EQ(sb.str(), "<a  b\t\n c>");
  sb.trimInsideSpaces();
  EXPECT_EQ(sb.str(), "<a b c>");

  sb.setString("<Invoice\txmlns=\"x\"\r\n  b=\"1\">");
  sb.replaceChar5("\r\n\t\t\t", ' ');
  EXPECT_EQ(sb.str(), "<Invoice xmlns=\"x\"    b=\"1\">");

  sb.setString("AbC-xYz");
  sb.toLowerCase();
  EXPECT_EQ(sb.str(), "abc-xyz");
  sb.removeCharOccurances('-');
  EXPECT_EQ(sb.str(), "abcxyz");
  sb.removeChunk(1, 2);
  EXPECT_EQ(sb.str(), "axyz");
  EXPECT_TRUE(sb.insertAt(std::string_view("BC"), 1));
  EXPECT_FALSE(sb.insertAt(std::string_view("!"), 99));
  EXPECT_EQ(sb.str(), "aBCxyz");
  sb.shorten(2);
  EXPECT_EQ(sb.str(), "aBCx");
  sb.shorten(99);
  EXPECT_TRUE(sb.isEmpty());
  EXPECT_STREQ(sb.getString(), "");

  sb.setString("x");
  EXPECT_TRUE(sb.append(-42));
  EXPECT_TRUE(sb.append3("<", "y", ">"));
  EXPECT_TRUE(sb.prepend("["));
  EXPECT_TRUE(sb.appendN("]]]", 1));
  EXPECT_EQ(sb.str(), "[x-42<y>]");
  sb.append(sb);  // appending itself doubles the text
  EXPECT_EQ(sb.str(), "[x-42<y>][x-42<y>]");
}
