// Algorithm URIs that are not known exactly (tests/dsig/data/algorithm-uris.tsv): each
// makes a genuinely signed document fail with the URI in the reason, instead of being
// read as the algorithm it resembles.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "SignedFixtures.h"
#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"

namespace {

using signedfixtures::fixtures;
using signedfixtures::replaced;

struct UriCase {
  int line = 0;
  std::string kind, uri;
};

std::string unescaped(std::string s) {
  for (size_t at; (at = s.find("\\s")) != std::string::npos;) s.replace(at, 2, " ");
  return s;
}

std::vector<UriCase> readCases() {
  std::ifstream in(testsupport::sourceDir() + "/tests/dsig/data/algorithm-uris.tsv");
  std::vector<UriCase> cases;
  std::string text;
  for (int line = 1; std::getline(in, text); ++line) {
    if (text.empty() || text[0] == '#') continue;
    std::istringstream fields(text);
    UriCase c;
    c.line = line;
    std::getline(fields, c.kind, '\t');
    std::getline(fields, c.uri);
    c.uri = unescaped(c.uri);
    cases.push_back(c);
  }
  return cases;
}

// pkcs1.xml (rsa-sha256, one SHA-256 reference) with one algorithm URI
// replaced, verified with the signer's public key.
dsigtest::DSigPtr verifiedWith(const UriCase &c) {
  const bool digest = c.kind == "digest";
  const std::string from = digest ? "http://www.w3.org/2001/04/xmlenc#sha256"
                                  : "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256";
  const std::string xml = replaced(fixtures().text("pkcs1.xml"), "Algorithm=\"" + from + "\"",
                                   "Algorithm=\"" + c.uri + "\"");
  dsigtest::DSigPtr d = dsigtest::newVerifier();
  EXPECT_TRUE(dsigtest::loadText(*d, xml));
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  EXPECT_TRUE(key->LoadFromFile(XString(fixtures().path("rsa-pub.pem").c_str())));
  EXPECT_TRUE(d->SetPublicKey(*key));
  return d;
}

}  // namespace

TEST(AlgorithmUris, NearMissesAreRefusedWithTheUriInTheReason) {
  REQUIRE_FIXTURES();
  const std::vector<UriCase> cases = readCases();
  ASSERT_GT(cases.size(), 15u);
  for (const UriCase &c : cases) {
    SCOPED_TRACE("algorithm-uris.tsv line " + std::to_string(c.line) + ": \"" + c.uri + "\"");
    ASSERT_TRUE(c.kind == "signature" || c.kind == "digest");
    dsigtest::DSigPtr d = verifiedWith(c);
    EXPECT_FALSE(d->VerifySignature(true));
    if (c.kind == "digest") {
      EXPECT_EQ(d->get_RefFailReason(), ClsXmlDSig::kRefFailUnknownAlgorithm);
      EXPECT_TRUE(logprobe::hasError(d->m_log, "Unknown DigestMethod algorithm: \"" + c.uri + "\""))
          << d->lastErrorText();
    } else {
      EXPECT_EQ(d->lastErrorLine(), "Unknown SignatureMethod algorithm: \"" + c.uri + "\"");
    }
  }
  // The unchanged document verifies, so each refusal above is the URI's doing.
  EXPECT_TRUE(
      verifiedWith({0, "signature", "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"})->VerifySignature(true));
}
