// Known-answer tests for every hash identifier and its HMAC (published vectors), the
// streaming forms against the one-shot digest, and HMAC keys given in a named encoding.
#include <algorithm>
#include <string>

#include "CryptoFixtures.h"
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

// The decoded bytes, or "<failed: last error>".
std::string decode(const char* mode, const std::string& text) {
  _clsEncode enc;
  enc.put_EncodingMode(mode);
  DataBuffer out;
  _btLogger log;
  if (!enc.decodeBinary(XString(text.c_str()), out, false, log)) return "<failed: " + log.lastErrorLine() + ">";
  return supporttest::bytesOf(out);
}

const std::string kMillionA(1000000, 'a');
const std::string kAlnum = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
const std::string kDigits80 = [] {
  std::string s;
  for (int i = 0; i < 8; ++i) s += "1234567890";
  return s;
}();
const std::string kAbcdbcde = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";

}  // namespace

// FIPS 180, RFC 1321, RFC 1319 (MD2) and the RIPEMD authors' vectors.
TEST(Digests, KnownAnswersForEveryIdentifier) {
  const struct {
    int id;
    std::string data;
    const char* hex;
  } cases[] = {
      {1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {2, "abc", "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
      {3, "abc",
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd"
       "454d4423643ce80e2a9ac94fa54ca49f"},
      {5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
      {10, "abc", "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
      {7, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {11, "abc", "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
      {12, "abc", "e642824c3f8cf24ad09234ee7d3c766fc9a3a5168d0c94ad73b46fdf"},
      {13, "abc", "3a985da74fe225b2045c172d6bd390bd855f086e3e9d525b46bfe24511431532"},
      {14, "abc", "ec01498288516fc926459f58e2c6ad8df9b473cb0fc08c2596da7cf0e49be4b298d88cea927ac7f539f1edf228376d25"},
      {15, "abc",
       "b751850b1a57168a5693cd924b6b096e08f621827444f70d884f5d0240d2712e10e116e9192af3c91a7ec57647e3934057340b4cf408d5a56592f8274eec53f0"},
      {4, "", "8350e5a3e24c153df2275c9f80692773"},
      {4, "a", "32ec01ec4a6dac72c0ab96fb34c0b5d1"},
      {4, "abc", "da853b0d3f88d99b30283a69e6ded6bb"},
      {4, "message digest", "ab4f496bfb2a530b219ff33031fe06b0"},
      {4, "abcdefghijklmnopqrstuvwxyz", "4e8ddff3650292ab5a4108c3aa47940b"},
      {4, kAlnum, "da33def2a42df13975352846c30338cd"},
      {4, kDigits80, "d5976f79d83d3a0dc9806c3c66f3efd8"},
      {9, "", "cdf26213a150dc3ecb610f18f6b38b46"},
      {9, "a", "86be7afa339d0fc7cfc785e72f578d33"},
      {9, "abc", "c14a12199c66e4ba84636b0f69144c77"},
      {9, "message digest", "9e327b3d6e523062afc1132d7df9d1b8"},
      {9, "abcdefghijklmnopqrstuvwxyz", "fd2aa607f71dc8f510714922b371834e"},
      {9, kAbcdbcde, "a1aa0689d0fafa2ddc22e88b49133a06"},
      {9, kAlnum, "d1e959eb179c911faea4624c60c5c702"},
      {9, kDigits80, "3f45ef194732c2dbb2c4a2c769795fa3"},
      {9, kMillionA, "4a7f5723f954eba1216c9d8f6320431f"}};
  for (const auto& c : cases) EXPECT_EQ(digest(c.id, c.data), c.hex) << c.id << " " << c.data.substr(0, 20);

  // Our own RIPEMD-160 stands in when no OpenSSL provider has it.
  const struct {
    std::string data;
    const char* hex;
  } own160[] = {{"", "9c1185a5c5e9fc54612808977ee8f548b2258d31"},
                {"abc", "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
                {"message digest", "5d0689ef49d2fae572b881b123a85ffa21595f36"},
                {kAbcdbcde, "12a053384a9c0c88e405a06c27dcf49ada62eb2b"},
                {kMillionA, "52783243c1697bdbe16d37f97f68f08325dc1528"}};
  for (const auto& c : own160) {
    RipemdEngine engine(160);
    unsigned char out[20];
    engine.update(c.data.data(), c.data.size());
    engine.finish(out);
    EXPECT_EQ(hex(DataBuffer(out, sizeof(out))), c.hex) << c.data.substr(0, 20);
  }

  for (int id : {0, 6, 8, 16, -1}) {
    DataBuffer out("x", 1);
    EXPECT_FALSE(_btHash::doHash("abc", 3, id, out)) << id;
    EXPECT_TRUE(out.isEmpty()) << id;
  }
  const struct {
    const char* oid;
    int id;
  } oids[] = {{"1.3.14.3.2.26", 1},
              {"2.16.840.1.101.3.4.2.1", 7},
              {"2.16.840.1.101.3.4.2.2", 2},
              {"2.16.840.1.101.3.4.2.3", 3},
              {"1.2.840.113549.2.2", 4},
              {"1.2.840.113549.2.5", 5},
              {"1.3.36.3.2.2", 9},
              {"1.3.36.3.2.1", 10},
              {"2.16.840.1.101.3.4.2.4", 11},
              {"2.16.840.1.101.3.4.2.10", 15},
              {"2.16.840.1.101.3.4.2.11", 0}};  // SHAKE128: none
  for (const auto& o : oids) EXPECT_EQ(_btHash::oidToHashAlg(o.oid), o.id) << o.oid;
  EXPECT_EQ(_btHash::oidToHashAlg(nullptr), 0);
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

// RFC 2202 (MD5, SHA-1), RFC 4231 (SHA-2) and RFC 2286 (RIPEMD) vectors.
TEST(Hmac, PublishedVectors) {
  const std::string k0b16(16, '\x0b'), k0b20(20, '\x0b'), kAa80(80, '\xaa'), kAa131(131, '\xaa');
  const std::string jefe = "Jefe", wanting = "what do ya want for nothing?", hi = "Hi There";
  const std::string bigKeyText = "Test Using Larger Than Block-Size Key - Hash Key First";
  const struct {
    int id;
    const std::string &key, &data;
    const char* hex;
  } cases[] = {{5, k0b16, hi, "9294727a3638bb1c13f48ef8158bfc9d"},
               {5, jefe, wanting, "750c783e6ab0b503eaa86e310a5db738"},
               {1, k0b20, hi, "b617318655057264e28bc0b6fb378c8ef146be00"},
               {1, jefe, wanting, "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
               {1, kAa80, bigKeyText, "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
               {7, k0b20, hi, "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
               {7, jefe, wanting, "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
               {7, kAa131, bigKeyText, "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
               {2, jefe, wanting,
                "af45d2e376484031617f78d2b58a6b1b9c7ef464f5a01b47e42ec3736322445e8e2240ca5e69e2c78b3239ecfab21649"},
               {3, jefe, wanting,
                "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea2505549758bf75c05a994a6d034f65f8f0e6fd"
                "caeab1a34d4a6b4b636e070a38bce737"},
               {9, k0b16, hi, "fbf61f9492aa4bbf81c172e84e0734db"},
               {9, jefe, wanting, "875f828862b6b334b427c55f9f7ff09b"},
               {9, kAa80, bigKeyText, "dc732928de98104a1f59d373c150acbb"},
               {10, k0b20, hi, "24cb4bd67d20fc1a5d2ed7732dcc39377f0a5668"},
               {10, jefe, wanting, "dda6c0213a485a9e24f4742064a7f033b43c4069"},
               {10, kAa80, bigKeyText, "6466ca07ac5eac29e1bd523e5ada7605b791fd8b"}};
  for (const auto& c : cases) EXPECT_EQ(hmac(c.id, c.key, c.data), c.hex) << c.id << " " << c.data;
  // An empty key and empty data are legal.
  EXPECT_EQ(hmac(7, "", ""), "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
  _btLogger log;
  DataBuffer out;
  EXPECT_FALSE(Hmac::doHMAC("abc", 3, "k", 1, 0, out, log));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_EQ(log.lastErrorLine(), "Unsupported HMAC hash algorithm.");
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

TEST(ClsEncode, DecodesEveryModeAndRefusesInvalidText) {
  const std::string invalid = "<failed: The text is not valid in the encoding.>";
  const std::string unsupported = "<failed: Unsupported encoding mode.>";
  const struct {
    const char* mode;
    std::string text, bytes;
  } cases[] = {{"base64", "c2Vj\r\ncmV0", "secret"},
               {"Base64", "c2VjcmV0IQ==", "secret!"},
               {"base64url", "-_8", "\xfb\xff"},
               {"hex", "0a FF", "\x0a\xff"},
               {"hexidecimal", "7365", "se"},
               {"url", "a%20b+c%2F", "a b c/"},
               {"quoted-printable", "caf=C3=A9 =\r\nau lait", "caf\xc3\xa9 au lait"},
               {"utf-8", "caf\xc3\xa9", "caf\xc3\xa9"},
               {"us-ascii", "key", "key"},
               {"ansi", "caf\xc3\xa9", "caf\xe9"},
               {"iso-8859-1", "\xc3\xa9", "\xe9"},
               {"utf-16le", "A", std::string("A\0", 2)},
               {"base64", "not*base64", invalid},
               {"base64url", "ab+/", invalid},
               {"hex", "abc", invalid},
               {"hex", "zz", invalid},
               {"url", "100%", invalid},
               {"quoted-printable", "=G1", invalid},
               {"ascii", "caf\xc3\xa9", invalid},
               {"rot13", "abc", unsupported},
               {"", "abc", unsupported}};
  for (const auto& c : cases) EXPECT_EQ(decode(c.mode, c.text), c.bytes) << c.mode << " " << c.text;

  // With `append` the output grows; without it, it is replaced, and a failure leaves it empty.
  _clsEncode enc;
  enc.put_EncodingMode("hex");
  DataBuffer out("old", 3);
  LogNull log;
  EXPECT_TRUE(enc.decodeBinary(XString("41"), out, true, log));
  EXPECT_EQ(supporttest::bytesOf(out), "oldA");
  EXPECT_FALSE(enc.decodeBinary(XString("4"), out, false, log));
  EXPECT_TRUE(out.isEmpty());
}
