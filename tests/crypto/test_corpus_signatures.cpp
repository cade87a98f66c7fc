// The verifiers on signatures made by other software: for every interoperability
// vector whose key is in the document or in a key file and whose signature is intact,
// the canonical SignedInfo is hashed and the SignatureValue must verify under one of
// the candidate keys (key values, DER key values, embedded certificates, the supplied
// key file).
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "CryptoFixtures.h"
#include "crypto/_btHash.h"
#include "support/XString.h"

using namespace cryptofixtures;

namespace {

int hashIdOf(const std::string& uri) {
  const struct { const char* fragment; int id; } table[] = {
      {"sha256", 7}, {"sha1", 1}, {"sha384", 2}, {"sha512", 3}, {"ripemd160", 10}, {"md5", 5}};
  for (const auto& t : table)
    if (uri.find(std::string("-") + t.fragment) != std::string::npos ||
        uri.find(std::string("#") + t.fragment) != std::string::npos)
      return t.id;
  return 0;
}

// Verifies with the part of the key the signature method names.
bool verifyWith(ClsPublicKey& key, const std::string& method, const DataBuffer& sig, const DataBuffer& hash, int hashId) {
  if (method.find("rsa") != std::string::npos)
    return verifyRsa(key, sig, hash, hashId, method.find("MGF1") != std::string::npos ? 3 : 1, hashId).valid;
  if (method.find("#dsa-") != std::string::npos) return verifyDsa(key, sig, hash).valid;
  return method.find("#ecdsa-") != std::string::npos && verifyEcdsa(key, sig, hash).valid;
}

}  // namespace

TEST(CorpusSignatures, InteropVectorsVerifyUnderTheirKeys) {
  REQUIRE_CORPUS();
  const std::string corpus = testsupport::corpusDir();
  const std::regex signedInfoRe("<([A-Za-z0-9_]+:)?SignedInfo[\\s>]");
  const std::regex methodRe("SignatureMethod[^>]*Algorithm=\"([^\"]+)\"");
  const std::regex canonRe("CanonicalizationMethod[^>]*Algorithm=\"([^\"]+)\"");
  const std::regex sigValueRe("<([A-Za-z0-9_]+:)?SignatureValue[^>]*>([^<]*)<");
  // Certificates and DER key values (base64 SubjectPublicKeyInfo).
  const std::regex derRe("<([A-Za-z0-9_]+:)?(X509Certificate|DEREncodedKeyValue)[^>]*>([^<]+)<");
  const std::regex keyValueRe("<([A-Za-z0-9_]+:)?(RSAKeyValue|DSAKeyValue|ECKeyValue|ECDSAKeyValue)[\\s>][\\s\\S]*?</([A-Za-z0-9_]+:)?\\2>");
  int verified = 0;
  std::vector<std::string> failures;
  for (const auto& f : supporttest::manifestRows("interop.tsv")) {
    if (f.size() < 13 || f[2] != "0" || (f[3] != "keyinfo" && f[3] != "pubkey") || f[12] != "yes") continue;
    const std::string xmlText = testsupport::readFile(corpus + "/" + f[1]);
    std::smatch m;
    if (!std::regex_search(xmlText, m, methodRe)) continue;
    const std::string method = m[1];
    const int hashId = hashIdOf(method);
    // SHA-224 and SHA-3 methods: digests the verifier does not offer.
    if (hashId == 0 || method.find("sha3-") != std::string::npos || method.find("sha3_") != std::string::npos) continue;
    if (!std::regex_search(xmlText, m, canonRe)) continue;
    const std::string c14n = m[1];
    if (!std::regex_search(xmlText, m, signedInfoRe)) continue;
    const supporttest::Canon how{c14n.find("exc-c14n") != std::string::npos ? 2 : 1,
                                 c14n.find("WithComments") != std::string::npos, nullptr,
                                 static_cast<size_t>(m.position(0))};
    const std::string canonical = supporttest::canonicalize(xmlText, nullptr, how);
    DataBuffer hash;
    _btHash::doHash(canonical.data(), canonical.size(), hashId, hash);
    if (!std::regex_search(xmlText, m, sigValueRe)) continue;
    const DataBuffer sig = fromBase64(m[2].str());

    std::vector<RcPtr<ClsPublicKey>> keys;
    LogNull log;
    auto candidate = [&keys](const std::function<bool(ClsPublicKey&)>& load) {
      RcPtr<ClsPublicKey> k(ClsPublicKey::createNewCls());
      if (load(*k)) keys.push_back(std::move(k));
    };
    if (f[3] == "pubkey") candidate([&](ClsPublicKey& k) { return k.LoadFromFile(XString((corpus + "/" + f[4]).c_str())); });
    for (std::sregex_iterator it(xmlText.begin(), xmlText.end(), keyValueRe), end; it != end; ++it)
      candidate([&](ClsPublicKey& k) { return k.loadXml(StringBuffer(it->str()), log); });
    for (std::sregex_iterator it(xmlText.begin(), xmlText.end(), derRe), end; it != end; ++it)
      candidate([&](ClsPublicKey& k) { return k.LoadFromString(XString((*it)[3].str().c_str())); });
    if (keys.empty()) continue;  // a key type the verifier does not handle (EdDSA, ML-DSA, ...)
    bool ok = false;
    for (auto& k : keys) ok = ok || verifyWith(*k, method, sig, hash, hashId);
    if (ok) ++verified;
    else failures.push_back(f[0] + " (" + method + ", " + std::to_string(keys.size()) + " keys)");
  }
  std::string list;
  for (const std::string& s : failures) list += s + "\n";
  EXPECT_TRUE(failures.empty()) << failures.size() << " failed, " << verified << " verified:\n" << list;
  EXPECT_GT(verified, 70);
}

