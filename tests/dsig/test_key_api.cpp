// The public key and certificate API: GetCerts, GetPublicKey, SetPublicKey, SetHmacKey.
#include <gtest/gtest.h>

#include <regex>

#include "KeyTestFixtures.h"
#include "support/ClsStringArray.h"
#include "support/ClsXml.h"
#include "support/SupportTestHelpers.h"

using namespace keyfixtures;

namespace {

// GetCerts' result, its entries, and whether its log records the call as a failure.
struct CertsResult {
  bool ok;
  std::vector<std::string> certs;
  bool loggedFailed;
};

CertsResult getCerts(ClsXmlDSig& dsig) {
  RcPtr<ClsStringArray> array(ClsStringArray::createNewCls());
  CertsResult r{dsig.GetCerts(*array), {}, false};
  for (int i = 0; i < array->get_Count(); ++i) r.certs.push_back(array->getStringUtf8(i));
  r.loggedFailed = dsig.m_log.entries().back().children.back().text == "Failed.";
  return r;
}

}  // namespace

TEST(KeyApi, GetCertsGivesEmbeddedThenReferencedCertificatesOnce) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  auto vault = vaultWith({f.one.derPath, f.three.derPath});
  // "&amp;#13;" puts the character reference itself into the element's text, as some
  // signing software does.
  auto dsig = loadedVerifier(signatureDoc("<ds:X509Data><ds:X509Certificate>" + f.two.certBase64 +
                                          "</ds:X509Certificate><ds:X509Certificate>" +
                                          wrap64(f.one.certBase64, "&amp;#13;\n") + "</ds:X509Certificate>" +
                                          issuerSerial("CN=Key One,O=Example Org,C=US", "4096") + "</ds:X509Data>"));
  ASSERT_TRUE(dsig->UseCertVault(*vault));
  CertsResult r = getCerts(*dsig);
  EXPECT_TRUE(r.ok);
  EXPECT_TRUE(r.loggedFailed) << "GetCerts always records the call as failed";
  ASSERT_EQ(r.certs.size(), 2u);
  EXPECT_EQ(r.certs[0], f.two.certBase64);
  EXPECT_EQ(r.certs[1], wrap64(f.one.certBase64, "\n"));

  // Referenced by subject only: the store holds it (looked up with the components reversed).
  dsig = loadedVerifier(signatureDoc(
      "<ds:X509Data><ds:X509SubjectName>CN=Key Three, O=Example Org, C=US</ds:X509SubjectName></ds:X509Data>"));
  EXPECT_TRUE(getCerts(*dsig).certs.empty());
  ASSERT_TRUE(dsig->UseCertVault(*vault));
  EXPECT_EQ(dsig->m_log.entries().back().children.back().text, "Success.");
  EXPECT_EQ(getCerts(*dsig).certs, std::vector<std::string>{f.three.certBase64});

  dsig = loadedVerifier(signatureDoc(""));
  r = getCerts(*dsig);
  EXPECT_TRUE(r.ok);
  EXPECT_TRUE(r.certs.empty());
}

TEST(KeyApi, GetCertsFollowsTokenReferencesWithoutFallingBackToAnotherToken) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  auto docWith = [&](const std::string& uri, const std::string& tokenContent) {
    return signatureDoc(tokenReference(uri), x509v3Token("tok", tokenContent));
  };
  auto dsig = loadedVerifier(docWith("#tok", f.two.certBase64));
  EXPECT_EQ(getCerts(*dsig).certs, std::vector<std::string>{f.two.certBase64});

  dsig = loadedVerifier(docWith("#elsewhere", f.two.certBase64));
  EXPECT_FALSE(getCerts(*dsig).ok);
  EXPECT_TRUE(logprobe::hasError(dsig->m_log, "Failed to find the wsse:BinarySecurityToken element"));
  RcPtr<ClsPublicKey> key(dsig->GetPublicKey());  // nor does key resolution
  EXPECT_FALSE(key);

  dsig = loadedVerifier(docWith("#tok", "bm90IGEgY2VydGlmaWNhdGU="));
  CertsResult r = getCerts(*dsig);
  EXPECT_TRUE(r.ok);
  EXPECT_TRUE(r.certs.empty());
}

