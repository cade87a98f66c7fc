// ClsPublicKey loading: PEM and DER keys, certificates, and the XML key-value forms.
#include <string>

#include "CryptoFixtures.h"
#include "support/XString.h"

using namespace cryptofixtures;

TEST(PublicKeyLoad, KeyAndCertificateFilesInPemAndDer) {
  REQUIRE_SIG_FIXTURES();
  const std::string interop = testsupport::corpusDir() + "/interop/xmlsec/keys/";
  const struct {
    std::string file;
    const char* type;
    int bits;
    std::string spki;
  } cases[] = {{"rsa2048.pub.pem", "rsa", 2048, "rsa2048.pub.der"},
               {"rsa2048.pub.der", "rsa", 2048, "rsa2048.pub.der"},
               {"rsa2048.pkcs1.der", "rsa", 2048, "rsa2048.pub.der"},
               {"rsa2048.pkcs1.pem", "rsa", 2048, "rsa2048.pub.der"},
               {"rsa2048.crt.pem", "rsa", 2048, "rsa2048.pub.der"},
               {"rsa2048.crt.der", "rsa", 2048, "rsa2048.pub.der"},
               {"dsa1024.pub.der", "dsa", 1024, "dsa1024.pub.der"},
               {"ec_p256.pub.der", "ec", 256, "ec_p256.pub.der"},
               {"ec_k256.pub.der", "ec", 256, "ec_k256.pub.der"},
               {"ec_p521.pub.der", "ec", 521, "ec_p521.pub.der"},
               // The certificates and keys the interoperability vectors come with.
               {interop + "rsa/rsa-4096-pubkey.crt", "rsa", 4096, ""},
               {interop + "dsa/dsa-2048-pubkey.der", "dsa", 2048, ""},
               {interop + "ec/ec-prime521v1-pubkey.crt", "ec", 521, ""},
               {interop + "ec/ec-prime384v1-pubkey.pem", "ec", 384, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    if (c.spki.empty() && testsupport::corpusDir().empty()) continue;
    Key key(c.file);
    EXPECT_TRUE(key.loaded) << key.obj->lastErrorText();
    EXPECT_EQ(key.type(), c.type);
    EXPECT_EQ(key.obj->get_NumBits(), c.bits);
    EXPECT_TRUE(c.spki.empty() || key.spki().equals(file(c.spki)));
  }
  Key pkcs1("rsa2048.pub.der");
  DataBuffer der;
  LogNull log;
  ASSERT_TRUE(pkcs1.obj->getPublicKeyDer(true, der, log));
  EXPECT_TRUE(der.equals(file("rsa2048.pkcs1.der")));

  Key missing("/nonexistent/key.pem");
  EXPECT_FALSE(missing.loaded);
  EXPECT_EQ(missing.type(), "");
  EXPECT_NE(missing.obj->lastErrorText().find("Failed to open file."), std::string::npos);
  EXPECT_FALSE(Key("data.bin").loaded);
  if (!testsupport::corpusDir().empty()) {  // EdDSA certificates
    Key ed(interop + "eddsa/eddsa-ed25519-pubkey.crt");
    EXPECT_TRUE(ed.loaded);
    EXPECT_EQ(ed.type(), "ed25519");
    EXPECT_EQ(Key(interop + "eddsa/eddsa-ed448-pubkey.crt").type(), "ed448");
  }
}

TEST(PublicKeyLoad, XmlKeyValues) {
  REQUIRE_SIG_FIXTURES();
  const struct {
    const char *xml, *der, *type;
  } cases[] = {{"rsa2048.keyvalue.xml", "rsa2048.pub.der", "rsa"},  // prefixed, "&#13;" line ends
               {"dsa1024.keyvalue.xml", "dsa1024.pub.der", "dsa"},
               {"ec_p256.keyvalue.xml", "ec_p256.pub.der", "ec"},  // XML-Signature 1.1 ECKeyValue
               {"ec_p256.rfc4050.xml", "ec_p256.pub.der", "ec"}};  // RFC 4050 ECDSAKeyValue
  for (const auto& c : cases) {
    const std::string xml = testsupport::readFile(path(c.xml));
    Key key;
    EXPECT_TRUE(key.obj->LoadXml(XString(xml.c_str()))) << c.xml << key.obj->lastErrorText();
    EXPECT_EQ(key.type(), c.type);
    EXPECT_TRUE(key.spki().equals(file(c.der))) << c.xml;
  }
}

TEST(PublicKeyLoad, MalformedXmlKeyValuesFailWithReason) {
  const struct {
    const char *xml, *error;
  } cases[] = {
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
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    _btLogger log;
    EXPECT_FALSE(key->loadXml(StringBuffer(c.xml), log)) << c.xml;
    EXPECT_TRUE(log.containsText(c.error)) << c.xml << "\n" << log.renderText();
    EXPECT_TRUE(key->getPubKey().isEmpty());
  }
}
