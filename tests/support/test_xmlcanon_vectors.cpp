// The W3C canonicalization vectors of the shared corpus: expected outputs compared byte
// for byte, and reference digests recomputed from our canonical form.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

#include "TestSupport.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "xml/XmlCanon.h"

namespace {

struct CanonRun {
  bool ok = false;
  std::string out;
  std::string error;
};

CanonRun canonicalize(const std::string& xml, int method, bool comments, const char* fragment,
                      size_t offset = 0, const char* prefixes = nullptr) {
  XmlCanon canon;
  canon.canonMethod = method;
  canon.withComments = comments;
  if (prefixes) StringBuffer(prefixes).split(canon.inclusivePrefixes, ' ', true, true);
  StringBuffer in(xml);
  StringBuffer out;
  _btLogger log;
  CanonRun run;
  run.ok = canon.xmlCanonicalize(in, fragment, offset, out, log);
  run.out = out.str();
  run.error = log.lastErrorLine();
  return run;
}

std::string digestBase64(const std::string& data, const EVP_MD* md_type) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(data.data(), data.size(), md, &len, md_type, nullptr);
  unsigned char b64[64];
  const int n = EVP_EncodeBlock(b64, md, static_cast<int>(len));
  return std::string(reinterpret_cast<char*>(b64), static_cast<size_t>(n));
}

std::string sha1Base64(const std::string& data) { return digestBase64(data, EVP_sha1()); }

std::string vector(const std::string& rel) { return testsupport::readFile(testsupport::corpusDir() + "/interop/xmlsec/" + rel); }

}  // namespace

// merlin-c14n-three: the outer bar:Something subtree (c14n-0 inclusive, c14n-9 exclusive,
// c14n-18 exclusive with "#default" inclusive) and SignedInfo (c14n-27), selected by offset.
TEST(XmlCanonVectors, MerlinC14nThreeSubtreesAndSignedInfo) {
  REQUIRE_CORPUS();
  const std::string doc = vector("merlin-c14n-three/signature.xml");
  ASSERT_FALSE(doc.empty());
  const size_t something = doc.find("<bar:Something");
  const size_t signedInfo = doc.find("<SignedInfo");
  ASSERT_NE(something, std::string::npos);

  CanonRun r = canonicalize(doc, 1, false, nullptr, something);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.out, vector("merlin-c14n-three/c14n-0.txt"));
  r = canonicalize(doc, 2, false, nullptr, something);
  EXPECT_EQ(r.out, vector("merlin-c14n-three/c14n-9.txt"));
  r = canonicalize(doc, 2, false, nullptr, something, "#default");
  EXPECT_EQ(r.out, vector("merlin-c14n-three/c14n-18.txt"));
  r = canonicalize(doc, 1, false, nullptr, signedInfo);
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.out, vector("merlin-c14n-three/c14n-27.txt"));
}

TEST(XmlCanonVectors, XPathFilter2SignedInfo) {
  REQUIRE_CORPUS();
  const std::string doc = vector("merlin-xpath-filter2-three/sign-spec.xml");
  const CanonRun r = canonicalize(doc, 1, false, nullptr, doc.find("<dsig:SignedInfo"));
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.out, vector("merlin-xpath-filter2-three/sign-spec-c14n-2.txt"));
}

