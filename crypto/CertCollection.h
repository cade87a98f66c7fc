// CertCollection: an owning, thread-safe list of certificate records with the lookups
// the certificate store offers. Records are never removed, so the pointers handed out
// stay valid for the collection's life.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "crypto/CertRecord.h"

class DataBuffer;
class LogBase;

class CertCollection {
 public:
  // Adds the certificate unless an identical one is held. False when the DER is not a
  // certificate; `added` tells whether it was new.
  bool addDer(const DataBuffer& der, bool& added, LogBase& log);
  int size() const;

  // Serial in hex (any case, leading zeros ignored); the issuer CN compared
  // case-insensitively with white space collapsed, and not compared when empty.
  CertRecord* findByIssuerCnAndSerial(const char* serialHex, const char* issuerCN) const;
  // By the DistinguishedName canonical key of the subject (component order free).
  CertRecord* findBySubjectKey(const std::string& canonKey) const;
  // By the subject's component values alone, joined with ", " and normalised
  // (DistinguishedName::normalizeValue), in encoding order or its reverse: for names
  // whose attribute types a writer spelled unusually.
  CertRecord* findBySubjectValues(const std::string& normalizedJoinedValues) const;
  // By the subject key identifier or SHA-1 thumbprint bytes.
  CertRecord* findByKeyId(const std::vector<DataBuffer>& candidates) const;
  // Appends every record (for listing).
  void all(std::vector<CertRecord*>& out) const;

 private:
  mutable std::mutex m_mutex;
  std::vector<std::unique_ptr<CertRecord>> m_records;
};
