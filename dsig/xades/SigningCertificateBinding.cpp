#include "dsig/xades/SigningCertificateBinding.h"

#include <cctype>
#include <cstring>

#include <openssl/bn.h>
#include <openssl/x509.h>

#include "crypto/DistinguishedName.h"
#include "crypto/OsslPtr.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"

namespace xades {

namespace {

struct DigestUri {
  const char* uri;
  const char* name;
};

constexpr DigestUri kDigestUris[] = {
    {"http://www.w3.org/2000/09/xmldsig#sha1", "SHA1"},
    {"http://www.w3.org/2001/04/xmldsig-more#sha224", "SHA224"},
    {"http://www.w3.org/2001/04/xmlenc#sha256", "SHA256"},
    {"http://www.w3.org/2001/04/xmldsig-more#sha384", "SHA384"},
    {"http://www.w3.org/2001/04/xmlenc#sha512", "SHA512"},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-224", "SHA3-224"},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-256", "SHA3-256"},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-384", "SHA3-384"},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-512", "SHA3-512"},
};

bool digestOf(const char* algorithmName, const void* data, size_t n, std::string& out) {
  ossl::MdPtr md = ossl::fetchDigest(algorithmName);
  unsigned char buf[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  const bool ok = md && EVP_Digest(data, n, buf, &len, md.get(), nullptr) == 1;
  ossl::clearErrors();
  if (ok) out.assign(reinterpret_cast<const char*>(buf), len);
  return ok;
}

std::string lowerHex(const std::string& bytes) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out.push_back(kHex[c >> 4]);
    out.push_back(kHex[c & 15]);
  }
  return out;
}

std::string withoutSpace(std::string_view text) {
  std::string out;
  for (char c : text)
    if (!std::isspace(static_cast<unsigned char>(c))) out.push_back(c);
  return out;
}

