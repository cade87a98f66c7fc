// Who signed: the key that verified as a result, pinned signers, chain trust to anchors,
// and the signing certificate XAdES signed properties name. The trust cases are rows of
// data/signer_trust_cases.tsv over a PKI and documents made at test time
// (tests/tools/make_trust_fixtures.sh); the binding cases change corpus documents.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CorpusCases.h"
#include "TestSupport.h"
#include "TrustFixtures.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsStringArray.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

using trustfixtures::fixtures;

std::string text(XString s) { return s.getUtf8(); }

struct Outcome {
  bool valid = false;
  std::string reason, source, subject;
  bool hasCert = false;
  int chainLength = 0;
};

// Sets the case's options on a verifier of the document and verifies it.
Outcome run(const std::string& document, const std::string& options) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  XString xml(testsupport::readFile(fixtures().path(document)).c_str());
  EXPECT_TRUE(dsig->LoadSignature(xml));
  std::istringstream words(options == "-" ? "" : options);
  for (std::string word; words >> word;) {
    const std::string name = word.substr(0, word.find('='));
    const std::string value = word.substr(word.find('=') + 1);
    const std::string file = fixtures().path(value);
    if (name == "pin") {
      RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
      EXPECT_TRUE(key->LoadFromFile(XString(file.c_str()))) << file;
      EXPECT_TRUE(dsig->AddPinnedSigner(*key));
    } else if (name == "trust") {
      EXPECT_TRUE(dsig->AddTrustAnchors(XString(file.c_str()))) << file;
    } else if (name == "crl") {
      EXPECT_TRUE(dsig->AddCrlFile(XString(file.c_str()))) << file;
    } else if (name == "at") {
      EXPECT_TRUE(dsig->SetValidationTime(XString(value.c_str()))) << value;
    } else {
      ADD_FAILURE() << "unknown option " << word;
    }
  }
  Outcome o;
  o.valid = dsig->VerifySignature(true);
  o.reason = dsig->lastErrorLine();
  XString s;
  dsig->get_SignerSource(s);
  o.source = text(s);
  s.clear();
  dsig->get_SignerSubject(s);
  o.subject = text(s);
  o.hasCert = dsig->get_HasSignerCert();
  RcPtr<ClsStringArray> chain(ClsStringArray::createNewCls());
  dsig->GetTrustChain(*chain);
  o.chainLength = chain->get_Count();
  return o;
}

}  // namespace

TEST(SignerTrust, CasesOfTheDataFile) {
  REQUIRE_TRUST_FIXTURES();
  std::ifstream in(testsupport::sourceDir() + "/tests/dsig/data/signer_trust_cases.tsv");
  int cases = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> col = corpuscases::split(line, '\t', false);
    ASSERT_EQ(col.size(), 8u) << line;
    SCOPED_TRACE(col[0]);
    ++cases;
    const Outcome o = run(col[1], col[2]);
    if (col[3] != "any") {
      EXPECT_EQ(o.valid, col[3] == "valid") << o.reason;
    }
    if (col[7] != "-") {
      EXPECT_NE(o.reason.find(col[7]), std::string::npos) << o.reason;
    }
    if (!o.valid) continue;
    // What a valid result says about the signer.
    if (col[4] != "-") {
      EXPECT_EQ(o.source, col[4]);
    }
    if (col[5] == "none") {
      EXPECT_FALSE(o.hasCert) << o.subject;
    } else if (col[5] != "-") {
      EXPECT_NE(o.subject.find(col[5]), std::string::npos) << o.subject;
    }
    if (col[6] != "-") {
      EXPECT_EQ(o.chainLength, std::stoi(col[6]));
    }
  }
  EXPECT_GE(cases, 20);
}

