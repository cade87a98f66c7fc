// Candidate keys from KeyInfo: the order of the sources, what stops resolution, the store
// lookups by reference, and WS-Security token references.
#include <gtest/gtest.h>

#include "KeyTestFixtures.h"
#include "support/ClsXml.h"

using namespace keyfixtures;

namespace {

std::vector<std::string> resolve(ClsXmlDSig& dsig, bool keyInfoOnly, _btLogger& log, bool* result = nullptr) {
  ExtPtrArrayRc keys;
  const bool ok = dsig.getPublicKey(keyInfoOnly, keys, log);
  if (result) *result = ok;
  std::vector<std::string> ders;
  for (int i = 0; i < keys.getSize(); ++i) ders.push_back(keyDer(keys.elementAt(i)));
  return ders;
}

}  // namespace

TEST(KeyInfoKeys, KeyValuesFirstThenEmbeddedCertificatesInDocumentOrder) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  auto dsig = loadedVerifier(
      signatureDoc(rsaKeyValue(f.one.modulusBase64) + x509Data({f.two.certBase64, f.one.certBase64, ""})));
  _btLogger log;
  EXPECT_EQ(resolve(*dsig, true, log), (std::vector<std::string>{f.one.spkiDer, f.two.spkiDer, f.one.spkiDer}));
  EXPECT_TRUE(log.containsText("Loaded public key from RSA XML in KeyInfo."));
  EXPECT_EQ(logprobe::value(log, "numX509Certificates"), "3");
}

TEST(KeyInfoKeys, MalformedKeyValueStopsResolutionButTheCallerKeyStillFollows) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  auto dsig = loadedVerifier(
      signatureDoc("<ds:KeyValue><ds:RSAKeyValue><ds:Exponent>AQAB</ds:Exponent></ds:RSAKeyValue></ds:KeyValue>" +
                   x509Data({f.one.certBase64})));
  ASSERT_TRUE(dsig->SetPublicKey(*keyFromFile(f.two.derPath)));
  _btLogger log;
  bool ok = true;
  EXPECT_TRUE(resolve(*dsig, true, log, &ok).empty());
  EXPECT_FALSE(ok);
  EXPECT_TRUE(logprobe::hasError(log, "Failed to parse public key RSA XML"));
  EXPECT_EQ(logprobe::value(log, "numX509Certificates"), "<absent>");
  EXPECT_EQ(resolve(*dsig, false, log, &ok), std::vector<std::string>{f.two.spkiDer});
  EXPECT_TRUE(ok);
}

TEST(KeyInfoKeys, IssuerSerialAsksTheStoreByIssuerCnAndHexSerialUnlessEmbedded) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  auto vault = vaultWith({f.one.derPath, f.two.derPath, f.noCn.derPath});
  struct Case {
    std::string x509DataContent;
    std::vector<std::string> keys;
    bool storeAsked;
    std::string serialHex;
  } cases[] = {
      // Embedded and referenced: its CN-and-serial key is already known, the store is not asked.
      {"<ds:X509Certificate>" + f.one.certBase64 + "</ds:X509Certificate>" +
           issuerSerial("CN=Key One,O=Example Org,C=US", "4096"),
       {f.one.spkiDer},
       false,
       "1000"},
      {issuerSerial("CN= Key Two ,O=Example Org,C=US", "255"), {f.two.spkiDer}, true, "FF"},
      {issuerSerial("O=No Common Name Org,C=US", "12"), {}, false, "0C"},
  };
  for (const Case& c : cases) {
    auto dsig = loadedVerifier(signatureDoc("<ds:X509Data>" + c.x509DataContent + "</ds:X509Data>"));
    ASSERT_TRUE(dsig->UseCertVault(*vault));
    _btLogger log;
    EXPECT_EQ(resolve(*dsig, true, log), c.keys) << c.x509DataContent;
    EXPECT_EQ(logprobe::hasContext(log, "getPublicKeyByIssuerNameAndSerial"), c.storeAsked) << c.x509DataContent;
    EXPECT_EQ(logprobe::value(log, "sbSerialNumber_hex"), c.serialHex);
  }
}

