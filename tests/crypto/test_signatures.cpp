// RSA (PKCS#1 v1.5 and PSS), DSA and ECDSA verification over a hash, with keys and
// signatures made by the openssl command line; OpenSSL's error queue after failures.
#include <openssl/err.h>
#include <openssl/x509.h>

#include <string>

#include "CryptoFixtures.h"
#include "crypto/RsaVerifier.h"
#include "crypto/_btHash.h"

using namespace cryptofixtures;

namespace {

std::string show(const Verdict& v) {
  return std::string(v.ran ? "ran" : "not run") + (v.valid ? " valid" : " invalid") +
         (v.keyMismatch ? " mismatch" : "");
}

DataBuffer hashOf(const std::string& text, int hashId) {
  DataBuffer out;
  _btHash::doHash(text.data(), text.size(), hashId, out);
  return out;
}

}  // namespace

TEST(RsaVerify, Pkcs1v15AndPssOutcomes) {
  REQUIRE_SIG_FIXTURES();
  Key key("rsa2048.pub.der");
  ASSERT_TRUE(key.loaded);
  for (const auto& [md, id] : std::vector<std::pair<std::string, int>>{
           {"sha1", 1}, {"sha256", 7}, {"sha384", 2}, {"sha512", 3}, {"md5", 5}, {"ripemd160", 10}}) {
    const DataBuffer sig = file("rsa2048_" + md + ".sig"), hash = file("data." + md);
    EXPECT_EQ(show(verifyRsa(*key.obj, sig, hash, id)), "ran valid") << md;
    EXPECT_EQ(show(verifyRsa(*key.obj, sig, tampered(hash), id)), "ran invalid") << md;
    EXPECT_EQ(show(verifyRsa(*key.obj, tampered(sig), hash, id)), "ran invalid") << md;
  }
  Key other("rsa2048b.pub.der"), small("rsa1024.pub.der");
  DataBuffer tooLong;
  tooLong.appendByte(0);
  tooLong.append(file("rsa2048_sha256.sig"));
  const DataBuffer sha256 = file("data.sha256"), sha512 = file("data.sha512");
  const struct {
    const char* what;
    Key& key;
    DataBuffer sig, hash;
    int hashId, padding, mgf;
    bool lenient;
    const char* verdict;
  } cases[] = {
      {"right digest announced as another", key, file("rsa2048_ripemd160.sig"), file("data.ripemd160"), 1, 1, 0, true,
       "ran invalid"},
      // DigestInfo for digests the openssl command line no longer has, built by us.
      {"MD2", key, file("rsa2048_md2_abc.sig"), hashOf("abc", 4), 4, 1, 0, true, "ran valid"},
      {"RIPEMD-128", key, file("rsa2048_ripemd128_abc.sig"), hashOf("abc", 9), 9, 1, 0, true, "ran valid"},
      {"MD2 other data", key, file("rsa2048_md2_abc.sig"), hashOf("abd", 4), 4, 1, 0, true, "ran invalid"},
      // DigestInfo forms of old signers, accepted only when lenient.
      {"no NULL params", key, file("rsa2048_sha256_noparams.sig"), sha256, 7, 1, 0, true, "ran valid"},
      {"no NULL params, strict", key, file("rsa2048_sha256_noparams.sig"), sha256, 7, 1, 0, false, "ran invalid"},
      {"bare digest", key, file("rsa2048_sha256_bare.sig"), sha256, 7, 1, 0, true, "ran valid"},
      {"bare digest, strict", key, file("rsa2048_sha256_bare.sig"), sha256, 7, 1, 0, false, "ran invalid"},
      // PSS with the given mask digest and the salt length found from the value.
      {"PSS", key, file("rsa2048_pss_sha256.sig"), sha256, 7, 3, 7, true, "ran valid"},
      {"PSS checked as v1.5", key, file("rsa2048_pss_sha256.sig"), sha256, 7, 1, 0, true, "ran invalid"},
      {"PSS other data", key, file("rsa2048_pss_sha256.sig"), tampered(sha256), 7, 3, 7, true, "ran invalid"},
      {"PSS SHA-512, MGF1 SHA-1", key, file("rsa2048_pss_sha512_mgf1sha1.sig"), sha512, 3, 3, 1, true, "ran valid"},
      {"PSS wrong mask digest", key, file("rsa2048_pss_sha512_mgf1sha1.sig"), sha512, 3, 3, 3, true, "ran invalid"},
      {"another key of the size", other, file("rsa2048_sha256.sig"), sha256, 7, 1, 0, true, "ran invalid"},
      {"smaller modulus", small, file("rsa2048_sha256.sig"), sha256, 7, 1, 0, true, "not run invalid mismatch"},
      {"larger modulus", key, file("rsa1024_sha256.sig"), sha256, 7, 1, 0, true, "not run invalid mismatch"},
      {"1024-bit", small, file("rsa1024_sha256.sig"), sha256, 7, 1, 0, true, "ran valid"},
      {"no hash", key, file("rsa2048_sha256.sig"), DataBuffer(), 0, 1, 0, true, "ran invalid"},
      // A signer that dropped the leading zero byte still verifies; a longer value never fits.
      {"leading zero dropped", key, file("rsa2048_leadzero_stripped.sig"), file("leadzero.sha256"), 7, 1, 0, true,
       "ran valid"},
      {"longer than the modulus", key, tooLong, sha256, 7, 1, 0, true, "not run invalid mismatch"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(show(verifyRsa(*c.key.obj, c.sig, c.hash, c.hashId, c.padding, c.mgf, c.lenient)), c.verdict) << c.what;
  EXPECT_EQ(file("rsa2048_leadzero_stripped.sig").getSize(), 255u);

  // A non-RSA key behind the RSA interface is a key mismatch.
  const DataBuffer ecDer = file("ec_p256.pub.der");
  const unsigned char* p = ecDer.getData2();
  RsaKeyData notRsa(ossl::PkeyPtr(d2i_PUBKEY(nullptr, &p, static_cast<long>(ecDer.getSize()))));
  bool valid = true, mismatch = false;
  _btLogger log;
  const DataBuffer sig = file("rsa2048_sha256.sig");
  EXPECT_FALSE(RsaVerifier::verifyHashExt(sig.getData2(), sig.getSize(), sha256.getData2(), sha256.getSize(), 7, 1, 7,
                                          valid, notRsa, 0, true, mismatch, log));
  EXPECT_TRUE(mismatch && !valid);
  EXPECT_EQ(log.lastErrorLine(), "The key is not an RSA key.");
}

TEST(DsaEcdsaVerify, SignatureFormsCurvesAndWrongData) {
  REQUIRE_SIG_FIXTURES();
  for (const auto& [name, md] :
       std::vector<std::pair<std::string, std::string>>{{"dsa1024", "sha1"}, {"dsa2048", "sha256"}}) {
    Key key(name + ".pub.der");
    ASSERT_TRUE(key.loaded) << name;
    const DataBuffer hash = file("data." + md);
    for (const char* form : {".rs", ".der"}) {
      const DataBuffer sig = file(name + "_" + md + form);
      EXPECT_EQ(show(verifyDsa(*key.obj, sig, hash, true)), "ran valid") << name << form;
      EXPECT_EQ(show(verifyDsa(*key.obj, sig, hash, false)), "ran valid") << name << form;
      EXPECT_EQ(show(verifyDsa(*key.obj, sig, tampered(hash))), "ran invalid") << name << form;
      EXPECT_EQ(show(verifyDsa(*key.obj, tampered(sig), hash)), "ran invalid") << name << form;
    }
  }
  Key dsa("dsa1024.pub.der");
  EXPECT_EQ(show(verifyDsa(*dsa.obj, file("dsa1024_sha1.rs"), DataBuffer())), "ran invalid");

  const struct {
    const char *name, *md, *curve;
  } curves[] = {{"ec_p256", "sha256", "prime256v1"},
                {"ec_k256", "sha256", "secp256k1"},
                {"ec_p384", "sha384", "secp384r1"},
                {"ec_p521", "sha512", "secp521r1"}};
  for (const auto& c : curves) {
    Key key(std::string(c.name) + ".pub.der");
    ASSERT_TRUE(key.loaded && key.obj->getPubKey().getEccKey()) << c.name;
    EXPECT_EQ(key.obj->getPubKey().getEccKey()->curveName(), c.curve);
    const DataBuffer hash = file(std::string("data.") + c.md);
    for (const char* form : {".rs", ".der"}) {
      const DataBuffer sig = file(std::string(c.name) + "_" + c.md + form);
      EXPECT_EQ(show(verifyEcdsa(*key.obj, sig, hash)), "ran valid") << c.name << form;
      EXPECT_EQ(show(verifyEcdsa(*key.obj, sig, tampered(hash))), "ran invalid") << c.name << form;
    }
  }
  Key other("ec_p256b.pub.der"), p256("ec_p256.pub.der");
  EXPECT_EQ(show(verifyEcdsa(*other.obj, file("ec_p256_sha256.rs"), file("data.sha256"))), "ran invalid");
  DataBuffer odd = file("ec_p256_sha256.rs");  // neither r||s nor DER
  odd.appendByte(1);
  EXPECT_EQ(show(verifyEcdsa(*p256.obj, odd, file("data.sha256"))), "ran invalid");
}

// Failures leave nothing on OpenSSL's per-thread error queue, where a later, unrelated
// OpenSSL call would find it.
TEST(OpenSslErrors, FailuresLeaveTheQueueEmpty) {
  REQUIRE_SIG_FIXTURES();
  ERR_clear_error();
  Key key("rsa2048.pub.der"), other("rsa2048b.pub.der"), ec("ec_p256.pub.der"), small("rsa1024.pub.der");
  verifyRsa(*other.obj, file("rsa2048_sha256.sig"), file("data.sha256"), 7);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "RSA with another key";
  verifyRsa(*key.obj, tampered(file("rsa2048_pss_sha256.sig")), file("data.sha256"), 7, 3, 7);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "corrupted PSS signature";
  verifyRsa(*small.obj, file("rsa2048_sha256.sig"), file("data.sha256"), 7);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "modulus of another size";
  verifyEcdsa(*ec.obj, tampered(file("ec_p256_sha256.der")), file("data.sha256"));
  EXPECT_EQ(ERR_peek_error(), 0ul) << "corrupted ECDSA signature";
  RcPtr<ClsPublicKey> bad(ClsPublicKey::createNewCls());
  LogNull log;
  bad->loadAnyDer(file("data.bin"), log);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "DER that is no key";
  bad->loadXml(StringBuffer("<ECKeyValue><NamedCurve URI=\"urn:oid:1.2.840.10045.3.1.7\"/>"
                            "<PublicKey>BAECAw==</PublicKey></ECKeyValue>"),
               log);
  EXPECT_EQ(ERR_peek_error(), 0ul) << "EC point off the curve";
}