TEST(SignerTrust, ValidationTimeIsReportedWithItsSource) {
  REQUIRE_TRUST_FIXTURES();
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  XString xml(testsupport::readFile(fixtures().path("expired.xml")).c_str());
  ASSERT_TRUE(dsig->LoadSignature(xml));
  ASSERT_TRUE(dsig->AddTrustAnchors(XString(fixtures().path("root.pem").c_str())));
  EXPECT_FALSE(dsig->SetValidationTime(XString("2020-01-15T10:00:00+03:00")));  // not UTC
  EXPECT_FALSE(dsig->SetValidationTime(XString("yesterday")));

  EXPECT_FALSE(dsig->VerifySignature(true));
  XString v;
  dsig->get_ValidationTimeSource(v);
  EXPECT_EQ(text(v), "now");
  EXPECT_TRUE(dsig->get_TrustChecked());
  EXPECT_FALSE(dsig->get_Trusted());

  ASSERT_TRUE(dsig->SetValidationTime(XString("2020-01-15T10:00:00Z")));
  EXPECT_TRUE(dsig->VerifySignature(true)) << dsig->lastErrorLine();
  v.clear();
  dsig->get_ValidationTimeSource(v);
  EXPECT_EQ(text(v), "caller");
  v.clear();
  dsig->get_ValidationTime(v);
  EXPECT_EQ(text(v), "2020-01-15T10:00:00Z");
  EXPECT_TRUE(dsig->get_Trusted());
}

namespace {

// The text with the content of the first element named `tag` inside the signing certificate
// changed so that it decodes to other bytes; empty when there is no such element.
std::string withChangedContent(std::string doc, const std::string& tag) {
  const size_t from = doc.find("SigningCertificate");
  if (from == std::string::npos) return std::string();
  size_t at = doc.find(tag, from);
  if (at == std::string::npos || (at = doc.find('>', at)) == std::string::npos) return std::string();
  ++at;
  while (at < doc.size() && std::isspace(static_cast<unsigned char>(doc[at]))) ++at;
  doc[at] = doc[at] == 'A' ? 'B' : (doc[at] == '1' ? '2' : 'A');
  return doc;
}

bool verifiesWithoutReferences(const corpuscases::Case& c, const std::string& doc, std::string& why) {
  std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, doc);
  if (!dsig) return false;
  const bool valid = dsig->VerifySignature(false);
  why = dsig->lastErrorLine();
  return valid;
}

}  // namespace

// Signed properties are covered by a reference, so the binding is checked here with the
// references left out: the change then fails only the binding itself.
TEST(SignerTrust, SignedSigningCertificateMustBeTheSignersOnCorpusDocuments) {
  REQUIRE_CORPUS();
  int checked = 0, zatca = 0;
  for (const corpuscases::Case& c : corpuscases::allCases()) {
    if (c.expected != "pass") continue;
    const std::string doc = corpuscases::documentOf(c);
    if (doc.find("SigningCertificate") == std::string::npos) continue;
    SCOPED_TRACE(c.id);
    std::string why;
    if (!verifiesWithoutReferences(c, doc, why)) continue;  // verified only by other means
    ++checked;
    if (c.family == "zatca") ++zatca;
    const std::string wrongDigest = withChangedContent(doc, "DigestValue");
    ASSERT_FALSE(wrongDigest.empty());
    EXPECT_FALSE(verifiesWithoutReferences(c, wrongDigest, why));
    EXPECT_NE(why.find("is not the certificate that verified"), std::string::npos) << why;
    const std::string wrongSerial = withChangedContent(doc, "X509SerialNumber");
    if (!wrongSerial.empty()) {
      EXPECT_FALSE(verifiesWithoutReferences(c, wrongSerial, why));
    }
  }
  EXPECT_EQ(zatca, 11);  // every ZATCA invoice that verifies at all
  EXPECT_GE(checked, zatca + 2);
}

TEST(SignerTrust, EveryCorpusDocumentThatVerifiesNamesItsSigner) {
  REQUIRE_CORPUS();
  for (const corpuscases::Case& c : corpuscases::allCases()) {
    std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, corpuscases::documentOf(c));
    if (!dsig || !dsig->VerifySignature(true)) continue;
    XString source;
    dsig->get_SignerSource(source);
    EXPECT_FALSE(source.isEmpty()) << c.id;
    RcPtr<ClsPublicKey> key(dsig->GetSignerKey());
    EXPECT_EQ(static_cast<bool>(key), text(source) != "HmacKey") << c.id;
  }
}
