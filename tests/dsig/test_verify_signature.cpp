// VerifySignature end to end on documents signed by xmlsec1 and openssl at test time
// (tests/tools/make_verify_fixtures.sh) and on corpus documents: every reference before
// the key, locating the signature, RSA padding, the order in which keys are tried,
// canonicalization fallback, ZATCA invoices, DSA and ECDSA. HMAC secrets and external
// data are the CLI tests' (test_cli_verify.cpp).
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SignedFixtures.h"
#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

using testsupport::readFile;

using signedfixtures::fixtures;
using signedfixtures::replaced;

dsigtest::DSigPtr loaded(const std::string& xml, const char* options = "") {
  dsigtest::DSigPtr d = dsigtest::newVerifier();
  d->put_UncommonOptions(XString(options));
  EXPECT_TRUE(dsigtest::loadText(*d, xml)) << d->lastErrorLine();
  return d;
}

void supplyKey(ClsXmlDSig& d, const std::string& file) {
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  ASSERT_TRUE(key->LoadFromFile(XString(file.c_str()))) << file;
  ASSERT_TRUE(d.SetPublicKey(*key));
}

// One character of the SignatureValue content changed.
std::string withBadSignatureValue(std::string text) {
  const size_t at = text.find('>', text.find("SignatureValue")) + 10;
  text[at] = text[at] == 'A' ? 'B' : 'A';
  return text;
}

// The certificate of a PEM file as the content of an X509Certificate element.
std::string certBase64(const std::string& pemFile) {
  const std::string pem = readFile(pemFile);
  const size_t begin = pem.find('\n', pem.find("-----BEGIN")) + 1;
  const size_t end = pem.find("-----END");
  std::string out;
  for (size_t i = begin; i < end; ++i)
    if (pem[i] != '\n' && pem[i] != '\r') out += pem[i];
  return out;
}

// pkcs1.xml (no KeyInfo) with a KeyInfo holding these certificates, in this order.
std::string pkcs1WithCerts(const std::vector<std::string>& certFiles) {
  std::string keyInfo = "<KeyInfo><X509Data>";
  for (const std::string& f : certFiles)
    keyInfo += "<X509Certificate>" + certBase64(fixtures().path(f)) + "</X509Certificate>";
  keyInfo += "</X509Data></KeyInfo></Signature>";
  return replaced(fixtures().text("pkcs1.xml"), "</Signature>", keyInfo);
}

int indexOf(const std::vector<std::string>& v, const std::string& s) {
  for (size_t i = 0; i < v.size(); ++i)
    if (v[i] == s) return static_cast<int>(i);
  return -1;
}

}  // namespace

TEST(VerifySignature, EveryReferenceIsCheckedBeforeAnyKeyIsLookedUp) {
  REQUIRE_FIXTURES();
  const std::string intact = fixtures().text("two-refs.xml");
  EXPECT_TRUE(loaded(intact)->VerifySignature(true));

  struct Case {
    const char* from;
    const char* to;
    const char* failedIndex;
    int refFailReason;  // that of the last reference checked
  };
  for (const Case& c : {Case{"<Item>alpha</Item>", "<Item>alphA</Item>", "0", 0},
                        Case{"<Item>beta</Item>", "<Item>betA</Item>", "1", 1}}) {
    SCOPED_TRACE(c.from);
    auto d = loaded(replaced(intact, c.from, c.to));
    EXPECT_FALSE(d->VerifySignature(true));
    EXPECT_EQ(logprobe::countContexts(d->m_log, "verifyReferenceDigest"), 2);  // no early stop after a failure
    EXPECT_EQ(logprobe::value(d->m_log, "refFailureCount"), "1");
    EXPECT_EQ(logprobe::value(d->m_log, "referenceIndex"), c.failedIndex);
    EXPECT_TRUE(logprobe::hasError(d->m_log, "Failed to verify reference digest"));
    EXPECT_EQ(d->get_RefFailReason(), c.refFailReason);
    EXPECT_EQ(logprobe::countContexts(d->m_log, "getXmlDsigPublicKey"), 0);
    EXPECT_EQ(logprobe::value(d->m_log, "signedInfo"), "<absent>");

    // Without the references only the signature value counts, and it is intact.
    EXPECT_TRUE(d->VerifySignature(false)) << d->lastErrorText();
    EXPECT_EQ(logprobe::countContexts(d->m_log, "verifyReferenceDigest"), 0);
    EXPECT_EQ(logprobe::value(d->m_log, "verifyReferenceDigests"), "0");
    EXPECT_NE(logprobe::find(d->m_log.entries(), "The RSA signature was verified."), nullptr);
  }

  auto both = loaded(
      replaced(replaced(intact, "<Item>alpha</Item>", "<Item>x</Item>"), "<Item>beta</Item>", "<Item>y</Item>"));
  EXPECT_FALSE(both->VerifySignature(true));
  EXPECT_EQ(logprobe::value(both->m_log, "refFailureCount"), "2");

  auto badValue = loaded(withBadSignatureValue(intact));
  EXPECT_FALSE(badValue->VerifySignature(false));
  EXPECT_TRUE(logprobe::hasError(badValue->m_log, "RSA verify hash found the signature to be invalid."));
}