TEST(KeyInfoKeys, TokenReferencesToBinarySecurityTokens) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  {  // Exactly the token carrying the Id: a missing or repeated Id yields no key, never another token.
    const std::string twoTokens = x509v3Token("tok-2", f.two.certBase64) + x509v3Token("tok-1", f.one.certBase64);
    const struct {
      const char* uri;
      std::string tokens;
      std::vector<std::string> keys;
    } cases[] = {{"#tok-1", twoTokens, {f.one.spkiDer}},
                 {"#nobody", twoTokens, {}},
                 {"#tok-2", x509v3Token("tok-2", f.two.certBase64) + x509v3Token("tok-2", f.one.certBase64), {}}};
    for (const auto& c : cases) {
      auto dsig = loadedVerifier(signatureDoc(tokenReference(c.uri), c.tokens));
      _btLogger log;
      EXPECT_EQ(resolve(*dsig, true, log), c.keys) << c.uri;
      EXPECT_EQ(logprobe::value(log, "URI"), c.uri);
      if (c.keys.empty()) {
        const std::string id = std::string(c.uri).substr(1);
        EXPECT_TRUE(logprobe::hasError(log, "Security token reference: \"" + id + "\" identifies " +
                                                (id == "nobody" ? "0" : "2") +
                                                " elements; exactly one, a BinarySecurityToken, must carry it."))
            << c.uri;
      }
    }
  }
  {  // A PKI path token gives its last certificate.
    const std::string path = base64(derSequence(f.one.certDer + f.two.certDer + f.three.certDer));
    const std::string pathType =
        "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-x509-token-profile-1.0#X509PKIPathv1";
    auto dsig = loadedVerifier(signatureDoc(tokenReference("#p", pathType), x509v3Token("p", path, pathType)));
    _btLogger log;
    EXPECT_EQ(resolve(*dsig, true, log), std::vector<std::string>{f.three.spkiDer});
    EXPECT_TRUE(log.containsText("Getting last cert from X509PKIPathv1..."));
  }
  {  // A reference that is not "#id": false, but keys found before it stay.
    auto dsig = loadedVerifier(signatureDoc(x509Data({f.one.certBase64}) + tokenReference("cid:part1")));
    _btLogger log;
    ExtPtrArrayRc keys;
    EXPECT_FALSE(dsig->publicKeyFromKeyInfo(RcPtr<ClsXml>(dsig->getKeyInfo(log)).get(), keys, log));
    EXPECT_EQ(keys.getSize(), 1);
    EXPECT_TRUE(log.containsText("Unhandled security token reference."));
    EXPECT_EQ(logprobe::value(log, "uri"), "cid:part1");
    EXPECT_EQ(logprobe::value(log, "valueType"), kX509v3);
  }
}

TEST(KeyInfoKeys, ThumbprintIdentifierTakesTheTokenWithThatThumbprint) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  const auto keyIdentifier = [](const std::string& thumbprint) {
    return "<wsse:SecurityTokenReference><wsse:KeyIdentifier ValueType=\"http://docs.oasis-open.org/wss/"
           "oasis-wss-soap-message-security-1.1#ThumbprintSHA1\">" +
           thumbprint + "</wsse:KeyIdentifier></wsse:SecurityTokenReference>";
  };
  const std::string tokens = x509v3Token("other", "AAAA", "urn:example:not-a-certificate") +
                             x509v3Token("first", f.two.certBase64) + x509v3Token("second", f.one.certBase64);
  auto dsig = loadedVerifier(signatureDoc(keyIdentifier(f.one.sha1Base64), tokens));
  _btLogger log;
  EXPECT_EQ(resolve(*dsig, true, log), std::vector<std::string>{f.one.spkiDer});
  EXPECT_EQ(logprobe::value(log, "sbKeyIdentData"), f.one.sha1Base64);

  // A thumbprint no token has: no key, not the first token's.
  auto none = loadedVerifier(signatureDoc(keyIdentifier(f.three.sha1Base64), tokens));
  _btLogger noneLog;
  EXPECT_EQ(resolve(*none, true, noneLog), std::vector<std::string>{});
  EXPECT_TRUE(logprobe::hasError(
      noneLog, "No X.509 BinarySecurityToken of the document has the SHA-1 thumbprint the KeyIdentifier names."));
}

TEST(KeyInfoKeys, MissingKeyInfoIsReportedOnlyForASelectedSignature) {
  std::unique_ptr<ClsXmlDSig> empty(ClsXmlDSig::createNewCls());
  EXPECT_EQ(empty->GetKeyInfo(), nullptr);
  EXPECT_FALSE(logprobe::hasError(empty->m_log, "No KeyInfo child."));
  auto dsig = loadedVerifier(signatureDoc(""));
  EXPECT_EQ(dsig->GetKeyInfo(), nullptr);
  EXPECT_TRUE(logprobe::hasError(dsig->m_log, "No KeyInfo child."));
}
