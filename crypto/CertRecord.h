// CertRecord: a certificate held by a store or a certificate holder, with the lookup
// keys derived from it once when it is added.
#pragma once

#include <string>

#include "crypto/BrantelX509.h"
#include "support/DataBuffer.h"

class LogBase;

class CertRecord {
 public:
  CertRecord() = default;
  CertRecord(const CertRecord&) = delete;
  CertRecord& operator=(const CertRecord&) = delete;

  // Parses the DER and derives the lookup keys. False when it is not a certificate.
  bool loadDer(const DataBuffer& der, LogBase& log);

  BrantelX509Holder& getX509Holder() { return m_holder; }
  // The certificate, or null when the record holds none.
  BrantelX509* getX509Ptr() const { return m_holder.getX509Ptr(); }

  const DataBuffer& der() const { return m_der; }
  const DataBuffer& thumbprint() const { return m_thumbprint; }
  const DataBuffer& subjectKeyId() const { return m_ski; }
  const std::string& serialHex() const { return m_serialHex; }          // as get_SerialNumber gives it
  const std::string& issuerCnNormalized() const { return m_issuerCn; }  // case-folded, spaces collapsed
  const std::string& subjectCanonKey() const { return m_subjectKey; }   // DistinguishedName key
  const std::string& subjectDn() const { return m_subjectDn; }          // "CN=..., O=..., C=..."

 private:
  BrantelX509Holder m_holder;
  DataBuffer m_der;
  DataBuffer m_thumbprint;
  DataBuffer m_ski;
  std::string m_serialHex;
  std::string m_issuerCn;
  std::string m_subjectKey;
  std::string m_subjectDn;
};
