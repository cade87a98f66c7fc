// DataBuffer, base64/hex coding, the conversion of XML bytes to UTF-8, files, and the
// public byte/text value objects.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "TestSupport.h"
#include "support/ClsBinData.h"
#include "support/ClsStringArray.h"
#include "support/ClsStringBuilder.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/FileSys.h"
#include "support/LogBase.h"
#include "support/Psdk.h"
#include "support/StringBuffer.h"

namespace {

std::string bytesOf(const DataBuffer& db) { return std::string(db.view()); }

DataBuffer dbOf(const std::string& s) { return DataBuffer(s.data(), s.size()); }

}  // namespace

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

TEST(Coding, Base64DecodingIsLenientOnlyAboutLayout) {
  DataBuffer d;
  ASSERT_TRUE(d.appendEncoded(" Zm9v\r\n YmFy\n\tZg\r\n", "base64"));  // folded, padding missing
  EXPECT_EQ(bytesOf(d), "foobarf");

  d.clear();
  ASSERT_TRUE(d.appendEncoded("Zm8 =", "base64"));
  EXPECT_EQ(bytesOf(d), "fo");

  // An invalid byte fails; complete groups before it stay appended.
  d.clear();
  EXPECT_FALSE(d.appendEncoded("Zm9vYmFy*Zg==", "base64"));
  EXPECT_EQ(bytesOf(d), "foobar");

  const char* bad[] = {"Zm9v-_", "=Zm9v", "Zg===", "Zm9vY", "Zg==Zg==", "Z=g="};
  for (const char* b : bad) {
    DataBuffer x;
    EXPECT_FALSE(x.appendEncoded(b, "base64")) << b;
  }

  // Every byte value survives a round trip.
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  StringBuffer e;
  dbOf(all).encodeDB("base64", e);
  DataBuffer back;
  ASSERT_TRUE(ContentCoding::decodeBase64ToDb(e.getString(), e.getSize(), back));
  EXPECT_EQ(bytesOf(back), all);
}

TEST(Coding, HexDecoding) {
  DataBuffer d;
  ASSERT_TRUE(d.appendEncoded("ab 01\nFF", "hex"));
  EXPECT_EQ(bytesOf(d), std::string("\xAB\x01\xFF", 3));
  DataBuffer odd;
  EXPECT_FALSE(odd.appendEncoded("abc", "hex"));
  DataBuffer nonHex;
  EXPECT_FALSE(nonHex.appendEncoded("0g", "hex"));
  EXPECT_FALSE(nonHex.appendEncoded("00", "uuencode"));

  DataBuffer secret("key", 3);
  secret.secureClear();
  EXPECT_TRUE(secret.isEmpty());
  EXPECT_NE(secret.getData2(), nullptr);
}

TEST(XmlToUtf8, ByteOrderMarksAndWideText) {
  _btLogger log;
  DataBuffer bom = dbOf("\xEF\xBB\xBF<a>\xC3\xA9</a>");
  ASSERT_TRUE(bom.convertXmlToUtf8(log));
  EXPECT_EQ(bytesOf(bom), "<a>\xC3\xA9</a>");

  // UTF-16LE with a BOM; the declaration is kept as it stands.
  const std::string le16("\xFF\xFE<\0?\0x\0m\0l\0 \0e\0n\0c\0o\0d\0i\0n\0g\0=\0\"\0U\0T\0F\0-\0\x31\0\x36\0\"\0?\0>\0"
                         "<\0a\0>\0\xE9\0\xAC\x20<\0/\0a\0>\0", 70);
  DataBuffer le = dbOf(le16);
  ASSERT_TRUE(le.convertXmlToUtf8(log));
  EXPECT_EQ(bytesOf(le), "<?xml encoding=\"UTF-16\"?><a>\xC3\xA9\xE2\x82\xAC</a>");

  // UTF-16BE without a BOM, found from the zero bytes of "<?".
  DataBuffer be = dbOf(std::string("\0<\0?\0x\0m\0l\0?\0>\0<\0b\0/\0>", 22));
  ASSERT_TRUE(be.convertXmlToUtf8(log));
  EXPECT_EQ(bytesOf(be), "<?xml?><b/>");

  // An unpaired surrogate is not UTF-16.
  DataBuffer broken = dbOf(std::string("\xFF\xFE<\0\x00\xD8>\0", 8));
  EXPECT_FALSE(broken.convertXmlToUtf8(log));
  EXPECT_EQ(log.lastErrorLine(), "Invalid byte sequence for the detected encoding UTF-16LE at offset 4");
}