TEST(VerifySignature, LocatesASignatureWithoutIdByTheDigestOfItsFirstReference) {
  REQUIRE_FIXTURES();
  // Two signatures without Id in one document: each is found through its own first digest,
  // so the second one's SignedInfo is the one canonicalized and checked.
  auto d = loaded(fixtures().text("two-no-id.xml"));
  ASSERT_EQ(d->get_NumSignatures(), 2);
  for (int selector : {0, 1}) {
    SCOPED_TRACE(selector);
    d->put_Selector(selector);
    supplyKey(*d, fixtures().path("rsa-pub.pem"));  // the caller's key belongs to the selected signature
    EXPECT_TRUE(d->VerifySignature(true)) << d->lastErrorText();
    EXPECT_EQ(logprobe::value(d->m_log, "SignatureId"), "");
    const std::string signedInfo = logprobe::value(d->m_log, "signedInfo");
    EXPECT_NE(signedInfo.find("#part-" + std::to_string(selector + 1)), std::string::npos) << signedInfo;
  }
}

TEST(VerifySignature, RsaPaddingFollowsTheSignatureMethod) {
  REQUIRE_FIXTURES();
  struct Case {
    const char* file;
    bool valid;
  };
  // pss-as-pkcs1: rsa-sha256 declared, PSS value; pkcs1-as-pss: MGF1 declared, PKCS#1 value.
  for (const Case& c : {Case{"pkcs1.xml", true}, Case{"pss.xml", true}, Case{"pss-as-pkcs1.xml", false},
                        Case{"pkcs1-as-pss.xml", false}}) {
    SCOPED_TRACE(c.file);
    auto d = loaded(fixtures().text(c.file));
    supplyKey(*d, fixtures().path("rsa-pub.pem"));
    EXPECT_EQ(d->VerifySignature(true), c.valid) << d->lastErrorText();
    EXPECT_EQ(logprobe::value(d->m_log, "numCandidateKeys"), "1");
    if (!c.valid) {
      EXPECT_EQ(d->lastErrorLine(), "RSA verify hash found the signature to be invalid.");
    }
  }
  // rsa-pss with RSAPSSParams: the digest, MGF1 digest and salt length are the signer's,
  // and a value made with other ones does not verify; only trailer field 1 exists.
  for (const Case& c : {Case{"pss-params.xml", true}, Case{"pss-params-other-salt.xml", false},
                        Case{"pss-params-other-mgf.xml", false}, Case{"pss-params-trailer2.xml", false}}) {
    SCOPED_TRACE(c.file);
    auto d = loaded(fixtures().text(c.file));
    supplyKey(*d, fixtures().path("rsa-pub.pem"));
    EXPECT_EQ(d->VerifySignature(true), c.valid) << d->lastErrorText();
  }
  auto trailer = loaded(fixtures().text("pss-params-trailer2.xml"));
  supplyKey(*trailer, fixtures().path("rsa-pub.pem"));
  EXPECT_FALSE(trailer->VerifySignature(true));
  EXPECT_TRUE(
      logprobe::hasError(trailer->m_log, "Unsupported RSAPSSParams TrailerField (only 1 is defined for RSA-PSS)."));

  auto pss = loaded(fixtures().text("pss.xml"));
  supplyKey(*pss, fixtures().path("cert.pem"));
  EXPECT_TRUE(pss->VerifySignature(true));
  EXPECT_EQ(logprobe::value(pss->m_log, "SignatureMethod"), "http://www.w3.org/2007/05/xmldsig-more#sha256-rsa-MGF1");
}