TEST(KeyApi, GetCertsAndGetPublicKeyOnCorpusDocuments) {
  REQUIRE_CORPUS();
  const std::regex certElement("<(?:\\w+:)?X509Certificate[^>]*>([^<]*)<");
  int checked = 0;
  for (const std::vector<std::string>& cols : supporttest::manifestRows("families.tsv")) {
    if (cols.size() < 5 || cols[4] != "yes") continue;
    auto dsig = loadedVerifier(testsupport::readFile(testsupport::corpusDir() + "/" + cols[2]));
    for (int sel = 0; sel < dsig->get_NumSignatures(); ++sel) {
      dsig->put_Selector(sel);
      RcPtr<ClsXml> keyInfo(dsig->GetKeyInfo());
      ASSERT_TRUE(keyInfo) << cols[0];
      // The certificates as the document's text carries them (character references of
      // CR and white space are not part of the base64).
      StringBuffer keyInfoXml;
      LogNull quiet;
      keyInfo->getXml(false, keyInfoXml, quiet);
      std::vector<std::string> expected;
      for (std::sregex_iterator it(keyInfoXml.str().begin(), keyInfoXml.str().end(), certElement), end; it != end; ++it)
        expected.push_back(unbase64(std::regex_replace(it->str(1), std::regex("&#13;|&#xD;"), "")));

      CertsResult r = getCerts(*dsig);
      // This message's token reference names a token it does not carry.
      EXPECT_EQ(r.ok, cols[0] != "wss-signxml-soap_request") << cols[0];
      std::vector<std::string> got;
      for (const std::string& c : r.certs) {
        EXPECT_EQ(c.find("&#"), std::string::npos) << cols[0];
        got.push_back(unbase64(c));
      }
      EXPECT_EQ(got, expected) << cols[0] << " signature " << sel;
      RcPtr<ClsPublicKey> key(dsig->GetPublicKey());
      EXPECT_TRUE(key) << cols[0] << " signature " << sel;
      ++checked;
    }
  }
  EXPECT_GT(checked, 60);
}

TEST(KeyApi, SetPublicKeyKeepsOneKeyPerSignatureIndexAcrossLoads) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  auto first = keyFromFile(f.one.derPath);
  auto second = keyFromFile(f.two.derPath);
  ASSERT_TRUE(dsig->SetPublicKey(*first));  // before any document
  ASSERT_TRUE(dsig->SetPublicKey(*second));
  EXPECT_EQ(first->getRefCount(), 1) << "the replaced key is released";

  XString doc(signatureDoc("").c_str());
  ASSERT_TRUE(dsig->LoadSignature(doc));
  ExtPtrArrayRc keys;
  _btLogger log;
  ASSERT_TRUE(dsig->getPublicKey(false, keys, log));
  ASSERT_EQ(keys.getSize(), 1);
  EXPECT_EQ(keyDer(keys.elementAt(0)), f.two.spkiDer);
  EXPECT_EQ(dsig->GetPublicKey(), nullptr) << "the caller's key is never handed back as the document's";

  std::string many;
  for (int i = 0; i < 201; ++i) many += "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"/>";
  XString manyDoc(("<root>" + many + "</root>").c_str());
  ASSERT_TRUE(dsig->LoadSignature(manyDoc));
  dsig->put_Selector(199);
  EXPECT_TRUE(dsig->SetPublicKey(*first));
  dsig->put_Selector(200);
  EXPECT_FALSE(dsig->SetPublicKey(*first));
  EXPECT_TRUE(logprobe::hasError(dsig->m_log, "Selector index is not sane."));
  EXPECT_EQ(logprobe::value(dsig->m_log, "m_selector"), "200");
}

TEST(KeyApi, SetHmacKeyDecodesInTheNamedEncodingAndWipesThePreviousKey) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  XString key("0a0B10"), bad("not hex"), hex("hex");
  ASSERT_TRUE(dsig->SetHmacKey(key, hex));
  EXPECT_TRUE(key.isSecure());
  EXPECT_EQ(dsig->m_hmacKey.view(), std::string("\x0a\x0b\x10", 3));
  EXPECT_FALSE(dsig->SetHmacKey(bad, hex));
  EXPECT_EQ(dsig->m_hmacKey.getSize(), 0u);
}