TEST(XmlToUtf8, DeclaredAndUndeclaredEightBitEncodings) {
  _btLogger log;
  DataBuffer latin = dbOf("<?xml version='1.0' encoding='ISO-8859-1'?><a>Mu\xF1oz</a>");
  ASSERT_TRUE(latin.convertXmlToUtf8(log));
  EXPECT_EQ(bytesOf(latin), "<?xml version='1.0' encoding='ISO-8859-1'?><a>Mu\xC3\xB1oz</a>");

  DataBuffer cp = dbOf("<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>\x80 \x93q\x94</a>");
  ASSERT_TRUE(cp.convertXmlToUtf8(log));
  EXPECT_EQ(bytesOf(cp), "<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>\xE2\x82\xAC \xE2\x80\x9Cq\xE2\x80\x9D</a>");

  const std::string badUtf8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>caf\xE9</a>";
  DataBuffer declared = dbOf(badUtf8);
  EXPECT_FALSE(declared.convertXmlToUtf8(log));
  EXPECT_EQ(log.lastErrorLine(), "Invalid byte sequence for the declared encoding UTF-8 at offset 44");
  EXPECT_EQ(bytesOf(declared), badUtf8);  // left as it was

  DataBuffer ascii = dbOf("<?xml version=\"1.0\" encoding=\"US-ASCII\"?><a>\xE9</a>");
  EXPECT_FALSE(ascii.convertXmlToUtf8(log));
  EXPECT_EQ(log.lastErrorLine(), "Invalid byte sequence for the declared encoding US-ASCII at offset 44");

  _btLogger log2;
  DataBuffer undeclared = dbOf("<a>caf\xE9 \xC3\xA9</a>");  // ANSI text with one real UTF-8 character
  ASSERT_TRUE(undeclared.convertXmlToUtf8(log2));
  EXPECT_EQ(bytesOf(undeclared), "<a>caf\xC3\xA9 \xC3\xA9</a>");
  EXPECT_TRUE(log2.containsText(
      "No encoding declared and the bytes are not valid UTF-8; converting them from Windows-1252."));

  DataBuffer plain = dbOf("<a>\xE2\x82\xAC</a>");
  ASSERT_TRUE(plain.convertXmlToUtf8(log2));
  EXPECT_EQ(bytesOf(plain), "<a>\xE2\x82\xAC</a>");
}

