// Algorithm URIs (tests/dsig/data/algorithm-uris.tsv): what each known URI
// stands for, and that a URI which is not known exactly makes a genuinely
// signed document fail with the URI in the reason, instead of being read as the
// algorithm it resembles.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "SignedFixtures.h"
#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/_btHash.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"

namespace {

using signedfixtures::fixtures;
using signedfixtures::replaced;
namespace alg = dsig_algorithms;

struct UriCase {
  int line = 0;
  std::string kind, uri, expected;
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
    std::getline(fields, c.uri, '\t');
    std::getline(fields, c.expected);
    c.uri = unescaped(c.uri);
    cases.push_back(c);
  }
  return cases;
}

std::string describe(const alg::SignatureMethod *m) {
  if (!m) return "refused";
  static const char *const keyTypes[] = {"", "rsa", "dsa", "ecdsa", "hmac", "eddsa"};
  const char *padding = m->padding == alg::RsaPadding::Pss        ? "pss"
                        : m->padding == alg::RsaPadding::Pkcs1v15 ? "pkcs1"
                                                                  : "-";
  return std::string(_btHash::hashIdToName(m->hashId)) + " " + keyTypes[static_cast<int>(m->keyType)] + " " + padding;
}

std::string describe(const alg::DigestMethod *m) { return m ? _btHash::hashIdToName(m->hashId) : "refused"; }

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

TEST(AlgorithmUris, KnownExactlyOrRefusedWithTheUriInTheReason) {
  REQUIRE_FIXTURES();
  const std::vector<UriCase> cases = readCases();
  ASSERT_GT(cases.size(), 20u);
  int refused = 0;
  for (const UriCase &c : cases) {
    SCOPED_TRACE("algorithm-uris.tsv line " + std::to_string(c.line) + ": \"" + c.uri + "\"");
    ASSERT_TRUE(c.kind == "signature" || c.kind == "digest");
    const std::string found = c.kind == "digest" ? describe(alg::findDigestMethod(c.uri))
                                                 : describe(alg::findSignatureMethod(c.uri));
    EXPECT_EQ(found, c.expected);
    if (c.expected != "refused") continue;

    ++refused;
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
  EXPECT_GT(refused, 10);
  // The unchanged document verifies, so each refusal above is the URI's doing.
  EXPECT_TRUE(
      verifiedWith({0, "signature", "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256", ""})->VerifySignature(true));
}