std::string lowered(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string childText(ClsXml& parent, const char* path) {
  StringBuffer sb;
  parent.getChildContentUtf8(path, sb, false);
  return std::string(sb.view());
}

// The CertDigest against the signer certificate. The usual form digests the DER; some
// signers write the digest as hex text, or digest the base64 text of the certificate as
// the document carries it and write that digest as hex text.
bool digestMatches(ClsXml& cert, const DataBuffer& der, const std::vector<std::string>& texts) {
  StringBuffer algorithm;
  cert.getChildAttrValue("*:CertDigest|*:DigestMethod", "Algorithm", algorithm);
  const char* name = nullptr;
  for (const DigestUri& d : kDigestUris)
    if (algorithm.view() == d.uri) name = d.name;
  const std::string written = withoutSpace(childText(cert, "*:CertDigest|*:DigestValue"));
  DataBuffer value;
  if (!name || written.empty() || !ContentCoding::decodeBase64ToDb(written.data(), written.size(), value)) return false;
  const std::string stored(reinterpret_cast<const char*>(value.getData2()), value.getSize());

  std::string digest;
  if (!digestOf(name, der.getData2(), der.getSize(), digest)) return false;
  if (stored == digest || lowered(stored) == lowerHex(digest)) return true;
  for (const std::string& text : texts)
    if (digestOf(name, text.data(), text.size(), digest) && lowered(stored) == lowerHex(digest)) return true;
  return false;
}

bool serialMatches(const std::string& decimal, X509* cert) {
  const std::string digits = withoutSpace(decimal);
  BIGNUM* raw = nullptr;
  if (digits.empty() || BN_dec2bn(&raw, digits.c_str()) != static_cast<int>(digits.size())) {
    BN_free(raw);
    ossl::clearErrors();
    return false;
  }
  ossl::BnPtr written(raw);
  ossl::BnPtr actual(ASN1_INTEGER_to_BN(X509_get0_serialNumber(cert), nullptr));
  ossl::clearErrors();
  return actual && BN_cmp(written.get(), actual.get()) == 0;
}

std::string issuerKey(const char* dn) {
  StringBuffer key;
  LogNull quiet;
  DistinguishedName::toBtCanonHashKey(dn, key, quiet);
  return std::string(key.view());
}

std::string certIssuerText(X509* cert) {
  // The same "TYPE=value, ..." text a document writer produces, for the canonical key.
  ossl::BioPtr bio(BIO_new(BIO_s_mem()));
  if (!bio) return std::string();
  const unsigned long flags = XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_DN_REV | XN_FLAG_FN_SN |
                              (ASN1_STRFLGS_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  X509_NAME_print_ex(bio.get(), X509_get_issuer_name(cert), 0, flags);
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio.get(), &data);
  return n > 0 ? std::string(data, static_cast<size_t>(n)) : std::string();
}

void appendDerLength(std::string& out, size_t n) {
  if (n < 0x80) {
    out.push_back(static_cast<char>(n));
    return;
  }
  std::string bytes;
  for (; n; n >>= 8) bytes.insert(bytes.begin(), static_cast<char>(n & 0xff));
  out.push_back(static_cast<char>(0x80 | bytes.size()));
  out += bytes;
}

std::string derTlv(unsigned char tag, const std::string& content) {
  std::string out(1, static_cast<char>(tag));
  appendDerLength(out, content.size());
  return out + content;
}

template <class T, class Encode>
std::string derOf(T* obj, Encode encode) {
  unsigned char* buf = nullptr;
  const int n = encode(obj, &buf);
  std::string out = n > 0 ? std::string(reinterpret_cast<char*>(buf), static_cast<size_t>(n)) : std::string();
  OPENSSL_free(buf);
  return out;
}

// IssuerSerialV2 holds the DER of IssuerSerial { GeneralNames { directoryName [4] Name },
// serialNumber }: the certificate's own issuer and serial encode to exactly those bytes.
bool issuerSerialV2Matches(const std::string& base64, X509* cert) {
  DataBuffer written;
  const std::string text = withoutSpace(base64);
  if (!ContentCoding::decodeBase64ToDb(text.data(), text.size(), written)) return false;
  const std::string name = derOf(X509_get_issuer_name(cert),
                                 [](X509_NAME* n, unsigned char** b) { return i2d_X509_NAME(n, b); });
  const std::string serial = derOf(const_cast<ASN1_INTEGER*>(X509_get0_serialNumber(cert)),
                                   [](ASN1_INTEGER* i, unsigned char** b) { return i2d_ASN1_INTEGER(i, b); });
  const std::string expected = derTlv(0x30, derTlv(0x30, derTlv(0xA4, name)) + serial);
  return written.getSize() == expected.size() && std::memcmp(written.getData2(), expected.data(), expected.size()) == 0;
}

bool certEntryMatches(ClsXml& entry, const DataBuffer& der, X509* cert, const std::vector<std::string>& texts) {
  if (!digestMatches(entry, der, texts)) return false;
  if (RcPtr<ClsXml> issuerSerial{entry.getChildWithTagUtf8("*:IssuerSerial")}) {
    if (RcPtr<ClsXml> serial{issuerSerial->getChildWithTagUtf8("*:X509SerialNumber")}) {
      const std::string issuer = childText(*issuerSerial, "*:X509IssuerName");
      if (!serialMatches(childText(*issuerSerial, "*:X509SerialNumber"), cert)) return false;
      if (issuerKey(issuer.c_str()) != issuerKey(certIssuerText(cert).c_str())) return false;
    } else {
      // Early signed-document formats write the serial number alone as the content.
      StringBuffer content;
      issuerSerial->getContentSb(content);
      if (!serialMatches(std::string(content.view()), cert)) return false;
    }
  }
  const std::string v2 = childText(entry, "*:IssuerSerialV2");
  return withoutSpace(v2).empty() || issuerSerialV2Matches(v2, cert);
}

}  // namespace

bool signingCertificateMatches(ClsXml& signature, const DataBuffer& signerDer,
                               const std::vector<std::string>& signerTexts, std::string& error) {
  RcPtr<ClsXml> signedProperties(signature.searchForTag(nullptr, "*:SignedProperties"));
  if (!signedProperties) return true;
  RcPtr<ClsXml> signingCert(signedProperties->searchForTag(nullptr, "*:SigningCertificateV2"));
  if (!signingCert) signingCert.reset(signedProperties->searchForTag(nullptr, "*:SigningCertificate"));
  if (!signingCert) return true;

  if (signerDer.isEmpty()) {
    error = "The signed properties name a signing certificate, but the key that verified has no certificate.";
    return false;
  }
  const unsigned char* p = signerDer.getData2();
  ossl::X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(signerDer.getSize())));
  ossl::clearErrors();
  if (!cert) {
    error = "The signer certificate cannot be read.";
    return false;
  }
  LogNull quiet;
  for (int i = 0;; ++i) {
    RcPtr<ClsXml> entry(signingCert->getNthChildWithTagUtf8("*:Cert", i, quiet));
    if (!entry) break;
    if (certEntryMatches(*entry, signerDer, cert.get(), signerTexts)) return true;
  }
  error =
      "The signing certificate named in the signed properties is not the certificate that verified the "
      "signature.";
  return false;
}

}  // namespace xades
