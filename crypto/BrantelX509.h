// BrantelX509: one parsed X.509 certificate and the fields key resolution needs: issuer
// CN and serial number (in the forms documents refer to them by), subject and issuer
// DNs, subject key identifier, thumbprint, public key and the DER itself.
// BrantelX509Holder owns one certificate.
#pragma once

#include <cstddef>
#include <memory>

#include "crypto/OsslPtr.h"

class DataBuffer;
class LogBase;
class StringBuffer;
class XString;

class BrantelX509 {
 public:
  BrantelX509();
  ~BrantelX509();
  BrantelX509(const BrantelX509&) = delete;
  BrantelX509& operator=(const BrantelX509&) = delete;

  // Parses DER (exactly one certificate; trailing bytes are refused). Replaces the
  // certificate only on success.
  bool loadX509Der(const DataBuffer& der, LogBase& log);
  bool loadX509Der(const void* der, size_t n, LogBase& log);
  bool isLoaded() const { return m_x509 != nullptr; }
  X509* getX509() const { return m_x509.get(); }

  // The certificate's DER, replacing out. False when nothing is loaded.
  bool getCertDer(DataBuffer& out) const;
  // The SubjectPublicKeyInfo DER, replacing out.
  bool get_PublicKey(DataBuffer& spkiDer, LogBase& log) const;

  // The issuer's common name (UTF-8; the most specific one when there are several).
  // False, out unchanged, when the issuer has no CN.
  bool get_IssuerCN(StringBuffer& out, LogBase& log) const;
  bool get_IssuerCN(XString& out, LogBase& log) const;
  bool get_SubjectCN(StringBuffer& out, LogBase& log) const;
  // The serial number in upper-case hex with an even number of digits and no sign
  // byte: the form a decimal X509SerialNumber takes after conversion to hex
  // (255 gives "FF", 4096 gives "1000", 0 gives "00"). Appends to out.
  bool get_SerialNumber(StringBuffer& out) const;
  bool get_SerialNumber(XString& out) const;

  // The subject DN, appended to out, as document writers write it. mostSpecificFirst:
  // "CN=..., O=..., C=..." (the reverse of the certificate's encoding order, as in
  // RFC 2253); otherwise in encoding order. spaceAfterComma: ", " between components
  // (otherwise ","). Values are UTF-8, escaped where a DN needs it; types are short
  // names ("EMAILADDRESS", "SERIALNUMBER", "OID.n.n.n" for types without one).
  // The last argument is reserved.
  bool getDN(bool mostSpecificFirst, bool spaceAfterComma, StringBuffer& out, LogBase& log, int reserved) const;
  bool getIssuerDN(bool mostSpecificFirst, bool spaceAfterComma, StringBuffer& out, LogBase& log) const;

  // The subject key identifier extension's value, or, when the certificate has none,
  // the SHA-1 of the public key bits (the usual way of deriving one). Replaces out.
  bool getSubjectKeyIdentifier(DataBuffer& out, LogBase& log) const;
  // SHA-1 of the certificate DER. Replaces out.
  bool getSha1Thumbprint(DataBuffer& out) const;

 private:
  ossl::X509Ptr m_x509;
};

class BrantelX509Holder {
 public:
  BrantelX509Holder();
  ~BrantelX509Holder();
  BrantelX509Holder(const BrantelX509Holder&) = delete;
  BrantelX509Holder& operator=(const BrantelX509Holder&) = delete;

  // Parses DER into a new certificate held here (the previous one is kept on failure).
  bool loadX509Der(const DataBuffer& der, LogBase& log);
  // The held certificate, or null when none.
  BrantelX509* getX509Ptr() const { return m_cert.get(); }
  void setX509(std::unique_ptr<BrantelX509> cert) { m_cert = std::move(cert); }

 private:
  std::unique_ptr<BrantelX509> m_cert;
};
