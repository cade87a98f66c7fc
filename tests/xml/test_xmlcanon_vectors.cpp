// The W3C canonicalization vectors of the shared corpus: expected outputs compared byte
// for byte, and reference digests recomputed from our canonical form.
#include <openssl/evp.h>

#include <string>

#include "XmlTestHelpers.h"

namespace {

using xmltest::Canon;
using xmltest::canonicalize;

std::string digestBase64(const std::string& data, const EVP_MD* md_type = EVP_sha1()) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(data.data(), data.size(), md, &len, md_type, nullptr);
  unsigned char b64[2 * EVP_MAX_MD_SIZE];
  const int n = EVP_EncodeBlock(b64, md, static_cast<int>(len));
  return std::string(reinterpret_cast<char*>(b64), static_cast<size_t>(n));
}

std::string vector(const std::string& rel) {
  return testsupport::readFile(testsupport::corpusDir() + "/interop/xmlsec/" + rel);
}

}  // namespace

// merlin-c14n-three: the outer bar:Something subtree (c14n-0 inclusive, c14n-9 exclusive,
// c14n-18 exclusive with "#default" inclusive) and SignedInfo (c14n-27), selected by
// offset; and the SignedInfo of merlin-xpath-filter2-three.
TEST(XmlCanonVectors, MerlinC14nThreeSubtreesAndSignedInfo) {
  REQUIRE_CORPUS();
  const std::string doc = vector("merlin-c14n-three/signature.xml");
  const size_t something = doc.find("<bar:Something");
  ASSERT_NE(something, std::string::npos);
  EXPECT_EQ(canonicalize(doc, nullptr, {1, false, nullptr, something}), vector("merlin-c14n-three/c14n-0.txt"));
  EXPECT_EQ(canonicalize(doc, nullptr, {2, false, nullptr, something}), vector("merlin-c14n-three/c14n-9.txt"));
  EXPECT_EQ(canonicalize(doc, nullptr, {2, false, "#default", something}), vector("merlin-c14n-three/c14n-18.txt"));
  EXPECT_EQ(canonicalize(doc, nullptr, {1, false, nullptr, doc.find("<SignedInfo")}),
            vector("merlin-c14n-three/c14n-27.txt"));
  const std::string filter2 = vector("merlin-xpath-filter2-three/sign-spec.xml");
  EXPECT_EQ(canonicalize(filter2, nullptr, {1, false, nullptr, filter2.find("<dsig:SignedInfo")}),
            vector("merlin-xpath-filter2-three/sign-spec-c14n-2.txt"));
}

