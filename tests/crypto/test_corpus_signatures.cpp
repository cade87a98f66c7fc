// The verifiers on signatures made by other software: for every interoperability
// vector whose key is in the document or in a key file and whose signature is intact,
// the canonical SignedInfo is hashed and the SignatureValue must verify under one of
// the candidate keys (key values, DER key values, embedded certificates, the supplied
// key file).
#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/DsaVerifier.h"
#include "crypto/RsaVerifier.h"
#include "crypto/_btHash.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"
#include "support/XString.h"
#include "xml/XmlCanon.h"

namespace {

std::vector<std::string> splitTabs(const std::string& line) {
  std::vector<std::string> out;
  std::stringstream ss(line);
  std::string field;
  while (std::getline(ss, field, '\t')) out.push_back(field);
  return out;
}

int hashIdOf(const std::string& uri) {
  const struct { const char* fragment; int id; } table[] = {
      {"sha256", 7}, {"sha1", 1}, {"sha384", 2}, {"sha512", 3}, {"ripemd160", 10}, {"md5", 5}};
  for (const auto& t : table)
    if (uri.find(std::string("-") + t.fragment) != std::string::npos ||
        uri.find(std::string("#") + t.fragment) != std::string::npos)
      return t.id;
  return 0;
}

bool verifyWith(ClsPublicKey* key, const std::string& method, const DataBuffer& sig, const DataBuffer& hash,
                int hashId) {
  LogNull log;
  bool valid = false, mismatch = false;
  _btPublicKey& pk = key->getPubKey();
  if (pk.getRsaKey() && method.find("rsa") != std::string::npos) {
    const int padding = method.find("MGF1") != std::string::npos ? 3 : 1;
    return RsaVerifier::verifyHashExt(sig.getData2(), sig.getSize(), hash.getData2(), hash.getSize(), hashId, padding,
                                      hashId, valid, *pk.getRsaKey(), 0, true, mismatch, log) &&
           valid;
  }
  if (pk.getDsaKey() && method.find("#dsa-") != std::string::npos)
    return DsaVerifier::verifyHash(*pk.getDsaKey(), sig.getData2(), sig.getSize(), true, hash.getData2(),
                                   hash.getSize(), valid, log) &&
           valid;
  if (pk.getEccKey() && method.find("#ecdsa-") != std::string::npos)
    return pk.getEccKey()->eccVerifyHash(sig.getData2(), sig.getSize(), false, hash.getData2(), hash.getSize(), valid,
                                         log, 0) &&
           valid;
  return false;
}

TEST(CorpusSignatures, InteropVectorsVerifyUnderTheirKeys) {
  REQUIRE_CORPUS();
  const std::string corpus = testsupport::corpusDir();
  std::stringstream manifest(testsupport::readFile(corpus + "/interop.tsv"));
  const std::regex signedInfoRe("<([A-Za-z0-9_]+:)?SignedInfo[\\s>]");
  const std::regex methodRe("SignatureMethod[^>]*Algorithm=\"([^\"]+)\"");
  const std::regex canonRe("CanonicalizationMethod[^>]*Algorithm=\"([^\"]+)\"");
  const std::regex sigValueRe("<([A-Za-z0-9_]+:)?SignatureValue[^>]*>([^<]*)<");
  // Certificates and DER key values (base64 SubjectPublicKeyInfo).
  const std::regex derRe("<([A-Za-z0-9_]+:)?(X509Certificate|DEREncodedKeyValue)[^>]*>([^<]+)<");
  const std::regex keyValueRe("<([A-Za-z0-9_]+:)?(RSAKeyValue|DSAKeyValue|ECKeyValue|ECDSAKeyValue)[\\s>][\\s\\S]*?</([A-Za-z0-9_]+:)?\\2>");
  std::string line;
  std::getline(manifest, line);  // header
  int verified = 0;
  std::vector<std::string> failures;
  while (std::getline(manifest, line)) {
    const std::vector<std::string> f = splitTabs(line);
    if (f.size() < 13 || f[2] != "0" || (f[3] != "keyinfo" && f[3] != "pubkey") || f[12] != "yes") continue;
    const std::string xmlText = testsupport::readFile(corpus + "/" + f[1]);
    std::smatch m;
    std::string method, canon;
    if (!std::regex_search(xmlText, m, methodRe)) continue;
    method = m[1];
    const int hashId = hashIdOf(method);
    // SHA-224 and SHA-3 methods: digests the verifier does not offer.
    if (hashId == 0 || method.find("sha3-") != std::string::npos || method.find("sha3_") != std::string::npos) continue;
    if (!std::regex_search(xmlText, m, canonRe)) continue;
    canon = m[1];
    if (!std::regex_search(xmlText, m, signedInfoRe)) continue;
    const size_t signedInfoStart = static_cast<size_t>(m.position(0));

    XmlCanon c14n;
    c14n.canonMethod = canon.find("exc-c14n") != std::string::npos ? 2 : 1;
    c14n.withComments = canon.find("WithComments") != std::string::npos;
    StringBuffer canonical;
    LogNull log;
    if (!c14n.xmlCanonicalize(StringBuffer(xmlText), nullptr, signedInfoStart, canonical, log)) {
      failures.push_back(f[0] + ": canonicalization failed");
      continue;
    }
    DataBuffer hash, sig;
    _btHash::doHash(canonical.getString(), canonical.getSize(), hashId, hash);
    if (!std::regex_search(xmlText, m, sigValueRe)) continue;
    StringBuffer sigText(m[2].str());
    sigText.replaceAllOccurances("&#13;", "");
    ContentCoding::decodeBase64ToDb(sigText.getString(), sigText.getSize(), sig);

    std::vector<RcPtr<ClsPublicKey>> keys;
    auto addKey = [&keys](RcPtr<ClsPublicKey> k) { keys.push_back(std::move(k)); };
    if (f[3] == "pubkey") {
      RcPtr<ClsPublicKey> k(ClsPublicKey::createNewCls());
      if (k->LoadFromFile(XString((corpus + "/" + f[4]).c_str()))) addKey(std::move(k));
    }
    for (std::sregex_iterator it(xmlText.begin(), xmlText.end(), keyValueRe), end; it != end; ++it) {
      RcPtr<ClsPublicKey> k(ClsPublicKey::createNewCls());
      if (k->loadXml(StringBuffer(it->str()), log)) addKey(std::move(k));
    }
    for (std::sregex_iterator it(xmlText.begin(), xmlText.end(), derRe), end; it != end; ++it) {
      RcPtr<ClsPublicKey> k(ClsPublicKey::createNewCls());
      if (k->LoadFromString(XString((*it)[3].str().c_str()))) addKey(std::move(k));
    }
    if (keys.empty()) continue;  // a key type the verifier does not handle (EdDSA, ML-DSA, ...)
    bool ok = false;
    for (auto& k : keys) ok = ok || verifyWith(k.get(), method, sig, hash, hashId);
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
  std::stringstream manifest(testsupport::readFile(corpus + "/families.tsv"));
  const std::regex digestRe("<([A-Za-z0-9_]+:)?DigestValue[^>]*>([^<]+)<");
  const std::regex sigValueRe("<([A-Za-z0-9_]+:)?SignatureValue[^>]*>([^<]+)<");
  const std::regex certRe("<([A-Za-z0-9_]+:)?X509Certificate[^>]*>([^<]+)<");
  std::string line;
  std::getline(manifest, line);
  int verified = 0;
  while (std::getline(manifest, line)) {
    const std::vector<std::string> f = splitTabs(line);
    if (f.size() < 11 || f[1] != "zatca" || f[10] != "yes") continue;
    const std::string xmlText = testsupport::readFile(corpus + "/" + f[2]);
    std::smatch digest, sigValue, cert;
    ASSERT_TRUE(std::regex_search(xmlText, digest, digestRe)) << f[0];
    ASSERT_TRUE(std::regex_search(xmlText, sigValue, sigValueRe)) << f[0];
    ASSERT_TRUE(std::regex_search(xmlText, cert, certRe)) << f[0];
    DataBuffer invoiceHash, hash, sig;
    const std::string d = digest[2], v = sigValue[2];
    ContentCoding::decodeBase64ToDb(d.data(), d.size(), invoiceHash);
    _btHash::doHash(invoiceHash.getData2(), invoiceHash.getSize(), 7, hash);
    ContentCoding::decodeBase64ToDb(v.data(), v.size(), sig);
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    ASSERT_TRUE(key->LoadFromString(XString(cert[2].str().c_str()))) << f[0];
    ASSERT_NE(key->getPubKey().getEccKey(), nullptr) << f[0];
    EXPECT_EQ(key->getPubKey().getEccKey()->curveName(), "secp256k1") << f[0];
    EXPECT_TRUE(verifyWith(key.get(), "#ecdsa-sha256", sig, hash, 7)) << f[0];
    ++verified;
  }
  EXPECT_GE(verified, 10);
}

}  // namespace