TEST(VerifySignature, EveryCandidateKeyIsTriedUntilOneVerifies) {
  REQUIRE_FIXTURES();
  // A 1024-bit key from KeyInfo does not fit a 2048-bit signature; the caller's key follows.
  auto d = loaded(pkcs1WithCerts({"small-cert.pem"}));
  supplyKey(*d, fixtures().path("rsa-pub.pem"));
  EXPECT_TRUE(d->VerifySignature(true)) << d->lastErrorText();
  EXPECT_EQ(logprobe::value(d->m_log, "numCandidateKeys"), "2");
  EXPECT_EQ(logprobe::value(d->m_log, "verifyingKeyIndex"), "1");
  const std::vector<std::string> seen = logprobe::lines(d->m_log);
  const int mismatch = indexOf(seen, "Not the correct key.");
  ASSERT_GE(mismatch, 0);
  EXPECT_GT(indexOf(seen, "The RSA signature was verified."), mismatch);

  // A key of the right size that does not verify (a CA certificate listed before the
  // signer's) does not end the search: the right key after it verifies.
  auto caFirst = loaded(pkcs1WithCerts({"other-cert.pem", "cert.pem"}));
  EXPECT_TRUE(caFirst->VerifySignature(true)) << caFirst->lastErrorText();
  EXPECT_EQ(logprobe::value(caFirst->m_log, "verifyingKeyIndex"), "1");

  // Keys of the right size that all fail: the signature is invalid, with what was hashed.
  auto wrong = loaded(pkcs1WithCerts({"other-cert.pem", "small-cert.pem"}));
  EXPECT_FALSE(wrong->VerifySignature(true));
  EXPECT_EQ(logprobe::value(wrong->m_log, "numCandidateKeys"), "2");
  EXPECT_EQ(logprobe::value(wrong->m_log, "verifyingKeyIndex"), "<absent>");
  EXPECT_TRUE(logprobe::hasError(wrong->m_log, "RSA verify hash found the signature to be invalid."));
  EXPECT_EQ(logprobe::find(wrong->m_log.entries(), "The RSA signature was verified."), nullptr);
  EXPECT_EQ(logprobe::value(wrong->m_log, "canonicalizationMethod"), "http://www.w3.org/TR/2001/REC-xml-c14n-20010315");
  EXPECT_EQ(logprobe::value(wrong->m_log, "signedInfoHash").size(), 64u);
  EXPECT_EQ(logprobe::value(wrong->m_log, "canonicalizedSignedInfo").rfind("<SignedInfo xmlns=", 0), 0u);

  // The right key first verifies.
  auto rightFirst = loaded(pkcs1WithCerts({"cert.pem", "other-cert.pem"}));
  EXPECT_TRUE(rightFirst->VerifySignature(true));
  EXPECT_EQ(logprobe::value(rightFirst->m_log, "verifyingKeyIndex"), "0");

  auto none = loaded(fixtures().text("pkcs1.xml"));
  EXPECT_FALSE(none->VerifySignature(true));
  EXPECT_EQ(none->lastErrorLine(), "No public key available to verify signature.");
}

// A signature over SignedInfo canonicalized inclusively, but naming a method nobody knows:
// refused with the URI, never read with a method of our choosing.
TEST(VerifySignature, UnknownCanonicalizationMethodIsRefusedWithItsUri) {
  REQUIRE_FIXTURES();
  auto d = loaded(fixtures().text("unknown-c14n.xml"));
  supplyKey(*d, fixtures().path("rsa-pub.pem"));
  EXPECT_FALSE(d->VerifySignature(true));
  EXPECT_EQ(d->lastErrorLine(), "Unknown canonicalization method: urn:example:unknown-c14n");
}

