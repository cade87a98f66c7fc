// DataBuffer, base64/hex coding, the conversion of XML bytes to UTF-8, files, and the
// public byte/text value objects.
#include <string>

#include "SupportTestHelpers.h"
#include "support/ClsBinData.h"
#include "support/ClsStringArray.h"
#include "support/ClsStringBuilder.h"
#include "support/ContentCoding.h"
#include "support/FileSys.h"
#include "support/Psdk.h"

using supporttest::bytesOf;
using supporttest::dbOf;

TEST(Coding, EncodeForms) {
  const DataBuffer db("\xAB\x01", 2);
  StringBuffer out("x=");
  ASSERT_TRUE(db.encodeDB("hex_lower", out));
  EXPECT_EQ(out.str(), "x=ab01");  // appends
  out.clear();
  ASSERT_TRUE(db.encodeDB("hex", out));
  EXPECT_EQ(out.str(), "AB01");
  EXPECT_FALSE(db.encodeDB("rot13", out));

  // RFC 4648 test vectors, one line, padded.
  const char* plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
  const char* b64[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (int i = 0; i < 7; ++i) {
    StringBuffer e;
    ASSERT_TRUE(dbOf(plain[i]).encodeDB("base64", e));
    EXPECT_EQ(e.str(), b64[i]);
    DataBuffer d;
    ASSERT_TRUE(d.appendEncoded(b64[i], "base64"));
    EXPECT_EQ(bytesOf(d), plain[i]);
  }
  StringBuffer longLine;
  ASSERT_TRUE(dbOf(std::string(300, 'z')).encodeDB("base64", longLine));
  EXPECT_EQ(longLine.findChar('\n'), StringBuffer::npos);
  EXPECT_EQ(longLine.getSize(), 400u);
}

TEST(Coding, DecodingIsLenientOnlyAboutLayout) {
  const struct {
    const char *text, *encoding;
    bool ok;
    std::string bytes;
  } cases[] = {{" Zm9v\r\n YmFy\n\tZg\r\n", "base64", true, "foobarf"},  // folded, padding missing
               {"Zm8 =", "base64", true, "fo"},
               {"Zm9vYmFy*Zg==", "base64", false, "foobar"},  // complete groups before the bad byte stay
               {"ab 01\nFF", "hex", true, std::string("\xAB\x01\xFF", 3)},
               {"abc", "hex", false, "\xAB"},
               {"0g", "hex", false, ""},
               {"00", "uuencode", false, ""}};
  for (const auto& c : cases) {
    DataBuffer d;
    EXPECT_EQ(d.appendEncoded(c.text, c.encoding), c.ok) << c.text;
    EXPECT_EQ(bytesOf(d), c.bytes) << c.text;
  }
  for (const char* bad : {"Zm9v-_", "=Zm9v", "Zg===", "Zm9vY", "Zg==Zg==", "Z=g="}) {
    DataBuffer x;
    EXPECT_FALSE(x.appendEncoded(bad, "base64")) << bad;
  }
  DataBuffer secret("key", 3);
  secret.secureClear();
  EXPECT_TRUE(secret.isEmpty() && secret.getData2() != nullptr);
  // Every byte value survives a round trip.
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  StringBuffer e;
  dbOf(all).encodeDB("base64", e);
  DataBuffer back;
  ASSERT_TRUE(ContentCoding::decodeBase64ToDb(e.getString(), e.getSize(), back));
  EXPECT_EQ(bytesOf(back), all);
}

// Each case: the input bytes and the UTF-8 result, or the error line when conversion fails
// (the bytes then stay as they were); and the information line logged, if any.
TEST(XmlToUtf8, EncodingsDeclaredDetectedAndGuessed) {
  const std::string le16(
      "\xFF\xFE<\0?\0x\0m\0l\0 \0e\0n\0c\0o\0d\0i\0n\0g\0=\0\"\0U\0T\0F\0-\0\x31\0\x36\0\"\0?\0>\0"
      "<\0a\0>\0\xE9\0\xAC\x20<\0/\0a\0>\0",
      70);
  const struct {
    std::string in;
    bool ok;
    std::string out;
    const char* info;
  } cases[] = {
      {"\xEF\xBB\xBF<a>\xC3\xA9</a>", true, "<a>\xC3\xA9</a>", nullptr},
      // UTF-16LE with a BOM; the declaration is kept as it stands.
      {le16, true, "<?xml encoding=\"UTF-16\"?><a>\xC3\xA9\xE2\x82\xAC</a>", nullptr},
      // UTF-16BE without a BOM, found from the zero bytes of "<?".
      {std::string("\0<\0?\0x\0m\0l\0?\0>\0<\0b\0/\0>", 22), true, "<?xml?><b/>", nullptr},
      {std::string("\xFF\xFE<\0\x00\xD8>\0", 8), false,  // an unpaired surrogate
       "Invalid byte sequence for the detected encoding UTF-16LE at offset 4", nullptr},
      {"<?xml version='1.0' encoding='ISO-8859-1'?><a>Mu\xF1oz</a>", true,
       "<?xml version='1.0' encoding='ISO-8859-1'?><a>Mu\xC3\xB1oz</a>", nullptr},
      {"<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>\x80 \x93q\x94</a>", true,
       "<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>\xE2\x82\xAC \xE2\x80\x9Cq\xE2\x80\x9D</a>", nullptr},
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>caf\xE9</a>", false,
       "Invalid byte sequence for the declared encoding UTF-8 at offset 44", nullptr},
      {"<?xml version=\"1.0\" encoding=\"US-ASCII\"?><a>\xE9</a>", false,
       "Invalid byte sequence for the declared encoding US-ASCII at offset 44", nullptr},
      {"<a>\xE2\x82\xAC</a>", true, "<a>\xE2\x82\xAC</a>", nullptr},
      {"<a>caf\xE9 \xC3\xA9</a>", true, "<a>caf\xC3\xA9 \xC3\xA9</a>",  // ANSI with one real UTF-8 letter
       "No encoding declared and the bytes are not valid UTF-8; converting them from Windows-1252."}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.out);
    _btLogger log;
    DataBuffer db = dbOf(c.in);
    ASSERT_EQ(db.convertXmlToUtf8(log), c.ok);
    EXPECT_EQ(bytesOf(db), c.ok ? c.out : c.in);
    EXPECT_EQ(log.lastErrorLine(), c.ok ? "" : c.out);
    EXPECT_TRUE(!c.info || log.containsText(c.info));
  }
}

