#include "crypto/BrantelX509.h"

#include <openssl/asn1.h>
#include <openssl/x509v3.h>

#include <string>

#include "crypto/DistinguishedName.h"
#include "crypto/_btHash.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

namespace {

std::string asn1ToUtf8(const ASN1_STRING* s) {
  unsigned char* utf8 = nullptr;
  const int len = ASN1_STRING_to_UTF8(&utf8, s);
  if (len < 0) {
    ossl::clearErrors();
    return std::string();
  }
  std::string out(reinterpret_cast<char*>(utf8), static_cast<size_t>(len));
  OPENSSL_free(utf8);
  return out;
}

std::string objectToOid(const ASN1_OBJECT* obj) {
  char buf[128];
  const int len = OBJ_obj2txt(buf, sizeof(buf), obj, 1);
  return len > 0 && static_cast<size_t>(len) < sizeof(buf) ? std::string(buf, static_cast<size_t>(len)) : std::string();
}

// The most specific (last encoded) value of an attribute type in a name.
bool lastEntryText(const X509_NAME* name, int nid, std::string& out) {
  int found = -1;
  for (int i = X509_NAME_get_index_by_NID(name, nid, -1); i >= 0; i = X509_NAME_get_index_by_NID(name, nid, i))
    found = i;
  if (found < 0) return false;
  out = asn1ToUtf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, found)));
  return true;
}

// A name written as a DN text; entries of one multi-valued RDN are joined with '+'.
bool formatName(const X509_NAME* name, bool mostSpecificFirst, bool spaceAfterComma, StringBuffer& out) {
  if (!name) return false;
  const int count = X509_NAME_entry_count(name);
  std::string text;
  int previousSet = -1;
  for (int k = 0; k < count; ++k) {
    const int i = mostSpecificFirst ? count - 1 - k : k;
    const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
    const int set = X509_NAME_ENTRY_set(entry);
    if (k > 0) text += set == previousSet ? "+" : (spaceAfterComma ? ", " : ",");
    previousSet = set;
    text += DistinguishedName::displayTypeForOid(objectToOid(X509_NAME_ENTRY_get_object(entry)));
    text += '=';
    text += DistinguishedName::escapeValue(asn1ToUtf8(X509_NAME_ENTRY_get_data(entry)));
  }
  return out.append(text);
}

}  // namespace

BrantelX509::BrantelX509() = default;
BrantelX509::~BrantelX509() = default;

bool BrantelX509::loadX509Der(const DataBuffer& der, LogBase& log) {
  return loadX509Der(der.getData2(), der.getSize(), log);
}

bool BrantelX509::loadX509Der(const void* der, size_t n, LogBase& log) {
  const unsigned char* p = static_cast<const unsigned char*>(der);
  const unsigned char* start = p;
  ossl::X509Ptr cert(n ? d2i_X509(nullptr, &p, static_cast<long>(n)) : nullptr);
  if (!cert || static_cast<size_t>(p - start) != n) {
    ossl::drainErrors(log);
    log.LogError("The DER is not an X.509 certificate.");
    return false;
  }
  m_x509 = std::move(cert);
  return true;
}

bool BrantelX509::getCertDer(DataBuffer& out) const {
  out.clear();
  if (!m_x509) return false;
  unsigned char* der = nullptr;
  const int len = i2d_X509(m_x509.get(), &der);
  if (len <= 0) {
    ossl::clearErrors();
    return false;
  }
  const bool ok = out.append(der, static_cast<size_t>(len));
  OPENSSL_free(der);
  return ok;
}

bool BrantelX509::get_PublicKey(DataBuffer& spkiDer, LogBase& log) const {
  spkiDer.clear();
  if (!m_x509) {
    log.LogError("No certificate is loaded.");
    return false;
  }
  unsigned char* der = nullptr;
  const int len = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(m_x509.get()), &der);
  if (len <= 0) {
    ossl::drainErrors(log);
    log.LogError("Failed to encode the certificate's public key.");
    return false;
  }
  const bool ok = spkiDer.append(der, static_cast<size_t>(len));
  OPENSSL_free(der);
  return ok;
}

