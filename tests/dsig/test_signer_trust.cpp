// Who signed: the key that verified as a result, pinned signers, chain trust to anchors,
// and the signing certificate XAdES signed properties name. The trust cases are rows of
// data/signer_trust_cases.tsv over a PKI and documents made at test time
// (tests/tools/make_trust_fixtures.sh), time-stamped by the test authority; the binding
// cases change corpus documents.
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/ts.h>

#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CorpusCases.h"
#include "SignedFixtures.h"
#include "TestSupport.h"
#include "TimeStampAuthority.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/OsslPtr.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsJsonObject.h"
#include "support/ClsStringArray.h"
#include "support/ClsStringBuilder.h"
#include "support/ContentCoding.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

using trustfixtures::fixtures;

std::string text(XString s) { return s.getUtf8(); }

struct Outcome {
  bool valid = false;
  std::string reason, source, subject, timeSource;
  bool hasCert = false;
  int chainLength = 0;
};

// The time every re-dated time-stamp states: inside the validity of expired.pem.
constexpr const char* kBackdatedTime = "2020-01-15T10:00:00Z";
constexpr time_t kBackdated = 1579082400;

ossl::X509Ptr readCert(const std::string& file) {
  ossl::BioPtr in(BIO_new_file(file.c_str(), "r"));
  return ossl::X509Ptr(in ? PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr) : nullptr);
}

// The token with its time changed to kBackdated and signed again by the authority `name`
// of the fixtures (NAME.pem, NAME.key): what anyone holding a key can make.
std::string redatedToken(const std::string& tokenDer, const std::string& name) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(tokenDer.data());
  std::unique_ptr<CMS_ContentInfo, ossl::Deleter<CMS_ContentInfo, CMS_ContentInfo_free>> token(
      d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(tokenDer.size())));
  ASN1_OCTET_STRING** content = token ? CMS_get0_content(token.get()) : nullptr;
  if (!content || !*content) return std::string();
  p = ASN1_STRING_get0_data(*content);
  std::unique_ptr<TS_TST_INFO, ossl::Deleter<TS_TST_INFO, TS_TST_INFO_free>> info(
      d2i_TS_TST_INFO(nullptr, &p, ASN1_STRING_length(*content)));
  std::unique_ptr<ASN1_GENERALIZEDTIME, ossl::Deleter<ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free>> when(
      ASN1_GENERALIZEDTIME_set(nullptr, kBackdated));
  unsigned char* der = nullptr;
  const int length = info && when && TS_TST_INFO_set_time(info.get(), when.get()) ? i2d_TS_TST_INFO(info.get(), &der)
                                                                                  : 0;
  ossl::BioPtr tstInfo(length > 0 ? BIO_new_mem_buf(der, length) : nullptr);
  ossl::X509Ptr cert = readCert(fixtures().path(name + ".pem"));
  ossl::BioPtr keyIn(BIO_new_file(fixtures().path(name + ".key").c_str(), "r"));
  ossl::PkeyPtr key(keyIn ? PEM_read_bio_PrivateKey(keyIn.get(), nullptr, nullptr, nullptr) : nullptr);
  std::string out;
  std::unique_ptr<CMS_ContentInfo, ossl::Deleter<CMS_ContentInfo, CMS_ContentInfo_free>> signed_(
      CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_BINARY));
  if (tstInfo && cert && key && signed_ && CMS_set1_eContentType(signed_.get(), OBJ_nid2obj(NID_id_smime_ct_TSTInfo)) &&
      CMS_add1_signer(signed_.get(), cert.get(), key.get(), EVP_sha256(), CMS_BINARY | CMS_NOSMIMECAP) &&
      CMS_final(signed_.get(), tstInfo.get(), nullptr, CMS_BINARY)) {
    unsigned char* bytes = nullptr;
    const int n = i2d_CMS_ContentInfo(signed_.get(), &bytes);
    if (n > 0) out.assign(reinterpret_cast<const char*>(bytes), static_cast<size_t>(n));
    OPENSSL_free(bytes);
  }
  OPENSSL_free(der);
  return out;
}

