// CertMgr: the certificates of a certificate vault. Shared (std::shared_ptr) between
// the vault that fills it and the stores that search it, so that a store keeps seeing
// the vault's certificates, also those added later, for as long as it needs them.
#pragma once

#include <memory>

#include "crypto/CertCollection.h"

class DataBuffer;
class LogBase;
class StringBuffer;

class CertMgr : public std::enable_shared_from_this<CertMgr> {
 public:
  static std::shared_ptr<CertMgr> create() { return std::make_shared<CertMgr>(); }

  bool addCertDer(const DataBuffer& der, LogBase& log);
  // PEM (any number of certificates) or DER bytes. Returns the number of certificates
  // read (duplicates included), 0 when none could be read.
  int addCertBytes(const DataBuffer& bytes, LogBase& log);
  // PEM text or the base64 of a DER certificate.
  bool addCertText(const StringBuffer& text, LogBase& log);
  int numCerts() const { return m_certs.size(); }
  const CertCollection& certs() const { return m_certs; }

 private:
  CertCollection m_certs;
};

// Certificate DERs from PEM (every CERTIFICATE block) or DER bytes. False (logged) when
// none is found.
bool certificatesFromBytes(const DataBuffer& bytes, std::vector<DataBuffer>& out, LogBase& log);
// The same from text: PEM, or base64 of a DER certificate (white space and "&#13;"
// line-end references ignored).
bool certificatesFromText(const StringBuffer& text, std::vector<DataBuffer>& out, LogBase& log);