// merlin-exc-c14n-one signs one Object by xpointer(id()) four times: exclusive with and
// without comments, with and without the InclusiveNamespaces list "bar #default".
TEST(XmlCanonVectors, ExclusiveC14nOneDigests) {
  REQUIRE_CORPUS();
  const std::string doc = vector("merlin-exc-c14n-one/exc-signature.xml");
  const char* frag = "xpointer(id('to-be-signed'))";
  EXPECT_EQ(sha1Base64(canonicalize(doc, 2, false, frag).out), "7yOTjUu+9oEhShgyIIXDLjQ08aY=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 2, false, frag, 0, "bar #default").out), "09xMy0RTQM1Q91demYe/0F6AGXo=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 2, true, frag).out), "ZQH+SkCN8c5y0feAr+aRTZDwyvY=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 2, true, frag, 0, "bar #default").out), "a1cTqBgbqpUt6bMJN4C6zFtnoyo=");
}

// merlin-xmldsig-twenty-three: Id fragments inheriting namespaces (inclusive), a bare-name
// reference whose comments are dropped even WithComments, the xpointer form that keeps
// them, and the whole document (DTD, comments outside the root) once its Signature is cut
// out as the enveloped-signature transform does.
TEST(XmlCanonVectors, MerlinTwentyThreeDigests) {
  REQUIRE_CORPUS();
  const std::string doc = vector("merlin-xmldsig-twenty-three/signature.xml");
  ASSERT_FALSE(doc.empty());
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "object-3").out), "yamSIokKmjA3hB/s3Fu07wDO3vM=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, true, "object-3").out), "yamSIokKmjA3hB/s3Fu07wDO3vM=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "xpointer(id('object-3'))").out), "yamSIokKmjA3hB/s3Fu07wDO3vM=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, true, "xpointer(id(\"object-3\"))").out), "419CYgyTWOTGYGBhzieWklNf7Bk=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "manifest-1").out), "qg4HFwsN+/WX32uH85WlJU9l45k=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "signature-properties-1").out), "ETlEI3y7hvvAtMe9wQSz7LhbHEE=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "reference-1").out), "qURlo3LSq4TWQtygBZJ0iXQ9E14=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "reference-2").out), "VzK45P9Ksjqq5oXlKQpkGgB2CNY=");
  EXPECT_EQ(sha1Base64(canonicalize(doc, 1, false, "manifest-reference-1").out), "7/9fR+NIDz9owc1Lfsxu1JBr8uo=");

  const size_t sigStart = doc.find("<Signature ");
  const std::string sigEnd = "</Signature>";
  const size_t sigStop = doc.find(sigEnd) + sigEnd.size();
  const std::string enveloped = doc.substr(0, sigStart) + doc.substr(sigStop);
  EXPECT_EQ(sha1Base64(canonicalize(enveloped, 1, false, nullptr).out), "J/O0HhdaPXxx49fgGWMESL09GpA=");
  EXPECT_EQ(sha1Base64(canonicalize(enveloped, 1, false, "xpointer(/)").out), "J/O0HhdaPXxx49fgGWMESL09GpA=");
  EXPECT_EQ(sha1Base64(canonicalize(enveloped, 1, true, "xpointer(/)").out), "MkL9CX8yeABBth1RChyPx58Ls8w=");
}

// An EBICS response signed by a bank server: the authenticated elements, canonicalized
// one per call and concatenated, give the signed digest.
TEST(XmlCanonVectors, EbicsAuthenticatedElementsDigest) {
  REQUIRE_CORPUS();
  const std::string doc = testsupport::readFile(testsupport::corpusDir() +
                                                "/families/ebics/ebics-epics-cd1_init_response/cd1_init_response.xml");
  ASSERT_FALSE(doc.empty());
  XmlCanon canon;
  canon.ebicsMode = true;
  StringBuffer in(doc), out;
  _btLogger log;
  for (int i = 0; i < 100; ++i) {
    canon.ebicsIndex = i;
    canon.ebicsCount = 0;
    if (!canon.xmlCanonicalize(in, "xpointer(//*[@authenticate='true'])", 0, out, log)) break;
  }
  EXPECT_EQ(digestBase64(out.str(), EVP_sha256()), "hSf/fZURBW6ihKUUZDMRpqc3kloVZZRjw+DTBxjS7AM=");
}

// Id references of documents from real signing software (WCF and CXF WS-Security,
// XAdES from two national toolkits, an Ecuadorian SRI invoice): canonical fragment digests.
TEST(XmlCanonVectors, RealSignersIdFragmentDigests) {
  REQUIRE_CORPUS();
  struct Case {
    const char* file;
    const char* id;
    int method;
    const EVP_MD* (*md)();
    const char* digest;
  };
  const Case cases[] = {
      {"wss/wss-wsjs-wcf_valid_resp/valid_wss_resp.xml", "_1", 2, EVP_sha1, "cQ76e3vY/z1AtWTjv81sGkNZG/I="},
      {"wss/wss-cxf-signed_x509_issuer_serial/signed_x509_issuer_serial.xml", "id-17", 2, EVP_sha1,
       "ydnnACRLT6oKf1FalVZjqOAzwTY="},
      {"xades-t/xadest-dss-signature-x-bg-1/Signature-X-BG-1.xml", "SignedProps0", 1, EVP_sha1,
       "UG++Q/GdmZ4K6r5jGv6JU0j80Vo="},
      {"xades-t/xadest-dss-signature-x-hu_pol-3/Signature-X-HU_POL-3.xml", "Signature-1__SignedProperties-1", 2,
       EVP_sha256, "O+0ysUTINiYK70eIMK0r99ZSw9YJfLucRNNuJCUOAAo="},
      {"other-ec-sri/other-ecsri-calisto-credit-note/signed.xml",
       "SignedProperties-5bdfc32d-a37f-47c3-90fe-49f5a093b7bf", 1, EVP_sha1, "CecCRnJ++klvInneDBaI8xRVdoo="},
  };
  for (const Case& c : cases) {
    const std::string doc = testsupport::readFile(testsupport::corpusDir() + "/families/" + c.file);
    ASSERT_FALSE(doc.empty()) << c.file;
    const CanonRun r = canonicalize(doc, c.method, false, c.id);
    ASSERT_TRUE(r.ok) << c.file << ": " << r.error;
    EXPECT_EQ(digestBase64(r.out, c.md()), c.digest) << c.file << " #" << c.id;
  }
}