// The document time-stamped by the test authority; with `signer` other than "authority",
// its token re-dated and signed by that fixture key. Empty on failure.
std::string stamped(const std::string& document, const std::string& signer) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsJsonObject> options(ClsJsonObject::createNewCls());
  RcPtr<ClsStringBuilder> out(ClsStringBuilder::createNewCls());
  options->UpdateString("tsaUrl", testsupport::TimeStampAuthority::instance().url().c_str());
  XString xml(testsupport::readFile(fixtures().path(document)).c_str());
  if (!dsig->LoadSignature(xml) || !dsig->AddEncapsulatedTimeStamp(*options, *out)) return std::string();
  std::string doc = out->getXString().getUtf8();
  if (signer == "authority") return doc;
  const size_t open = doc.find("EncapsulatedTimeStamp");
  const size_t from = doc.find('>', open) + 1, to = doc.find('<', from);
  DataBuffer token;
  if (open == std::string::npos || to == std::string::npos ||
      !ContentCoding::decodeBase64ToDb(doc.data() + from, to - from, token))
    return std::string();
  const std::string redated = redatedToken(
      std::string(reinterpret_cast<const char*>(token.getData2()), token.getSize()), signer);
  StringBuffer text;
  ContentCoding::encodeBase64(redated.data(), redated.size(), text);
  return redated.empty() ? std::string() : doc.replace(from, to - from, text.getString());
}

// Sets the case's options on a verifier of the document and verifies it.
Outcome run(const std::string& document, const std::string& options) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  std::string doc = testsupport::readFile(fixtures().path(document));
  const size_t stampAt = options.find("stamp=");
  if (stampAt != std::string::npos) {
    doc = stamped(document, options.substr(stampAt + 6, options.find(' ', stampAt) - stampAt - 6));
    EXPECT_FALSE(doc.empty()) << "could not time-stamp " << document;
  }
  XString xml(doc.c_str());
  EXPECT_TRUE(dsig->LoadSignature(xml));
  std::istringstream words(options == "-" ? "" : options);
  for (std::string word; words >> word;) {
    const std::string name = word.substr(0, word.find('='));
    const std::string value = word.substr(word.find('=') + 1);
    const std::string file = fixtures().path(value);
    if (name == "stamp") {
      continue;
    } else if (name == "pin") {
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
  s.clear();
  dsig->get_ValidationTimeSource(s);
  o.timeSource = text(s);
  if (o.timeSource == "timestamp") {
    s.clear();
    dsig->get_ValidationTime(s);
    EXPECT_EQ(text(s), kBackdatedTime);
  }
  return o;
}

}  // namespace

TEST(SignerTrust, CasesOfTheDataFile) {
  REQUIRE_TRUST_FIXTURES();
  std::ifstream in(testsupport::sourceDir() + "/tests/dsig/data/signer_trust_cases.tsv");
  int cases = 0, skipped = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> col = corpuscases::split(line, '\t', false);
    ASSERT_EQ(col.size(), 9u) << line;
    SCOPED_TRACE(col[0]);
    if (col[2].find("stamp=") != std::string::npos && !testsupport::TimeStampAuthority::instance().error().empty()) {
      ++skipped;
      continue;
    }
    ++cases;
    const Outcome o = run(col[1], col[2]);
    if (col[3] != "any") {
      EXPECT_EQ(o.valid, col[3] == "valid") << o.reason;
    }
    if (col[7] != "-") {
      EXPECT_NE(o.reason.find(col[7]), std::string::npos) << o.reason;
    }
    if (col[8] != "-") {
      EXPECT_EQ(o.timeSource, col[8]);
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
  if (skipped > 0)
    GTEST_SKIP() << skipped << " time-stamped cases not run: " << testsupport::TimeStampAuthority::instance().error();
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
