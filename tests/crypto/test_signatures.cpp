// RSA (PKCS#1 v1.5 and PSS), DSA and ECDSA verification over a hash, with keys and
// signatures made by the openssl command line.
#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <string>

#include "CryptoFixtures.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/DsaVerifier.h"
#include "crypto/RsaVerifier.h"
#include "crypto/_btHash.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

namespace {

using cryptofixtures::file;

// A public key loaded from a fixture's DER; released at scope end.
struct Key {
  explicit Key(const std::string& name) : obj(ClsPublicKey::createNewCls()) {
    LogNull log;
    loaded = obj->loadAnyDer(file(name), log);
  }
  ~Key() { obj->decRefCount(); }
  _btPublicKey& pk() { return obj->getPubKey(); }
  ClsPublicKey* obj;
  bool loaded = false;
};

struct RsaOutcome {
  bool ran = false, valid = false, keyMismatch = false;
};

RsaOutcome verifyRsa(Key& key, const DataBuffer& sig, const DataBuffer& hash, int hashId, int padding = 1,
                     int mgfHashId = 0, bool lenient = true) {
  RsaOutcome o;
  LogNull log;
  const RsaKeyData* rsa = key.pk().getRsaKey();
  if (!rsa) return o;
  o.ran = RsaVerifier::verifyHashExt(sig.getData2(), sig.getSize(), hash.getData2(), hash.getSize(), hashId, padding,
                                     mgfHashId, o.valid, *rsa, 0, lenient, o.keyMismatch, log);
  return o;
}

DataBuffer hashOf(const std::string& text, int hashId) {
  DataBuffer out;
  _btHash::doHash(text.data(), text.size(), hashId, out);
  return out;
}

DataBuffer tampered(DataBuffer db) {
  db.getDataRw()[db.getSize() / 2] ^= 0x01;
  return db;
}

TEST(RsaVerify, Pkcs1v15ForEveryOpenSslDigest) {
  REQUIRE_SIG_FIXTURES();
  Key key("rsa2048.pub.der");
  ASSERT_TRUE(key.loaded);
  const struct { const char* md; int id; } cases[] = {{"sha1", 1},  {"sha256", 7}, {"sha384", 2},
                                                      {"sha512", 3}, {"md5", 5},   {"ripemd160", 10}};
  for (const auto& c : cases) {
    const DataBuffer sig = file(std::string("rsa2048_") + c.md + ".sig");
    const DataBuffer hash = file(std::string("data.") + c.md);
    RsaOutcome o = verifyRsa(key, sig, hash, c.id);
    EXPECT_TRUE(o.ran && o.valid && !o.keyMismatch) << c.md;
    o = verifyRsa(key, sig, tampered(hash), c.id);
    EXPECT_TRUE(o.ran && !o.valid) << c.md;
    o = verifyRsa(key, tampered(sig), hash, c.id);
    EXPECT_TRUE(o.ran && !o.valid && !o.keyMismatch) << c.md;
  }
  // The right digest bytes announced as another algorithm do not verify.
  RsaOutcome o = verifyRsa(key, file("rsa2048_ripemd160.sig"), file("data.ripemd160"), 1);
  EXPECT_TRUE(o.ran && !o.valid);
}

TEST(RsaVerify, Md2AndRipemd128DigestInfoBuiltByUs) {
  REQUIRE_SIG_FIXTURES();
  Key key("rsa2048.pub.der");
  RsaOutcome o = verifyRsa(key, file("rsa2048_md2_abc.sig"), hashOf("abc", 4), 4);
  EXPECT_TRUE(o.ran && o.valid);
  o = verifyRsa(key, file("rsa2048_ripemd128_abc.sig"), hashOf("abc", 9), 9);
  EXPECT_TRUE(o.ran && o.valid);
  o = verifyRsa(key, file("rsa2048_md2_abc.sig"), hashOf("abd", 4), 4);
  EXPECT_TRUE(o.ran && !o.valid);
}

TEST(RsaVerify, LenientDigestInfoFormsOnlyWhenAsked) {
  REQUIRE_SIG_FIXTURES();
  Key key("rsa2048.pub.der");
  const DataBuffer hash = file("data.sha256");
  for (const char* name : {"rsa2048_sha256_noparams.sig", "rsa2048_sha256_bare.sig"}) {
    RsaOutcome o = verifyRsa(key, file(name), hash, 7, 1, 0, true);
    EXPECT_TRUE(o.ran && o.valid) << name;
    o = verifyRsa(key, file(name), hash, 7, 1, 0, false);
    EXPECT_TRUE(o.ran && !o.valid) << name;
  }
}

TEST(RsaVerify, PssWithGivenMaskDigestAndDetectedSalt) {
  REQUIRE_SIG_FIXTURES();
  Key key("rsa2048.pub.der");
  const DataBuffer sig256 = file("rsa2048_pss_sha256.sig");
  RsaOutcome o = verifyRsa(key, sig256, file("data.sha256"), 7, 3, 7);
  EXPECT_TRUE(o.ran && o.valid);
  o = verifyRsa(key, sig256, file("data.sha256"), 7, 1);  // PSS value checked as PKCS#1 v1.5
  EXPECT_TRUE(o.ran && !o.valid);
  o = verifyRsa(key, sig256, tampered(file("data.sha256")), 7, 3, 7);
  EXPECT_TRUE(o.ran && !o.valid);

  // SHA-512 with MGF1 over SHA-1 and a 20-byte salt: only the right mask digest verifies.
  const DataBuffer sig512 = file("rsa2048_pss_sha512_mgf1sha1.sig");
  o = verifyRsa(key, sig512, file("data.sha512"), 3, 3, 1);
  EXPECT_TRUE(o.ran && o.valid);
  o = verifyRsa(key, sig512, file("data.sha512"), 3, 3, 3);
  EXPECT_TRUE(o.ran && !o.valid);
}

TEST(RsaVerify, WrongKeyWrongSizeAndNoHash) {
  REQUIRE_SIG_FIXTURES();
  Key key2048("rsa2048.pub.der"), other2048("rsa2048b.pub.der"), key1024("rsa1024.pub.der");
  const DataBuffer hash = file("data.sha256");
  // Another key of the same size: the verification runs and fails.
  RsaOutcome o = verifyRsa(other2048, file("rsa2048_sha256.sig"), hash, 7);
  EXPECT_TRUE(o.ran && !o.valid && !o.keyMismatch);
  // A modulus of another size cannot fit the signature, in either direction.
  o = verifyRsa(key1024, file("rsa2048_sha256.sig"), hash, 7);
  EXPECT_TRUE(!o.ran && o.keyMismatch);
  o = verifyRsa(key2048, file("rsa1024_sha256.sig"), hash, 7);
  EXPECT_TRUE(!o.ran && o.keyMismatch);
  EXPECT_TRUE(verifyRsa(key1024, file("rsa1024_sha256.sig"), hash, 7).valid);
  // Hash identifier 0: nothing to compare, so the signature is not valid, yet the call ran.
  o = verifyRsa(key2048, file("rsa2048_sha256.sig"), DataBuffer(), 0);
  EXPECT_TRUE(o.ran && !o.valid && !o.keyMismatch);

  // A non-RSA key behind the RSA interface is a key mismatch.
  const DataBuffer ecDer = file("ec_p256.pub.der");
  const unsigned char* p = ecDer.getData2();
  RsaKeyData notRsa(ossl::PkeyPtr(d2i_PUBKEY(nullptr, &p, static_cast<long>(ecDer.getSize()))));
  bool valid = true, mismatch = false;
  _btLogger log;
  const DataBuffer sig = file("rsa2048_sha256.sig");
  EXPECT_FALSE(RsaVerifier::verifyHashExt(sig.getData2(), sig.getSize(), hash.getData2(), hash.getSize(), 7, 1, 7,
                                          valid, notRsa, 0, true, mismatch, log));
  EXPECT_TRUE(mismatch);
  EXPECT_FALSE(valid);
  EXPECT_EQ(log.lastErrorLine(), "The key is not an RSA key.");
}

// A signer that dropped the leading zero byte of the value still verifies; a value
// longer than the modulus never fits.
TEST(RsaVerify, ValueWithoutItsLeadingZeroByte) {
  REQUIRE_SIG_FIXTURES();
  Key key("rsa2048.pub.der");
  const DataBuffer stripped = file("rsa2048_leadzero_stripped.sig");
  ASSERT_EQ(stripped.getSize(), 255u);
  RsaOutcome o = verifyRsa(key, stripped, file("leadzero.sha256"), 7);
  EXPECT_TRUE(o.ran && o.valid);
  DataBuffer tooLong;
  tooLong.appendByte(0);
  tooLong.append(file("rsa2048_sha256.sig"));
  o = verifyRsa(key, tooLong, file("data.sha256"), 7);
  EXPECT_TRUE(!o.ran && o.keyMismatch);
}

bool dsaVerify(Key& key, const DataBuffer& sig, const DataBuffer& hash, bool rawFirst, bool& valid) {
  LogNull log;
  const DsaKeyData* dsa = key.pk().getDsaKey();
  return dsa && DsaVerifier::verifyHash(*dsa, sig.getData2(), sig.getSize(), rawFirst, hash.getData2(),
                                        hash.getSize(), valid, log);
}

TEST(DsaVerify, RsAndDerFormsForBothSubgroupSizes) {
  REQUIRE_SIG_FIXTURES();
  const struct { const char* key; const char* sig; const char* md; } cases[] = {
      {"dsa1024.pub.der", "dsa1024_sha1", "sha1"}, {"dsa2048.pub.der", "dsa2048_sha256", "sha256"}};
  for (const auto& c : cases) {
    Key key(c.key);
    ASSERT_TRUE(key.loaded) << c.key;
    const DataBuffer hash = file(std::string("data.") + c.md);
    for (const char* form : {".rs", ".der"}) {
      const DataBuffer sig = file(std::string(c.sig) + form);
      for (bool rawFirst : {true, false}) {
        bool valid = false;
        EXPECT_TRUE(dsaVerify(key, sig, hash, rawFirst, valid)) << c.sig << form;
        EXPECT_TRUE(valid) << c.sig << form << rawFirst;
      }
      bool valid = true;
      EXPECT_TRUE(dsaVerify(key, sig, tampered(hash), true, valid));
      EXPECT_FALSE(valid) << c.sig << form;
      EXPECT_TRUE(dsaVerify(key, tampered(sig), hash, true, valid));
      EXPECT_FALSE(valid) << c.sig << form;
    }
  }
  // Empty hash: ran, not valid.
  Key key("dsa1024.pub.der");
  bool valid = true;
  EXPECT_TRUE(dsaVerify(key, file("dsa1024_sha1.rs"), DataBuffer(), true, valid));
  EXPECT_FALSE(valid);
}

bool ecVerify(Key& key, const DataBuffer& sig, const DataBuffer& hash, bool& valid) {
  LogNull log;
  const EccKey* ec = key.pk().getEccKey();
  return ec && ec->eccVerifyHash(sig.getData2(), sig.getSize(), false, hash.getData2(), hash.getSize(), valid, log, 0);
}

TEST(EcdsaVerify, CurvesAndSignatureForms) {
  REQUIRE_SIG_FIXTURES();
  const struct { const char* name; const char* md; const char* curve; } cases[] = {
      {"ec_p256", "sha256", "prime256v1"},
      {"ec_k256", "sha256", "secp256k1"},
      {"ec_p384", "sha384", "secp384r1"},
      {"ec_p521", "sha512", "secp521r1"}};
  for (const auto& c : cases) {
    Key key(std::string(c.name) + ".pub.der");
    ASSERT_TRUE(key.loaded) << c.name;
    ASSERT_NE(key.pk().getEccKey(), nullptr);
    EXPECT_EQ(key.pk().getEccKey()->curveName(), c.curve);
    const DataBuffer hash = file(std::string("data.") + c.md);
    const std::string base = std::string(c.name) + "_" + c.md;
    for (const char* form : {".rs", ".der"}) {
      bool valid = false;
      EXPECT_TRUE(ecVerify(key, file(base + form), hash, valid));
      EXPECT_TRUE(valid) << base << form;
      EXPECT_TRUE(ecVerify(key, file(base + form), tampered(hash), valid));
      EXPECT_FALSE(valid) << base << form;
    }
  }
  // Another P-256 key: ran, not valid.
  Key other("ec_p256b.pub.der");
  bool valid = true;
  EXPECT_TRUE(ecVerify(other, file("ec_p256_sha256.rs"), file("data.sha256"), valid));
  EXPECT_FALSE(valid);
  // A value that is neither r||s nor DER.
  Key key("ec_p256.pub.der");
  DataBuffer odd = file("ec_p256_sha256.rs");
  odd.appendByte(1);
  EXPECT_TRUE(ecVerify(key, odd, file("data.sha256"), valid));
  EXPECT_FALSE(valid);
}

}  // namespace

