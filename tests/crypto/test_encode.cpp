// Decoding text in a named encoding, as an HMAC key or other binary value is given.
#include <gtest/gtest.h>

#include <string>

#include "crypto/_clsEncode.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace {

// The decoded bytes, or "<failed: last error>".
std::string decode(const char* mode, const std::string& text) {
  _clsEncode enc;
  enc.put_EncodingMode(mode);
  DataBuffer out;
  _btLogger log;
  if (!enc.decodeBinary(XString(text.c_str()), out, false, log)) return "<failed: " + log.lastErrorLine() + ">";
  return std::string(reinterpret_cast<const char*>(out.getData2()), out.getSize());
}

TEST(ClsEncode, DecodesEveryMode) {
  EXPECT_EQ(decode("base64", "c2Vj\r\ncmV0"), "secret");
  EXPECT_EQ(decode("Base64", "c2VjcmV0IQ=="), "secret!");
  EXPECT_EQ(decode("base64url", "-_8"), "\xfb\xff");
  EXPECT_EQ(decode("hex", "0a FF"), "\x0a\xff");
  EXPECT_EQ(decode("hexidecimal", "7365"), "se");
  EXPECT_EQ(decode("url", "a%20b+c%2F"), "a b c/");
  EXPECT_EQ(decode("quoted-printable", "caf=C3=A9 =\r\nau lait"), "caf\xc3\xa9 au lait");
  EXPECT_EQ(decode("utf-8", "caf\xc3\xa9"), "caf\xc3\xa9");
  EXPECT_EQ(decode("utf8", "key"), "key");
  EXPECT_EQ(decode("ascii", "key"), "key");
  EXPECT_EQ(decode("us-ascii", "key"), "key");
  EXPECT_EQ(decode("ansi", "caf\xc3\xa9"), "caf\xe9");
  EXPECT_EQ(decode("iso-8859-1", "\xc3\xa9"), "\xe9");
  EXPECT_EQ(decode("utf-16le", "A"), std::string("A\0", 2));
}

TEST(ClsEncode, InvalidTextAndUnknownModesFail) {
  const std::string invalid = "<failed: The text is not valid in the encoding.>";
  EXPECT_EQ(decode("base64", "not*base64"), invalid);
  EXPECT_EQ(decode("base64url", "ab+/"), invalid);
  EXPECT_EQ(decode("hex", "abc"), invalid);
  EXPECT_EQ(decode("hex", "zz"), invalid);
  EXPECT_EQ(decode("url", "100%"), invalid);
  EXPECT_EQ(decode("quoted-printable", "=G1"), invalid);
  EXPECT_EQ(decode("ascii", "caf\xc3\xa9"), invalid);
  EXPECT_EQ(decode("rot13", "abc"), "<failed: Unsupported encoding mode.>");
  EXPECT_EQ(decode("", "abc"), "<failed: Unsupported encoding mode.>");

  // Without `append` the output is replaced, and a failure leaves it empty.
  _clsEncode enc;
  enc.put_EncodingMode("hex");
  DataBuffer out;
  LogNull log;
  out.append("old", 3);
  EXPECT_TRUE(enc.decodeBinary(XString("41"), out, true, log));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.getData2()), out.getSize()), "oldA");
  EXPECT_FALSE(enc.decodeBinary(XString("4"), out, false, log));
  EXPECT_TRUE(out.isEmpty());
}

}  // namespace
