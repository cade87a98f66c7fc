// Keys whose values make a signature check pass without any private key: an attacker
// alters a document that xmlsec1 signed with a genuine DSA key, signs it with r = s = 1
// and puts in KeyInfo a DSA key of the genuine domain with G = Y = 1.
#include <gtest/gtest.h>
#include <openssl/core_names.h>

#include <string>

#include "HostileFixtures.h"
#include "VerifierTestUtil.h"
#include "crypto/ClsPublicKey.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

using hostile::contentOf;
using hostile::replaceFirst;
using hostile::Signer;

// One DSA domain parameter of the key in a PEM certificate, as base64 of its bytes.
std::string domainValue(const std::string& certPath, const char* name) {
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  if (!key->LoadFromFile(XString(certPath.c_str()))) return std::string();
  BIGNUM* raw = nullptr;
  if (EVP_PKEY_get_bn_param(key->getPubKey().pkey(), name, &raw) != 1) return std::string();
  std::string bytes(static_cast<size_t>(BN_num_bytes(raw)), '\0');
  BN_bn2bin(raw, reinterpret_cast<unsigned char*>(&bytes[0]));
  BN_free(raw);
  return dsigtest::base64(bytes);
}

}  // namespace

TEST(ForgedKeys, DsaKeyOfUnitValuesVerifiesNoAlteredDocument) {
  Signer& signer = Signer::get();
  if (!signer.ready()) GTEST_SKIP() << "openssl could not make the test key";
  ASSERT_TRUE(
      hostile::shell("cd '" + signer.dir() +
                     "' && { test -s dsaparam.pem || openssl genpkey -genparam -algorithm DSA -pkeyopt "
                     "dsa_paramgen_bits:1024 -pkeyopt dsa_paramgen_q_bits:160 -out dsaparam.pem 2>/dev/null; }"));
  ASSERT_TRUE(signer.makeKey("dsa", "dsa:'" + signer.dir() + "/dsaparam.pem'"));
  const std::string genuine = signer.signWith(
      hostile::responseTemplate(hostile::kAssertion, "#a1", "http://www.w3.org/2001/10/xml-exc-c14n#",
                                "http://www.w3.org/2000/09/xmldsig#dsa-sha1"),
      "dsa");
  const hostile::Outcome intact = hostile::verify(genuine);
  ASSERT_TRUE(intact.valid) << intact.log;  // a genuine DSA key passes the key checks

  const std::string certPath = signer.dir() + "/dsa.pem";
  const std::string p = domainValue(certPath, OSSL_PKEY_PARAM_FFC_P);
  const std::string q = domainValue(certPath, OSSL_PKEY_PARAM_FFC_Q);
  ASSERT_FALSE(p.empty() || q.empty());

  // New content with its own digest, then r = s = 1 (20 bytes each) under G = Y = 1.
  std::string forged = replaceFirst(genuine, "alice@example.com", "mallory@example.com");
  forged = replaceFirst(
      forged, contentOf(forged, "ds:DigestValue"),
      dsigtest::b64sha256("<Assertion xmlns=\"urn:test\" ID=\"a1\"><NameID>mallory@example.com</NameID></Assertion>"));
  const std::string one(std::string(19, '\0') + '\x01');
  forged = replaceFirst(forged, contentOf(forged, "ds:SignatureValue"), dsigtest::base64(one + one));
  forged = replaceFirst(forged, contentOf(forged, "ds:KeyInfo"),
                        "<ds:KeyValue><ds:DSAKeyValue><ds:P>" + p + "</ds:P><ds:Q>" + q +
                            "</ds:Q><ds:G>AQ==</ds:G><ds:Y>AQ==</ds:Y></ds:DSAKeyValue></ds:KeyValue>");

  const hostile::Outcome o = hostile::verify(forged);
  EXPECT_FALSE(o.valid);
  EXPECT_TRUE(o.hasError("Public key refused: the DSA generator G is not an element of order Q with 1 < G < P."))
      << o.log;
  // Its reference is intact: the key alone stands between the forgery and a valid verdict.
  EXPECT_TRUE(o.dsig->VerifyReferenceDigest(0)) << o.dsig->lastErrorText();
}