TEST(XmlToUtf8, CorpusWindows1252Document) {
  REQUIRE_CORPUS();
  const std::string path =
      testsupport::corpusDir() + "/families/sii/sii-cordada-dte-60910000-1-33-2336600/DTE--60910000-1--33--2336600.xml";
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

// ---------------------------------------------------------------- files and public value objects


TEST(Files, PathsExistenceAndStreaming) {
  StringBuffer p;
  _btFilePath::CombineDirAndFilepath("/data/refs/", "doc.xml", p);
  EXPECT_EQ(p.str(), "/data/refs/doc.xml");
  _btFilePath::CombineDirAndFilepath("refs", "/doc.xml", p);
  EXPECT_EQ(p.str(), "refs/doc.xml");
  _btFilePath::CombineDirAndFilepath("/", "doc.xml", p);
  EXPECT_EQ(p.str(), "/doc.xml");
  _btFilePath::CombineDirAndFilepath("", "doc.xml", p);
  EXPECT_EQ(p.str(), "doc.xml");

  const std::string dir = testsupport::makeTempDir("filesys");
  std::string content;
  for (int i = 0; i < 70000; ++i) content += static_cast<char>(i * 7 + i / 256);
  const std::string file = dir + "/data.bin";
  ASSERT_TRUE(testsupport::writeFile(file, content));

  bool failed = true;
  EXPECT_TRUE(FileSys::fileExistsX(file.c_str(), failed, nullptr));
  EXPECT_FALSE(failed);
  EXPECT_FALSE(FileSys::fileExistsX(dir.c_str(), failed, nullptr));  // a directory is not a file
  EXPECT_FALSE(FileSys::fileExistsX((dir + "/missing").c_str(), failed, nullptr));
  EXPECT_FALSE(failed);

  _btLogger log;
  _btFileDataSource src;
  ASSERT_TRUE(src.openDataSourceFile(file.c_str(), log));
  std::string streamed;
  char buf[4096];
  size_t got = 0;
  while (src.readChunk(buf, sizeof buf, got) && got > 0) streamed.append(buf, got);
  EXPECT_TRUE(src.endOfFile());
  EXPECT_FALSE(src.readError());
  EXPECT_EQ(streamed, content);

  EXPECT_FALSE(src.openDataSourceFile((dir + "/missing").c_str(), log));
  EXPECT_EQ(log.lastErrorLine(), "Failed to open file.");
  EXPECT_FALSE(src.readChunk(buf, sizeof buf, got));
  EXPECT_FALSE(src.openDataSourceFile(dir.c_str(), log));

  DataBuffer whole;
  ASSERT_TRUE(FileSys::readFileToDb(file.c_str(), whole, nullptr));
  EXPECT_EQ(std::string(whole.view()), content);
  std::filesystem::remove_all(dir);
}

TEST(Files, PublicValueObjects) {
  const std::string dir = testsupport::makeTempDir("clsvalues");
  const std::string latin = dir + "/latin.txt";
  ASSERT_TRUE(testsupport::writeFile(latin, "Mu\xF1oz"));

  RcPtr<ClsStringBuilder> sb(ClsStringBuilder::createNewCls());
  ASSERT_TRUE(sb);
  ASSERT_TRUE(sb->LoadFile(latin.c_str(), "iso-8859-1"));
  EXPECT_STREQ(sb->getUtf8(), "Mu\xC3\xB1oz");
  _btLogger log;
  EXPECT_FALSE(sb->LoadFile(latin.c_str(), "utf-8", &log));  // 0xF1 'o' is not UTF-8
  EXPECT_STREQ(sb->getUtf8(), "Mu\xC3\xB1oz");            // unchanged on failure
  EXPECT_EQ(log.lastErrorLine(), "The file is not valid in the charset.");

  const std::string wide = dir + "/wide.txt";
  ASSERT_TRUE(sb->Append(" \xE2\x82\xAC"));
  ASSERT_TRUE(sb->WriteFile(wide.c_str(), "utf-16le"));
  EXPECT_EQ(testsupport::readFile(wide), std::string("M\0u\0\xF1\0o\0z\0 \0\xAC\x20", 14));
  EXPECT_FALSE(sb->WriteFile(wide.c_str(), "iso-8859-1"));  // no euro sign there
  RcPtr<ClsStringBuilder> back(ClsStringBuilder::createNewCls());
  ASSERT_TRUE(back->LoadFile(wide.c_str(), "utf-16"));
  EXPECT_STREQ(back->getUtf8(), sb->getUtf8());

  RcPtr<ClsBinData> bd(ClsBinData::createNewCls());
  ASSERT_TRUE(bd->LoadFile(latin.c_str()));
  XString enc;
  ASSERT_TRUE(bd->GetEncoded("hex_lower", enc));
  EXPECT_STREQ(enc.getUtf8(), "4d75f16f7a");
  ASSERT_TRUE(bd->AppendEncoded("AAE=", "base64"));
  EXPECT_EQ(bd->getSize(), 7u);
  EXPECT_FALSE(bd->LoadFile((dir + "/missing").c_str()));
  EXPECT_EQ(bd->getSize(), 7u);

  RcPtr<ClsStringArray> arr(ClsStringArray::createNewCls());
  ASSERT_TRUE(arr->appendUtf8("MIIB"));
  ASSERT_TRUE(arr->appendUtf8(nullptr));
  EXPECT_EQ(arr->get_Count(), 2);
  EXPECT_STREQ(arr->getStringUtf8(0), "MIIB");
  EXPECT_STREQ(arr->getStringUtf8(1), "");
  EXPECT_EQ(arr->getStringUtf8(2), nullptr);
  EXPECT_EQ(arr->getStringUtf8(-1), nullptr);
  std::filesystem::remove_all(dir);
}

TEST(Platform, TickCountAndRangeFolding) {
  const uint32_t t0 = Psdk::getTickCount();
  EXPECT_LT(Psdk::getTickCount() - t0, 60000u);  // wrap-safe difference, not a wild value
  EXPECT_EQ(Psdk::toIntRange(0, 1000, 9998), 1000);
  EXPECT_EQ(Psdk::toIntRange(8998, 1000, 9998), 9998);
  EXPECT_EQ(Psdk::toIntRange(8999, 1000, 9998), 1000);
  EXPECT_EQ(Psdk::toIntRange(0xFFFFFFFFu, -5, 5), -2);  // 4294967295 mod 11 is 3
  EXPECT_EQ(Psdk::toIntRange(123, 7, 7), 7);
}
