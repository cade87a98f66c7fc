// CertificateHolder: owns one certificate decoded from text a document carries (a
// WS-Security KeyIdentifier holding a whole certificate, for instance), as a record of
// the same kind the certificate store hands out.
#pragma once

#include <cstddef>
#include <memory>

#include "crypto/CertRecord.h"

class LogBase;
class SystemCerts;

class CertificateHolder {
 public:
  // Decodes base64 (white space and "&#13;" references ignored) or PEM text. Null,
  // with the reason in the log, when it is not a certificate. The store is accepted
  // for callers that have one at hand; the holder neither reads nor changes it.
  static std::unique_ptr<CertificateHolder> createFromBase64(const char* text, size_t length, SystemCerts* store,
                                                             LogBase& log);
  static std::unique_ptr<CertificateHolder> createFromDer(const DataBuffer& der, LogBase& log);

  // The held certificate's record (its BrantelX509Holder gives the certificate).
  CertRecord* getCertPtr(LogBase& log);

 private:
  CertRecord m_record;
};
