// SystemCerts: the certificate store that key resolution searches for certificates a
// signature refers to (by issuer and serial, subject name, subject key identifier or
// thumbprint). It holds certificates of its own and searches the vaults attached to
// it after them. Returned certificates and records stay owned by the store (or the
// vault). Safe to share between threads.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "crypto/CertCollection.h"

class BrantelX509;
class CertMgr;
class DataBuffer;
class LogBase;
class StringBuffer;

class SystemCerts {
 public:
  SystemCerts();
  ~SystemCerts();
  SystemCerts(const SystemCerts&) = delete;
  SystemCerts& operator=(const SystemCerts&) = delete;

  // Adds a certificate (DER, or PEM / base64 text, or a PEM or DER file). False when
  // nothing could be read; an identical certificate is held once.
  bool addCertDer(const DataBuffer& der, LogBase& log);
  bool addCertBase64(const StringBuffer& text, LogBase& log);
  bool addCertFile(const char* path, LogBase& log);

  // The certificate with this serial (hex) whose issuer has this CN; the third
  // argument is not used.
  BrantelX509* findX509(const char* serialHex, const char* issuerCN, const char* unused, LogBase& log);
  // The certificate with this subject, compared component by component (attribute type
  // aliases, case and white space of the values, quoting and escaping do not matter, nor
  // the order in which the components are written). With allowValuesOnly, a subject
  // whose values alone (dnWithoutTags, in written or reversed order) match is accepted
  // when no typed match exists.
  BrantelX509* findBySubjectDN_x509(const char* dnWithoutTags, const char* dn, bool allowValuesOnly, LogBase& log);
  // The record of the certificate whose subject key identifier, or SHA-1 thumbprint,
  // the text gives in base64 or hex (as documents write them).
  CertRecord* findBySubjectKeyId(const char* ski, LogBase& log);
  // The record of the certificate whose DER has this digest under the hash identifier.
  CertRecord* findByCertDigest(int hashId, const DataBuffer& digest) const;

  // Attaches a vault's certificates; later lookups search them too. False for a null
  // manager or one not owned by a vault.
  bool addCertVault(CertMgr* certMgr, LogBase& log);

  // Certificates of the store itself plus those of the attached vaults.
  int numCerts() const;
  // Every certificate of the store and its vaults (for building certificate chains).
  std::vector<CertRecord*> allRecords() const;

 private:
  // The store's own certificates first, then each vault's, in attachment order.
  std::vector<const CertCollection*> collections() const;

  CertCollection m_own;
  mutable std::mutex m_vaultMutex;
  std::vector<std::shared_ptr<CertMgr>> m_vaults;
};