bool BrantelX509::get_IssuerCN(StringBuffer& out, LogBase& /*log*/) const {
  std::string cn;
  if (!m_x509 || !lastEntryText(X509_get_issuer_name(m_x509.get()), NID_commonName, cn)) return false;
  return out.append(cn);
}

bool BrantelX509::get_IssuerCN(XString& out, LogBase& log) const { return get_IssuerCN(out.getUtf8Sb_rw(), log); }

bool BrantelX509::get_SubjectCN(StringBuffer& out, LogBase& /*log*/) const {
  std::string cn;
  if (!m_x509 || !lastEntryText(X509_get_subject_name(m_x509.get()), NID_commonName, cn)) return false;
  return out.append(cn);
}

bool BrantelX509::get_SerialNumber(StringBuffer& out) const {
  if (!m_x509) return false;
  ossl::BnPtr bn(ASN1_INTEGER_to_BN(X509_get0_serialNumber(m_x509.get()), nullptr));
  if (!bn) {
    ossl::clearErrors();
    return false;
  }
  BN_set_negative(bn.get(), 0);  // a (malformed) negative serial is referred to by its magnitude
  char* hex = BN_bn2hex(bn.get());
  if (!hex) return false;
  std::string text(hex);
  OPENSSL_free(hex);
  if (text.size() % 2) text.insert(0, "0");
  return out.append(text);
}

bool BrantelX509::get_SerialNumber(XString& out) const { return get_SerialNumber(out.getUtf8Sb_rw()); }

bool BrantelX509::getDN(bool mostSpecificFirst, bool spaceAfterComma, StringBuffer& out, LogBase& /*log*/,
                        int /*reserved*/) const {
  return m_x509 && formatName(X509_get_subject_name(m_x509.get()), mostSpecificFirst, spaceAfterComma, out);
}

bool BrantelX509::getIssuerDN(bool mostSpecificFirst, bool spaceAfterComma, StringBuffer& out, LogBase& /*log*/) const {
  return m_x509 && formatName(X509_get_issuer_name(m_x509.get()), mostSpecificFirst, spaceAfterComma, out);
}

bool BrantelX509::getSubjectKeyIdentifier(DataBuffer& out, LogBase& log) const {
  out.clear();
  if (!m_x509) return false;
  int critical = 0;
  ASN1_OCTET_STRING* ski = static_cast<ASN1_OCTET_STRING*>(
      X509_get_ext_d2i(m_x509.get(), NID_subject_key_identifier, &critical, nullptr));
  if (ski) {
    const bool ok = out.append(ASN1_STRING_get0_data(ski), static_cast<size_t>(ASN1_STRING_length(ski)));
    ASN1_OCTET_STRING_free(ski);
    return ok;
  }
  ossl::clearErrors();
  const ASN1_BIT_STRING* keyBits = X509_get0_pubkey_bitstr(m_x509.get());
  if (!keyBits) {
    log.LogError("The certificate has no public key bits.");
    return false;
  }
  return _btHash::doHash(ASN1_STRING_get0_data(keyBits), static_cast<size_t>(ASN1_STRING_length(keyBits)), 1, out);
}

bool BrantelX509::getSha1Thumbprint(DataBuffer& out) const {
  DataBuffer der;
  return getCertDer(der) && _btHash::doHash(der.getData2(), der.getSize(), 1, out);
}

BrantelX509Holder::BrantelX509Holder() = default;
BrantelX509Holder::~BrantelX509Holder() = default;

bool BrantelX509Holder::loadX509Der(const DataBuffer& der, LogBase& log) {
  auto cert = std::make_unique<BrantelX509>();
  if (!cert->loadX509Der(der, log)) return false;
  m_cert = std::move(cert);
  return true;
}
