// Certificate decoding: cleaning of character references, the de-duplication keys, DN
// reversal and PKI paths.
#include <gtest/gtest.h>

#include "KeyTestFixtures.h"
#include "crypto/StringHashSet.h"

using namespace keyfixtures;

TEST(CertLookup, CertificateTextIsCleanedInPlaceDecodedAndRecorded) {
  REQUIRE_KEY_FIXTURES();
  const Fixtures& f = fixtures();
  auto dsig = loadedVerifier(signatureDoc(""));
  StringBuffer text(wrap64(f.one.certBase64, "&#13;\n"));
  text.replaceFirstOccurance("&#13;", "&#xD;", false);
  StringHashSet seen;
  _btLogger log;
  ASSERT_TRUE(dsig->processCertBase64(text, seen, log));
  EXPECT_FALSE(text.containsSubstring("&#"));
  EXPECT_EQ(unbase64(text.str()), f.one.certDer);
  EXPECT_TRUE(seen.contains("Key One:1000"));
  EXPECT_EQ(seen.size(), 2u);  // and the subject's canonical key
  RcPtr<ClsPublicKey> key(dsig->publicKeyFromCertBase64(text, seen, log));
  ASSERT_TRUE(key);
  EXPECT_EQ(keyDer(key.get()), f.one.spkiDer);

  const std::pair<const char*, const char*> failures[] = {{"!!not base64!!", "Failed to decode base64 cert."},
                                                          {"AAAA", "Failed to parse X.509 certificate."}};
  for (const auto& [bad, message] : failures) {
    StringHashSet untouched;
    StringBuffer badText(bad);
    EXPECT_FALSE(dsig->processCertBase64(badText, untouched, log));
    EXPECT_TRUE(logprobe::hasError(log, message)) << bad;
    EXPECT_EQ(dsig->publicKeyFromCertBase64(badText, untouched, log), nullptr);
    EXPECT_EQ(untouched.size(), 0u);
  }
}

TEST(CertLookup, SubjectNameComponentsAreReversedTextually) {
  const std::pair<const char*, const char*> cases[] = {
      {"CN=Alice, O=Example,L=Paris", "L=Paris, O=Example, CN=Alice"},
      {"CN=Alice", "CN=Alice"},
      {"", ""},
      {"CN=Smith\\, John,O=Acme", "O=Acme, John, CN=Smith\\"},  // an escaped comma splits too
  };
  for (const auto& [dn, reversed] : cases) {
    StringBuffer out;
    ClsXmlDSig::reverseSubjectNameDN(StringBuffer(dn), out);
    EXPECT_EQ(out.str(), reversed) << dn;
  }
}

// The last-certificate case is covered through a token reference in the KeyInfo tests.
TEST(CertLookup, MalformedPkiPathsAreRefused) {
  auto dsig = loadedVerifier(signatureDoc(""));
  _btLogger log;
  StringBuffer out;
  EXPECT_FALSE(dsig->pkiPathV1_to_cert(StringBuffer(base64(derSequence(""))), out, log));
  EXPECT_TRUE(logprobe::hasError(log, "Invalid binary security token content.."));
  EXPECT_FALSE(dsig->pkiPathV1_to_cert(StringBuffer(base64("\x30\x7f\x02")), out, log));  // truncated DER
  EXPECT_TRUE(logprobe::hasError(log, "Invalid binary security token content."));
  EXPECT_TRUE(out.isEmpty());
}
