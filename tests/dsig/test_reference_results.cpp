// What each reference covered and digested, read from the results the verifier keeps:
// the rows of data/coverage.tsv name a corpus document (or a signature-wrapping document
// made at test time from a freshly signed one), a reference, and what a user must be told
// about it. The bytes kept for the reference must hash to its stored DigestValue.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CorpusCases.h"
#include "HostileFixtures.h"
#include "VerifierTestUtil.h"
#include "support/ClsBinData.h"
#include "support/ClsXml.h"

namespace {

struct Row {
  std::string source;  // corpus case id, or wrap:<how>
  int reference = 0;
  std::string status;
  std::string kind;
  std::string path;     // "-" when no element is covered
  std::string removed;  // "by path" items joined by ';', "-" for none
};

std::vector<Row> rows() {
  std::vector<Row> out;
  const std::string text = testsupport::readFile(testsupport::sourceDir() + "/tests/dsig/data/coverage.tsv");
  for (const std::string& line : corpuscases::split(text, '\n', true)) {
    if (line[0] == '#') continue;
    const std::vector<std::string> c = corpuscases::split(line, '\t', false);
    if (c.size() < 6) continue;
    out.push_back({c[0], std::stoi(c[1]), c[2], c[3], c[4], c[5]});
  }
  return out;
}

// The digest of bytes under a digest method URI (the name after '#', as OpenSSL knows it).
std::string digestOf(const std::string& methodUri, const std::string& bytes) {
  const EVP_MD* md = EVP_get_digestbyname(methodUri.substr(methodUri.find('#') + 1).c_str());
  if (!md) return std::string();
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(bytes.data(), bytes.size(), out, &len, md, nullptr);
  return std::string(reinterpret_cast<char*>(out), len);
}

// Whether the stored value is the digest of the bytes, in one of the forms signers store it
// (base64; base64 of the lowercase hex text).
bool storedDigestMatches(const std::string& methodUri, const std::string& stored, const std::string& bytes) {
  const std::string digest = digestOf(methodUri, bytes);
  static const char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char c : digest) hex += std::string{kHex[c >> 4], kHex[c & 15]};
  return !digest.empty() && (stored == dsigtest::base64(digest) || stored == dsigtest::base64(hex));
}

// A response whose signed assertion was moved (into a wrapper element, or into an Object
// of the signature) and an unsigned assertion put where it stood.
std::string wrappedResponse(const std::string& how) {
  const std::string genuine = hostile::Signer::get().signRsa(hostile::responseTemplate(hostile::kAssertion));
  const std::string forged = "<Assertion ID=\"a2\"><NameID>mallory@example.com</NameID></Assertion>";
  if (how == "wrapper")
    return hostile::replaceFirst(genuine, hostile::kAssertion,
                                 forged + "<Extensions>" + hostile::kAssertion + "</Extensions>");
  const std::string moved = hostile::replaceFirst(genuine, hostile::kAssertion, forged);
  return hostile::replaceFirst(moved, "</ds:Signature>",
                               "<ds:Object>" + hostile::kAssertion + "</ds:Object></ds:Signature>");
}

std::unique_ptr<ClsXmlDSig> verifierFor(const std::string& source) {
  if (source.rfind("wrap:", 0) == 0) {
    std::unique_ptr<ClsXmlDSig> d(ClsXmlDSig::createNewCls());
    if (!dsigtest::loadText(*d, wrappedResponse(source.substr(5)))) return nullptr;
    return d;
  }
  for (const corpuscases::Case& c : corpuscases::allCases())
    if (c.id == source) return corpuscases::prepare(c, corpuscases::documentOf(c));
  return nullptr;
}

std::string removedText(const nlohmann::json& removed) {
  std::string out;
  for (const nlohmann::json& r : removed)
    out += (out.empty() ? "" : ";") + r["by"].get<std::string>() + " " + r["path"].get<std::string>();
  return out.empty() ? "-" : out;
}

TEST(ReferenceResults, CoverageAndDigestedBytesOfEachKindOfReference) {
  REQUIRE_CORPUS();
  ASSERT_TRUE(hostile::Signer::get().ready());
  const std::vector<Row> table = rows();
  ASSERT_GE(table.size(), 8u) << "tests/dsig/data/coverage.tsv not read";
  for (const Row& row : table) {
    SCOPED_TRACE(row.source + " reference " + std::to_string(row.reference));
    std::unique_ptr<ClsXmlDSig> d = verifierFor(row.source);
    ASSERT_TRUE(d) << "document not found or not loaded";
    d->put_KeepDigestedBytes(true);
    const bool valid = d->VerifySignature(true);
    XString json;
    ASSERT_TRUE(d->GetReferenceResultJson(row.reference, json));
    const nlohmann::json r = nlohmann::json::parse(json.getUtf8());
    EXPECT_EQ(r["status"], row.status);
    const nlohmann::json& coverage = r["coverage"];
    EXPECT_EQ(coverage["kind"], row.kind);
    const nlohmann::json& element = coverage["element"];
    EXPECT_EQ(element.is_null() ? "-" : element["path"].get<std::string>(), row.path);
    EXPECT_EQ(removedText(coverage["removed"]), row.removed);

    // The handle is on the element the path names, at the span the result gives.
    RcPtr<ClsXml> covered(d->GetCoveredElement(row.reference));
    if (row.kind == "element") {
      ASSERT_TRUE(covered);
      EXPECT_EQ(covered->sourceStart(), element["start"].get<size_t>());
      EXPECT_EQ(covered->sourceEnd(), element["end"].get<size_t>());
    }
    EXPECT_EQ(static_cast<bool>(covered), row.kind == "element" || row.kind == "document");

    RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
    if (row.status == "valid") {
      ASSERT_TRUE(d->GetDigestedBytes(row.reference, *bytes));
      const DataBuffer& db = bytes->getDb();
      EXPECT_TRUE(storedDigestMatches(r["digestMethod"], r["storedDigest"],
                                      std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize())))
          << "the kept bytes do not hash to the stored DigestValue";
    }
    if (valid) {
      EXPECT_TRUE(d->GetCanonicalSignedInfo(*bytes));
    }
  }
}

}  // namespace
