// Structural variants of documents signed by xmlsec1 at test time: signatures, look-alikes
// and Ids added before, after and inside the signed ones (tests/dsig/data/
// structural-variants.tsv). Each variant is verified as a user would, the signature selected
// by its Id, and must give its verdict and, when it fails, its reason.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "LogProbe.h"
#include "SignedFixtures.h"
#include "VectorFile.h"
#include "VerifierTestUtil.h"
#include "crypto/ClsPublicKey.h"

namespace {

using signedfixtures::fixtures;

struct Variant {
  std::string name, fixture, find, replace, verdict, error;
  bool redigest = false;
};

std::vector<std::string> split(const std::string& s, const std::string& sep) {
  std::vector<std::string> parts;
  size_t from = 0;
  for (size_t at; (at = s.find(sep, from)) != std::string::npos; from = at + sep.size())
    parts.push_back(s.substr(from, at - from));
  parts.push_back(s.substr(from));
  return parts;
}

std::vector<Variant> variants(const std::string& file) {
  std::ifstream in(testsupport::sourceDir() + "/tests/dsig/data/" + file);
  std::vector<Variant> out;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> f = split(line, "\t");
    EXPECT_EQ(f.size(), 7u) << line;
    if (f.size() != 7) continue;
    out.push_back({f[0], f[1], vectors::unescaped(f[2]), vectors::unescaped(f[3]), f[5], f[6], f[4] == "1"});
  }
  return out;
}

// The element of the signed text from "<tag" to its end tag.
std::string elementText(const std::string& doc, const std::string& tag) {
  const size_t start = doc.find("<" + tag);
  const size_t end = doc.find("</" + tag + ">", start);
  if (start == std::string::npos || end == std::string::npos) return "?";
  return doc.substr(start, end + tag.size() + 3 - start);
}

std::string expanded(std::string s, const std::string& doc) {
  const std::pair<const char*, std::string> names[] = {
      {"{SIG}", elementText(doc, "ds:Signature")},
      {"{SI}", elementText(doc, "ds:SignedInfo")},
      {"{SV}", elementText(doc, "ds:SignatureValue")},
      {"{DS}", "http://www.w3.org/2000/09/xmldsig#"},
  };
  for (const auto& [name, value] : names)
    for (size_t at; (at = s.find(name)) != std::string::npos;) s.replace(at, std::string(name).size(), value);
  return s;
}

struct Outcome {
  bool valid = false;
  bool reasonLogged = false;
  std::string errors, calculatedDigest;
};

// Verifies the signature with Id sig-1; reasonLogged says whether `reason` is an error line.
// A document that must be refused at load gives an outcome that is not valid.
Outcome verify(const std::string& xml, const std::string& reason = "", bool loadable = true) {
  dsigtest::DSigPtr d = dsigtest::newVerifier();
  Outcome o;
  const bool loaded = dsigtest::loadText(*d, xml);
  EXPECT_EQ(loaded, loadable) << d->lastErrorLine();
  if (!loaded) return o;
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  EXPECT_TRUE(key->LoadFromFile(XString(fixtures().path("rsa-pub.pem").c_str())));
  EXPECT_TRUE(d->SetPublicKey(*key));
  EXPECT_TRUE(d->SelectSignatureById(XString("sig-1")));
  o.valid = d->VerifySignature(true);
  if (!o.valid) o.errors = d->lastErrorText();
  o.reasonLogged = logprobe::hasError(d->m_log, reason);
  // The digest computed for the last reference, which the attacker stores.
  nlohmann::json last;
  for (int i = 0; !dsigtest::referenceResult(*d, i).is_null(); ++i) last = dsigtest::referenceResult(*d, i);
  o.calculatedDigest = last.is_object() && last["calculatedDigest"].is_string()
                           ? last["calculatedDigest"].get<std::string>()
                           : "";
  return o;
}

void checkVariants(const std::string& file, size_t atLeast) {
  const std::vector<Variant> all = variants(file);
  ASSERT_GT(all.size(), atLeast) << file;
  for (const Variant& v : all) {
    SCOPED_TRACE(v.name);
    const std::string original = fixtures().text(v.fixture);
    ASSERT_FALSE(original.empty()) << v.fixture;
    std::string doc = original;
    if (!v.find.empty()) {
      const std::vector<std::string> finds = split(v.find, " |then| ");
      const std::vector<std::string> replaces = split(v.replace, " |then| ");
      ASSERT_EQ(finds.size(), replaces.size());
      for (size_t i = 0; i < finds.size(); ++i)
        doc = signedfixtures::replaced(doc, expanded(finds[i], original), expanded(replaces[i], original));
    }
    if (v.redigest) {
      // The attacker stores the digest of the changed document in the reference.
      const std::string stored = elementText(original, "ds:DigestValue");
      const std::string computed = verify(doc).calculatedDigest;
      ASSERT_FALSE(computed.empty() || computed == "<absent>");
      const size_t last = doc.rfind(stored);
      ASSERT_NE(last, std::string::npos);
      doc.replace(last, stored.size(), "<ds:DigestValue>" + computed + "</ds:DigestValue>");
    }
    const bool loadable = v.verdict != "unloadable";
    const Outcome o = verify(doc, v.error, loadable);
    EXPECT_EQ(o.valid, v.verdict == "valid") << o.errors;
    if (!o.valid && loadable) {
      EXPECT_TRUE(o.reasonLogged) << "expected error: " << v.error << "\n" << o.errors;
    }
  }
}

}  // namespace

TEST(StructuralVariants, EveryVariantGetsItsVerdictAndReason) {
  REQUIRE_FIXTURES();
  checkVariants("structural-variants.tsv", 30);
}

// Changes meant to alter what an application reads while keeping what is digested.
TEST(StructuralVariants, EveryAttackGetsItsVerdictAndReason) {
  REQUIRE_FIXTURES();
  checkVariants("attacks.tsv", 25);
}