TEST(XmlToUtf8, CorpusWindows1252Document) {
  REQUIRE_CORPUS();
  const std::string path = testsupport::corpusDir() +
                           "/families/sii/sii-cordada-dte-60910000-1-33-2336600/DTE--60910000-1--33--2336600.xml";
  const std::string raw = testsupport::readFile(path);
  ASSERT_FALSE(raw.empty()) << path;
  DataBuffer db = dbOf(raw);
  _btLogger log;
  ASSERT_TRUE(db.convertXmlToUtf8(log)) << log.renderText();
  const std::string utf8 = bytesOf(db);
  EXPECT_NE(utf8.find("Corporaci\xC3\xB3n Educacional"), std::string::npos);
  EXPECT_NE(utf8.find("Larra\xC3\xADn Mu\xC3\xB1oz"), std::string::npos);
  EXPECT_EQ(utf8.size(), raw.size() + 4);  // four accented letters, one extra byte each
}

TEST(Files, PathsExistenceAndStreaming) {
  const struct {
    const char *dir, *file, *joined;
  } joins[] = {{"/data/refs/", "doc.xml", "/data/refs/doc.xml"},
               {"refs", "/doc.xml", "refs/doc.xml"},
               {"/", "doc.xml", "/doc.xml"},
               {"", "doc.xml", "doc.xml"}};
  for (const auto& j : joins) {
    StringBuffer p;
    _btFilePath::CombineDirAndFilepath(j.dir, j.file, p);
    EXPECT_EQ(p.str(), j.joined);
  }
  const testsupport::TempDir temp("filesys");
  const std::string& dir = temp.path;
  const std::string file = dir + "/data.bin", missing = dir + "/missing";
  std::string big;  // more than one read
  for (int i = 0; i < 70000; ++i) big += static_cast<char>(i * 7 + i / 256);
  ASSERT_TRUE(testsupport::writeFile(file, big));
  DataBuffer whole;
  ASSERT_TRUE(FileSys::readFileToDb(file.c_str(), whole, nullptr));
  EXPECT_EQ(bytesOf(whole), big);
  ASSERT_TRUE(testsupport::writeFile(file, "Mu\xF1oz"));
  bool failed = true;
  EXPECT_TRUE(FileSys::fileExistsX(file.c_str(), failed, nullptr));
  EXPECT_FALSE(failed);
  EXPECT_FALSE(FileSys::fileExistsX(dir.c_str(), failed, nullptr));  // a directory is not a file
  EXPECT_FALSE(FileSys::fileExistsX(missing.c_str(), failed, nullptr));
  // Streaming a file source is checked by hashing one (crypto tests); here its failures.
  _btLogger log;
  _btFileDataSource src;
  char buf[16];
  size_t got = 0;
  EXPECT_FALSE(src.openDataSourceFile(missing.c_str(), log));
  EXPECT_EQ(log.lastErrorLine(), "Failed to open file.");
  EXPECT_FALSE(src.readChunk(buf, sizeof buf, got));
  EXPECT_FALSE(src.openDataSourceFile(dir.c_str(), log));

  // The public value objects over the same file.
  const std::string latin = file, wide = dir + "/wide.txt";
  RcPtr<ClsStringBuilder> sb(ClsStringBuilder::createNewCls());
  ASSERT_TRUE(sb->LoadFile(latin.c_str(), "iso-8859-1"));
  EXPECT_FALSE(sb->LoadFile(latin.c_str(), "utf-8", &log));  // 0xF1 'o' is not UTF-8
  EXPECT_EQ(log.lastErrorLine(), "The file is not valid in the charset.");
  EXPECT_STREQ(sb->getUtf8(), "Mu\xC3\xB1oz");  // unchanged by the failure
  ASSERT_TRUE(sb->Append(" \xE2\x82\xAC"));
  ASSERT_TRUE(sb->WriteFile(wide.c_str(), "utf-16le"));
  EXPECT_EQ(testsupport::readFile(wide), std::string("M\0u\0\xF1\0o\0z\0 \0\xAC\x20", 14));
  EXPECT_FALSE(sb->WriteFile(wide.c_str(), "iso-8859-1"));  // no euro sign there

  RcPtr<ClsBinData> bd(ClsBinData::createNewCls());
  ASSERT_TRUE(bd->LoadFile(latin.c_str()));
  XString enc;
  ASSERT_TRUE(bd->GetEncoded("hex_lower", enc));
  EXPECT_STREQ(enc.getUtf8(), "4d75f16f7a");
  EXPECT_FALSE(bd->LoadFile(missing.c_str()));
  EXPECT_EQ(bd->getSize(), 5u);
  RcPtr<ClsStringArray> arr(ClsStringArray::createNewCls());
  ASSERT_TRUE(arr->appendUtf8("MIIB") && arr->appendUtf8(nullptr));
  EXPECT_STREQ(arr->getStringUtf8(1), "");
  EXPECT_EQ(arr->getStringUtf8(2), nullptr);
  EXPECT_EQ(arr->getStringUtf8(-1), nullptr);
}

TEST(Platform, TickCountAndRangeFolding) {
  const uint32_t t0 = Psdk::getTickCount();
  EXPECT_LT(Psdk::getTickCount() - t0, 60000u);  // wrap-safe difference, not a wild value
  EXPECT_EQ(Psdk::toIntRange(8998, 1000, 9998), 9998);
  EXPECT_EQ(Psdk::toIntRange(8999, 1000, 9998), 1000);
  EXPECT_EQ(Psdk::toIntRange(0xFFFFFFFFu, -5, 5), -2);  // 4294967295 mod 11 is 3
  EXPECT_EQ(Psdk::toIntRange(123, 7, 7), 7);
}