// Saudi ZATCA invoices: ECDSA over secp256k1 with the signature value written in DER,
// over the SHA-256 of the invoice hash (the first reference's decoded DigestValue).
TEST(CorpusSignatures, ZatcaInvoicesVerifyWithDerSignatureValues) {
  REQUIRE_CORPUS();
  const std::string corpus = testsupport::corpusDir();
  const std::regex digestRe("<([A-Za-z0-9_]+:)?DigestValue[^>]*>([^<]+)<");
  const std::regex sigValueRe("<([A-Za-z0-9_]+:)?SignatureValue[^>]*>([^<]+)<");
  const std::regex certRe("<([A-Za-z0-9_]+:)?X509Certificate[^>]*>([^<]+)<");
  int verified = 0;
  for (const auto& f : supporttest::manifestRows("families.tsv")) {
    if (f.size() < 11 || f[1] != "zatca" || f[10] != "yes") continue;
    const std::string xmlText = testsupport::readFile(corpus + "/" + f[2]);
    std::smatch digest, sigValue, cert;
    ASSERT_TRUE(std::regex_search(xmlText, digest, digestRe)) << f[0];
    ASSERT_TRUE(std::regex_search(xmlText, sigValue, sigValueRe)) << f[0];
    ASSERT_TRUE(std::regex_search(xmlText, cert, certRe)) << f[0];
    const DataBuffer invoiceHash = fromBase64(digest[2]);
    DataBuffer hash;
    _btHash::doHash(invoiceHash.getData2(), invoiceHash.getSize(), 7, hash);
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    ASSERT_TRUE(key->LoadFromString(XString(cert[2].str().c_str()))) << f[0];
    ASSERT_NE(key->getPubKey().getEccKey(), nullptr) << f[0];
    EXPECT_EQ(key->getPubKey().getEccKey()->curveName(), "secp256k1") << f[0];
    EXPECT_EQ(verifyEcdsa(*key, fromBase64(sigValue[2]), hash).valid, true) << f[0];
    ++verified;
  }
  EXPECT_GE(verified, 10);
}
