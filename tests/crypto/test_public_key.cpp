// ClsPublicKey loading: PEM and DER keys, certificates, and the XML key-value forms.
#include <gtest/gtest.h>

#include <string>

#include "CryptoFixtures.h"
#include "TestSupport.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/RsaVerifier.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

namespace {

using cryptofixtures::file;

struct KeyObj {
  KeyObj() : k(ClsPublicKey::createNewCls()) {}
  ~KeyObj() { k->decRefCount(); }
  ClsPublicKey* operator->() { return k; }
  std::string type() {
    XString t;
    k->get_KeyType(t);
    return t.getUtf8();
  }
  DataBuffer spki() {
    DataBuffer der;
    LogNull log;
    k->getPublicKeyDer(false, der, log);
    return der;
  }
  ClsPublicKey* k;
};

TEST(PublicKeyLoad, KeyAndCertificateFilesInPemAndDer) {
  REQUIRE_SIG_FIXTURES();
  const DataBuffer rsaSpki = file("rsa2048.pub.der");
  for (const char* name : {"rsa2048.pub.pem", "rsa2048.pub.der", "rsa2048.pkcs1.der", "rsa2048.pkcs1.pem",
                           "rsa2048.crt.pem", "rsa2048.crt.der"}) {
    KeyObj key;
    EXPECT_TRUE(key->LoadFromFile(XString(cryptofixtures::path(name).c_str()))) << name << key->lastErrorText();
    EXPECT_EQ(key.type(), "rsa") << name;
    EXPECT_EQ(key->get_NumBits(), 2048) << name;
    EXPECT_TRUE(key.spki().equals(rsaSpki)) << name;
  }
  KeyObj pkcs1;
  ASSERT_TRUE(pkcs1->LoadFromFile(XString(cryptofixtures::path("rsa2048.pub.der").c_str())));
  DataBuffer der;
  LogNull log;
  ASSERT_TRUE(pkcs1->getPublicKeyDer(true, der, log));
  EXPECT_TRUE(der.equals(file("rsa2048.pkcs1.der")));

  const struct { const char* name; const char* type; int bits; } others[] = {
      {"dsa1024.pub.der", "dsa", 1024}, {"ec_p256.pub.der", "ec", 256}, {"ec_k256.pub.der", "ec", 256},
      {"ec_p521.pub.der", "ec", 521}};
  for (const auto& o : others) {
    KeyObj key;
    EXPECT_TRUE(key->LoadFromFile(XString(cryptofixtures::path(o.name).c_str()))) << o.name;
    EXPECT_EQ(key.type(), o.type);
    EXPECT_EQ(key->get_NumBits(), o.bits);
    EXPECT_TRUE(key.spki().equals(file(o.name))) << o.name;
  }

  KeyObj missing;
  EXPECT_FALSE(missing->LoadFromFile(XString("/nonexistent/key.pem")));
  EXPECT_EQ(missing.type(), "");
  EXPECT_NE(missing->lastErrorText().find("Failed to open file."), std::string::npos);
  KeyObj garbage;
  EXPECT_FALSE(garbage->LoadFromFile(XString(cryptofixtures::path("data.bin").c_str())));
}

TEST(PublicKeyLoad, XmlKeyValues) {
  REQUIRE_SIG_FIXTURES();
  const struct { const char* xml; const char* der; const char* type; } cases[] = {
      {"rsa2048.keyvalue.xml", "rsa2048.pub.der", "rsa"},  // prefixed, "&#13;" line ends
      {"dsa1024.keyvalue.xml", "dsa1024.pub.der", "dsa"},
      {"ec_p256.keyvalue.xml", "ec_p256.pub.der", "ec"},   // XML-Signature 1.1 ECKeyValue
      {"ec_p256.rfc4050.xml", "ec_p256.pub.der", "ec"}};   // RFC 4050 ECDSAKeyValue
  for (const auto& c : cases) {
    const std::string xml = testsupport::readFile(cryptofixtures::path(c.xml));
    KeyObj viaPublic, viaInternal;
    EXPECT_TRUE(viaPublic->LoadXml(XString(xml.c_str()))) << c.xml << viaPublic->lastErrorText();
    EXPECT_EQ(viaPublic.type(), c.type);
    EXPECT_TRUE(viaPublic.spki().equals(file(c.der))) << c.xml;
    LogNull log;
    EXPECT_TRUE(viaInternal->loadXml(StringBuffer(xml), log)) << c.xml;
    EXPECT_TRUE(viaInternal.spki().equals(file(c.der))) << c.xml;
  }

  // The RSA key read from XML verifies what its private key signed.
  KeyObj rsa;
  ASSERT_TRUE(rsa->LoadXml(XString(testsupport::readFile(cryptofixtures::path("rsa2048.keyvalue.xml")).c_str())));
  const DataBuffer sig = file("rsa2048_sha256.sig"), hash = file("data.sha256");
  bool valid = false, mismatch = false;
  LogNull log;
  EXPECT_TRUE(RsaVerifier::verifyHashExt(sig.getData2(), sig.getSize(), hash.getData2(), hash.getSize(), 7, 1, 7, valid,
                                         *rsa->getPubKey().getRsaKey(), 0, true, mismatch, log));
  EXPECT_TRUE(valid);
}

TEST(PublicKeyLoad, MalformedXmlKeyValuesFailWithReason) {
  const struct { const char* xml; const char* error; } cases[] = {
      {"<Foo/>", "No RSAKeyValue, DSAKeyValue or ECKeyValue element found."},
      {"<RSAKeyValue><Modulus>!!notbase64</Modulus><Exponent>AQAB</Exponent></RSAKeyValue>",
       "RSAKeyValue needs base64 Modulus and Exponent."},
      {"<RSAKeyValue><Exponent>AQAB</Exponent></RSAKeyValue>", "RSAKeyValue needs base64 Modulus and Exponent."},
      {"<DSAKeyValue><P>AQAB</P><Q>AQAB</Q><Y>AQAB</Y></DSAKeyValue>", "DSAKeyValue needs base64 P, Q, G and Y."},
      {"<ECKeyValue><PublicKey>BAECAw==</PublicKey></ECKeyValue>",
       "The EC key value has no NamedCurve (explicit curve parameters are not supported)."},
      {"<ECKeyValue><NamedCurve URI=\"urn:oid:1.2.3.4\"/><PublicKey>BAECAw==</PublicKey></ECKeyValue>",
       "Unsupported elliptic curve."},
      // A point that is not on P-256.
      {"<ECKeyValue><NamedCurve URI=\"urn:oid:1.2.840.10045.3.1.7\"/><PublicKey>"
       "BAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAABAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAB"
       "</PublicKey></ECKeyValue>",
       "The EC point is not on the curve or is malformed."},
  };
  for (const auto& c : cases) {
    ClsPublicKey* key = ClsPublicKey::createNewCls();
    _btLogger log;
    EXPECT_FALSE(key->loadXml(StringBuffer(c.xml), log)) << c.xml;
    EXPECT_TRUE(log.containsText(c.error)) << c.xml << "\n" << log.renderText();
    EXPECT_TRUE(key->getPubKey().isEmpty());
    key->decRefCount();
  }
}

// The certificates and keys the interoperability vectors come with.
TEST(PublicKeyLoad, CorpusKeysAndCertificates) {
  REQUIRE_CORPUS();
  const std::string keys = testsupport::corpusDir() + "/interop/xmlsec/keys/";
  const struct { const char* file; const char* type; int bits; } cases[] = {
      {"rsa/rsa-4096-pubkey.crt", "rsa", 4096}, {"rsa/rsa-2048-pubkey.pem", "rsa", 2048},
      {"dsa/dsa-1024-pubkey.crt", "dsa", 1024}, {"dsa/dsa-2048-pubkey.der", "dsa", 2048},
      {"ec/ec-prime256v1-pubkey.crt", "ec", 256}, {"ec/ec-prime521v1-pubkey.crt", "ec", 521},
      {"ec/ec-prime384v1-pubkey.pem", "ec", 384}};
  for (const auto& c : cases) {
    KeyObj key;
    EXPECT_TRUE(key->LoadFromFile(XString((keys + c.file).c_str()))) << c.file << key->lastErrorText();
    EXPECT_EQ(key.type(), c.type) << c.file;
    EXPECT_EQ(key->get_NumBits(), c.bits) << c.file;
  }
  // Keys of algorithms the verifier has no use for are refused with the reason.
  KeyObj ed;
  EXPECT_FALSE(ed->LoadFromFile(XString((keys + "eddsa/eddsa-ed25519-pubkey.crt").c_str())));
  EXPECT_NE(ed->lastErrorText().find("Unsupported public key type."), std::string::npos);
}

}  // namespace
