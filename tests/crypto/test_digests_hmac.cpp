// Hash, HMAC and decoding primitives: the known answers of data/primitives.txt, the
// streaming forms against the one-shot digest, identifiers that are refused, the HMAC-MD2
// construction and decoding into a buffer that has content.
#include <algorithm>
#include <string>

#include "CryptoFixtures.h"
#include "VectorFile.h"
#include "crypto/Hmac.h"
#include "crypto/Ripemd.h"
#include "crypto/_btHash.h"
#include "crypto/_clsEncode.h"
#include "support/FileSys.h"
#include "support/XString.h"

using cryptofixtures::hex;

namespace {

std::string digest(int hashId, const std::string& data) {
  DataBuffer out;
  if (!_btHash::doHash(data.data(), data.size(), hashId, out)) return "<failed>";
  return hex(out);
}

std::string hmac(int hashId, const std::string& key, const std::string& data) {
  DataBuffer out;
  LogNull log;
  if (!Hmac::doHMAC(data.data(), data.size(), key.data(), key.size(), hashId, out, log)) return "<failed>";
  return hex(out);
}

// The decoded bytes in hex, or "error: <last error>".
std::string decode(const char* mode, const std::string& text) {
  _clsEncode enc;
  enc.put_EncodingMode(mode);
  DataBuffer out;
  _btLogger log;
  if (!enc.decodeBinary(XString(text.c_str()), out, false, log)) return "error: " + log.lastErrorLine();
  return hex(out);
}

}  // namespace

TEST(Primitives, KnownAnswersOfTheVectorFile) {
  const auto cases = vectors::read(testsupport::sourceDir() + "/tests/crypto/data/primitives.txt",
                                   {"hash", "ripemd160", "hmac", "decode", "data", "key-hex", "expect"});
  ASSERT_GT(cases.size(), 60u);
  for (const vectors::Case& c : cases) {
    SCOPED_TRACE(c.where());
    std::string data = vectors::unescaped(c.get("data"));
    const size_t star = data.rfind('*');
    if (star != std::string::npos && star + 1 < data.size() &&
        data.find_first_not_of("0123456789", star + 1) == std::string::npos) {
      const std::string unit = data.substr(0, star);
      data.clear();
      for (long n = std::stol(c.get("data").substr(c.get("data").rfind('*') + 1)); n > 0; --n) data += unit;
    }
    std::string got;
    if (c.has("hash")) {
      got = digest(std::stoi(c.get("hash")), data);
    } else if (c.has("ripemd160")) {
      RipemdEngine engine(160);
      unsigned char out[20];
      engine.update(data.data(), data.size());
      engine.finish(out);
      got = hex(DataBuffer(out, sizeof(out)));
    } else if (c.has("hmac")) {
      got = hmac(std::stoi(c.get("hmac")), supporttest::bytesOf(cryptofixtures::fromHex(c.get("key-hex"))), data);
    } else {
      got = decode(c.get("decode").c_str(), data);
    }
    EXPECT_EQ(got, c.get("expect"));
  }
}

TEST(Digests, UnknownIdentifiersAreRefused) {
  for (int id : {0, 6, 8, 16, -1}) {
    DataBuffer out("x", 1);
    EXPECT_FALSE(_btHash::doHash("abc", 3, id, out)) << id;
    EXPECT_TRUE(out.isEmpty()) << id;
  }
  _btLogger log;
  DataBuffer out;
  EXPECT_FALSE(Hmac::doHMAC("abc", 3, "k", 1, 0, out, log));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_EQ(log.lastErrorLine(), "Unsupported HMAC hash algorithm.");
}

// Data fed in uneven pieces, through the incremental hasher, the chunk reader and a
// file data source, gives the one-shot digest for every identifier.
TEST(Digests, StreamingFormsMatchOneShot) {
  std::string data;
  for (int i = 0; i < 70000; ++i) data += static_cast<char>((i * 7 + 3) & 0xff);  // more than one read
  const std::string filePath = testsupport::makeTempDir("hashfile") + "/data.bin";
  ASSERT_TRUE(testsupport::writeFile(filePath, data));
  LogNull log;
  for (int id : {1, 2, 3, 4, 5, 7, 9, 10}) {
    const std::string expected = digest(id, data);
    _btIncrementalHash hasher;
    ASSERT_TRUE(hasher.begin(id, log));
    size_t pos = 0;
    for (size_t step = 1; pos < data.size(); step = step * 3 + 1) {
      const size_t n = std::min(step, data.size() - pos);
      ASSERT_TRUE(hasher.update(data.data() + pos, n));
      pos += n;
    }
    DataBuffer out;
    ASSERT_TRUE(hasher.finish(out));
    EXPECT_EQ(hex(out), expected) << id;
    _btFileDataSource source;
    ASSERT_TRUE(source.openDataSourceFile(filePath.c_str(), log));
    ASSERT_TRUE(_btHash::hashDataSource(source, id, out, log));
    EXPECT_EQ(hex(out), expected) << id;
  }
  _btLogger errLog;
  size_t calls = 0;
  DataBuffer out;
  auto failingSecondRead = [&calls](unsigned char*, size_t max, size_t& got) {
    got = std::min<size_t>(max, 10);
    return ++calls < 2;
  };
  EXPECT_FALSE(_btHash::hashChunks(failingSecondRead, 7, out, errLog));
  EXPECT_TRUE(errLog.containsText("Failed to read data to hash."));
}

// No published HMAC-MD2 vectors exist; check the RFC 2104 construction with MD2's
// 16-byte block, including a key longer than a block (hashed first).
TEST(Hmac, Md2FollowsTheRfc2104Construction) {
  auto expected = [](std::string key, const std::string& data) {
    if (key.size() > 16) key = supporttest::bytesOf(cryptofixtures::fromHex(digest(4, key)));
    key.resize(16, '\0');
    std::string ipad = key, opad = key;
    for (size_t i = 0; i < 16; ++i) ipad[i] ^= 0x36, opad[i] ^= 0x5c;
    return digest(4, opad + supporttest::bytesOf(cryptofixtures::fromHex(digest(4, ipad + data))));
  };
  for (const std::string& key : {std::string("Jefe"), std::string(40, '\xaa'), std::string()})
    EXPECT_EQ(hmac(4, key, "what do ya want for nothing?"), expected(key, "what do ya want for nothing?"));
}

// With `append` the output grows; without it, it is replaced, and a failure leaves it empty.
TEST(ClsEncode, AppendOrReplace) {
  _clsEncode enc;
  enc.put_EncodingMode("hex");
  DataBuffer out("old", 3);
  LogNull log;
  EXPECT_TRUE(enc.decodeBinary(XString("41"), out, true, log));
  EXPECT_EQ(supporttest::bytesOf(out), "oldA");
  EXPECT_FALSE(enc.decodeBinary(XString("4"), out, false, log));
  EXPECT_TRUE(out.isEmpty());
}