namespace {

// Failures leave nothing on OpenSSL's per-thread error queue, where a later, unrelated
// OpenSSL call would find it.
TEST(OpenSslErrors, FailuresLeaveTheQueueEmpty) {
  REQUIRE_SIG_FIXTURES();
  ERR_clear_error();
  Key key("rsa2048.pub.der"), other("rsa2048b.pub.der"), ec("ec_p256.pub.der"), small("rsa1024.pub.der");
  verifyRsa(other, file("rsa2048_sha256.sig"), file("data.sha256"), 7);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "RSA with another key";
  verifyRsa(key, tampered(file("rsa2048_pss_sha256.sig")), file("data.sha256"), 7, 3, 7);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "corrupted PSS signature";
  verifyRsa(small, file("rsa2048_sha256.sig"), file("data.sha256"), 7);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "modulus of another size";
  bool valid = false;
  ecVerify(ec, tampered(file("ec_p256_sha256.der")), file("data.sha256"), valid);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "corrupted ECDSA signature";
  ClsPublicKey* bad = ClsPublicKey::createNewCls();
  LogNull log;
  bad->loadAnyDer(file("data.bin"), log);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "DER that is no key";
  bad->loadXml(StringBuffer("<ECKeyValue><NamedCurve URI=\"urn:oid:1.2.840.10045.3.1.7\"/>"
                            "<PublicKey>BAECAw==</PublicKey></ECKeyValue>"),
               log);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "EC point off the curve";
  bad->decRefCount();
}

}  // namespace