TEST(VerifySignature, NoSignatureOrNoReference) {
  auto empty = loaded("<Doc><Item>unsigned</Item></Doc>");
  EXPECT_FALSE(empty->VerifySignature(true));
  EXPECT_EQ(empty->lastErrorLine(), "There are no signatures.");

  const std::string noRefs =
      "<Doc><ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\" Id=\"s\"><ds:SignedInfo>"
      "<ds:CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>"
      "<ds:SignatureMethod Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256\"/>"
      "</ds:SignedInfo><ds:SignatureValue>QUJD</ds:SignatureValue></ds:Signature></Doc>";
  for (bool withReferences : {true, false}) {
    auto d = loaded(noRefs);
    EXPECT_FALSE(d->VerifySignature(withReferences));
    EXPECT_EQ(d->lastErrorLine(), "There are no references.");
    EXPECT_EQ(logprobe::value(d->m_log, "SignatureId"), "s");
  }
}

TEST(VerifySignature, ZatcaInvoiceIsSignedOverTheHashOfItsInvoiceHash) {
  REQUIRE_CORPUS();
  const std::string invoice = readFile(testsupport::corpusDir() +
                                       "/families/zatca/zatca-sdk348-simplified_invoice/Simplified_Invoice.xml");
  ASSERT_FALSE(invoice.empty());
  auto d = loaded(invoice, "ZATCA");
  EXPECT_TRUE(d->VerifySignature(true)) << d->lastErrorText();
  EXPECT_NE(logprobe::find(d->m_log.entries(), "Will validate according to ZATCA rules..."), nullptr);
  EXPECT_EQ(logprobe::value(d->m_log, "signedInfo"), "<absent>");
  EXPECT_EQ(logprobe::value(d->m_log, "numCandidateKeys"), "1");

  // SignedInfo itself is not what is signed: changing the second reference's digest leaves the
  // signature value valid, changing the invoice hash (the first digest) does not.
  const std::string firstDigest = "z5F9qsS6oWyDhehD8u8S0DaxV+2CUiUz9Y+UsR61JgQ=";
  const std::string secondDigest = "<ds:DigestValue>ZmMwY2ZhNDlj";
  auto otherSecond = loaded(replaced(invoice, secondDigest, "<ds:DigestValue>ZmMwY2ZhNDll"), "ZATCA");
  EXPECT_TRUE(otherSecond->VerifySignature(false)) << otherSecond->lastErrorText();
  auto otherFirst = loaded(replaced(invoice, firstDigest, "A5F9qsS6oWyDhehD8u8S0DaxV+2CUiUz9Y+UsR61JgQ="), "ZATCA");
  EXPECT_FALSE(otherFirst->VerifySignature(false));
  EXPECT_EQ(otherFirst->lastErrorLine(), "ECDSA verify hash found the signature to be invalid.");
}

TEST(VerifySignature, DsaAndEcdsaFromTheCorpus) {
  REQUIRE_CORPUS();
  const std::string corpus = testsupport::corpusDir() + "/interop/xmlsec/";
  struct Case {
    const char* file;
    const char* key;  // supplied by the caller, or "" when in KeyInfo
    const char* countKey;
    const char* invalidLine;
  };
  for (const Case& c : {Case{"aleksey-xmldsig-01/enveloped-sha1-dsa-sha1.xml", "keys/dsa/dsa-1024-pubkey.crt",
                             "numCandidateKeys", "DSA verify hash failed."},
                        Case{"xmldsig11-interop-2012/signature-enveloping-p256_sha256.xml", "", "numCandidateKeys",
                             "ECDSA verify hash found the signature to be invalid."},
                        Case{"xmldsig11-interop-2012/signature-enveloping-p384_sha384.xml", "", "numCandidateKeys",
                             "ECDSA verify hash found the signature to be invalid."}}) {
    SCOPED_TRACE(c.file);
    const std::string xml = readFile(corpus + c.file);
    ASSERT_FALSE(xml.empty());
    for (bool tampered : {false, true}) {
      auto d = loaded(tampered ? withBadSignatureValue(xml) : xml);
      if (*c.key) supplyKey(*d, corpus + c.key);
      EXPECT_EQ(d->VerifySignature(true), !tampered) << d->lastErrorText();
      EXPECT_NE(logprobe::value(d->m_log, c.countKey), "<absent>");
      if (tampered) {
        EXPECT_EQ(d->lastErrorLine(), c.invalidLine);
      }
    }
  }
}
