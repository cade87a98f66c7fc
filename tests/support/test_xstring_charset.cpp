// XString: serial-number re-encoding, charset conversion and the Windows-1252 repair.
#include <gtest/gtest.h>

#include <string>

#include "support/Charset.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace {

std::string hexOf(const char* decimal) {
  XString x(decimal);
  if (!x.reencode("decimal", "hex")) return "<fail>";
  return x.getUtf8();
}

}  // namespace

TEST(XString, DecimalSerialToHex) {
  EXPECT_EQ(hexOf("255"), "FF");
  EXPECT_EQ(hexOf("4096"), "1000");
  EXPECT_EQ(hexOf("0"), "00");
  EXPECT_EQ(hexOf("000"), "00");
  EXPECT_EQ(hexOf("256"), "0100");
  EXPECT_EQ(hexOf("4294967296"), "0100000000");  // 2^32: carries into a new limb
  EXPECT_EQ(hexOf("18446744073709551615"), "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(hexOf(" 1000000000000000000000 \n"), "3635C9ADC5DEA00000");
  // A 39-digit serial of the size certificate authorities issue (2^127 + 1).
  EXPECT_EQ(hexOf("170141183460469231731687303715884105729"), "80000000000000000000000000000001");

  XString bad("12a4");
  EXPECT_FALSE(bad.reencode("decimal", "hex"));
  EXPECT_STREQ(bad.getUtf8(), "12a4");
  XString empty("");
  EXPECT_FALSE(empty.reencode("decimal", "hex"));
  XString other("12");
  EXPECT_FALSE(other.reencode("hex", "base64"));
}

TEST(XString, Windows1252Repair) {
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
}

TEST(XString, CharsetConversion) {
  _btCharset cs;
  EXPECT_EQ(cs.name(), "UTF-8");
  const XString text("\xC3\xA9\xE2\x82\xAC");  // e-acute, euro sign

  ASSERT_TRUE(cs.setByName("utf-16le"));
  DataBuffer le;
  ASSERT_TRUE(text.getConverted(cs, le));
  EXPECT_EQ(std::string(le.view()), std::string("\xE9\0\xAC\x20", 4));

  ASSERT_TRUE(cs.setByName("Windows-1252"));
  DataBuffer w;
  ASSERT_TRUE(text.getConverted(cs, w));
  EXPECT_EQ(std::string(w.view()), "\xE9\x80");

  ASSERT_TRUE(cs.setByName("latin1"));
  DataBuffer l1;
  EXPECT_FALSE(text.getConverted(cs, l1));  // no euro sign in ISO-8859-1
  EXPECT_EQ(std::string(l1.view()), "\xE9");

  EXPECT_FALSE(cs.setByName("no-such-charset"));
  EXPECT_EQ(cs.name(), "UTF-8");
  DataBuffer same;
  ASSERT_TRUE(text.getConverted(cs, same));
  EXPECT_EQ(std::string(same.view()), "\xC3\xA9\xE2\x82\xAC");

  std::string out;
  size_t at = 0;
  EXPECT_FALSE(convertCharsetAt("UTF-8", "ISO-8859-1", "ab\xC3\xA9\xFF", 5, out, at));
  EXPECT_EQ(at, 4u);
  EXPECT_EQ(out, "ab\xE9");
}

TEST(XString, CopiesAndSecrets) {
  XString secret("hmac-key");
  secret.setSecureX(true);
  XString copy(secret);
  EXPECT_TRUE(copy.isSecure());
  EXPECT_STREQ(copy.getUtf8(), "hmac-key");
  XString plain("p");
  plain = secret;
  EXPECT_TRUE(plain.isSecure());
  secret.clear();
  EXPECT_TRUE(secret.isEmpty());
  EXPECT_STREQ(copy.getUtf8(), "hmac-key");

  XString self("abcdef");
  self.setFromUtf8(self.getUtf8() + 2);  // from its own storage
  EXPECT_STREQ(self.getUtf8(), "cdef");
  self.getUtf8Sb_rw().append("!");
  EXPECT_STREQ(self.getUtf8(), "cdef!");
}