// Fragment digests: merlin-exc-c14n-one signs one Object by xpointer(id()) four times
// (exclusive with and without comments, with and without "bar #default");
// merlin-xmldsig-twenty-three has Id fragments inheriting namespaces, a bare-name
// reference whose comments are dropped even WithComments and the xpointer form that keeps
// them; then Id references of documents from real signing software (WCF and CXF
// WS-Security, XAdES from two national toolkits, an Ecuadorian SRI invoice).
TEST(XmlCanonVectors, FragmentDigests) {
  REQUIRE_CORPUS();
  const std::string exc = "interop/xmlsec/merlin-exc-c14n-one/exc-signature.xml";
  const std::string t23 = "interop/xmlsec/merlin-xmldsig-twenty-three/signature.xml";
  const char* excId = "xpointer(id('to-be-signed'))";
  const struct {
    std::string file;
    const char* id;
    Canon c;
    const EVP_MD* (*md)();
    const char* digest;
  } cases[] = {
      {exc, excId, {2}, EVP_sha1, "7yOTjUu+9oEhShgyIIXDLjQ08aY="},
      {exc, excId, {2, false, "bar #default"}, EVP_sha1, "09xMy0RTQM1Q91demYe/0F6AGXo="},
      {exc, excId, {2, true}, EVP_sha1, "ZQH+SkCN8c5y0feAr+aRTZDwyvY="},
      {exc, excId, {2, true, "bar #default"}, EVP_sha1, "a1cTqBgbqpUt6bMJN4C6zFtnoyo="},
      {t23, "object-3", {1}, EVP_sha1, "yamSIokKmjA3hB/s3Fu07wDO3vM="},
      {t23, "object-3", {1, true}, EVP_sha1, "yamSIokKmjA3hB/s3Fu07wDO3vM="},
      {t23, "xpointer(id('object-3'))", {1}, EVP_sha1, "yamSIokKmjA3hB/s3Fu07wDO3vM="},
      {t23, "xpointer(id(\"object-3\"))", {1, true}, EVP_sha1, "419CYgyTWOTGYGBhzieWklNf7Bk="},
      {t23, "manifest-1", {1}, EVP_sha1, "qg4HFwsN+/WX32uH85WlJU9l45k="},
      {t23, "signature-properties-1", {1}, EVP_sha1, "ETlEI3y7hvvAtMe9wQSz7LhbHEE="},
      {t23, "reference-1", {1}, EVP_sha1, "qURlo3LSq4TWQtygBZJ0iXQ9E14="},
      {t23, "reference-2", {1}, EVP_sha1, "VzK45P9Ksjqq5oXlKQpkGgB2CNY="},
      {t23, "manifest-reference-1", {1}, EVP_sha1, "7/9fR+NIDz9owc1Lfsxu1JBr8uo="},
      {"families/wss/wss-wsjs-wcf_valid_resp/valid_wss_resp.xml", "_1", {2}, EVP_sha1, "cQ76e3vY/z1AtWTjv81sGkNZG/I="},
      {"families/wss/wss-cxf-signed_x509_issuer_serial/signed_x509_issuer_serial.xml",
       "id-17",
       {2},
       EVP_sha1,
       "ydnnACRLT6oKf1FalVZjqOAzwTY="},
      {"families/xades-t/xadest-dss-signature-x-bg-1/Signature-X-BG-1.xml",
       "SignedProps0",
       {1},
       EVP_sha1,
       "UG++Q/GdmZ4K6r5jGv6JU0j80Vo="},
      {"families/xades-t/xadest-dss-signature-x-hu_pol-3/Signature-X-HU_POL-3.xml",
       "Signature-1__SignedProperties-1",
       {2},
       EVP_sha256,
       "O+0ysUTINiYK70eIMK0r99ZSw9YJfLucRNNuJCUOAAo="},
      {"families/other-ec-sri/other-ecsri-calisto-credit-note/signed.xml",
       "SignedProperties-5bdfc32d-a37f-47c3-90fe-49f5a093b7bf",
       {1},
       EVP_sha1,
       "CecCRnJ++klvInneDBaI8xRVdoo="},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file + " #" + c.id);
    const std::string doc = testsupport::readFile(testsupport::corpusDir() + "/" + c.file);
    ASSERT_FALSE(doc.empty());
    EXPECT_EQ(digestBase64(canonicalize(doc, c.id, c.c), c.md()), c.digest);
  }
}

// The whole of merlin-xmldsig-twenty-three (DTD, comments outside the root) once its
// Signature is cut out as the enveloped-signature transform does.
TEST(XmlCanonVectors, WholeDocumentWithoutItsSignature) {
  REQUIRE_CORPUS();
  const std::string doc = vector("merlin-xmldsig-twenty-three/signature.xml");
  const size_t sigStart = doc.find("<Signature ");
  const std::string sigEnd = "</Signature>";
  ASSERT_NE(sigStart, std::string::npos);
  const std::string enveloped = doc.substr(0, sigStart) + doc.substr(doc.find(sigEnd) + sigEnd.size());
  EXPECT_EQ(digestBase64(canonicalize(enveloped, nullptr)), "J/O0HhdaPXxx49fgGWMESL09GpA=");
  EXPECT_EQ(digestBase64(canonicalize(enveloped, "xpointer(/)")), "J/O0HhdaPXxx49fgGWMESL09GpA=");
  EXPECT_EQ(digestBase64(canonicalize(enveloped, "xpointer(/)", {1, true})), "MkL9CX8yeABBth1RChyPx58Ls8w=");
}

// An EBICS response signed by a bank server: the authenticated elements, canonicalized
// one per call and concatenated, give the signed digest.
TEST(XmlCanonVectors, EbicsAuthenticatedElementsDigest) {
  REQUIRE_CORPUS();
  const std::string doc = testsupport::readFile(testsupport::corpusDir() +
                                                "/families/ebics/ebics-epics-cd1_init_response/cd1_init_response.xml");
  ASSERT_FALSE(doc.empty());
  StringBuffer out;
  _btLogger log;
  xmltest::canonicalizeEbics(doc, "xpointer(//*[@authenticate='true'])", out, log);
  EXPECT_EQ(digestBase64(out.str(), EVP_sha256()), "hSf/fZURBW6ihKUUZDMRpqc3kloVZZRjw+DTBxjS7AM=");
}
