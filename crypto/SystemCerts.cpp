#include "crypto/SystemCerts.h"

#include <cctype>
#include <string>

#include "crypto/CertMgr.h"
#include "crypto/DistinguishedName.h"
#include "crypto/PemFile.h"
#include "crypto/_btHash.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

namespace {

// Byte strings a key identifier text may stand for: its hex and its base64 decoding,
// and for each the content of an OCTET STRING wrapper some writers leave on.
std::vector<DataBuffer> keyIdCandidates(const char* text) {
  std::vector<DataBuffer> out;
  std::string compact;
  for (const char* p = text ? text : ""; *p; ++p)
    if (!std::isspace(static_cast<unsigned char>(*p))) compact += *p;
  if (compact.empty()) return out;

  std::string hexDigits;
  bool allHex = true;
  for (char c : compact) {
    if (c == ':') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) allHex = false;
    hexDigits += c;
  }
  DataBuffer db;
  if (allHex && hexDigits.size() % 2 == 0 && ContentCoding::decodeHexToDb(hexDigits.data(), hexDigits.size(), db))
    out.push_back(db);
  db.clear();
  if (ContentCoding::decodeBase64ToDb(compact.data(), compact.size(), db) && !db.isEmpty()) out.push_back(db);

  const size_t decoded = out.size();
  for (size_t i = 0; i < decoded; ++i) {
    const DataBuffer& c = out[i];
    if (c.getSize() > 2 && c.getData2()[0] == 0x04 && c.getData2()[1] == c.getSize() - 2)
      out.emplace_back(c.getData2() + 2, c.getSize() - 2);
  }
  return out;
}

}  // namespace

SystemCerts::SystemCerts() = default;
SystemCerts::~SystemCerts() = default;

bool SystemCerts::addCertDer(const DataBuffer& der, LogBase& log) {
  bool added = false;
  return m_own.addDer(der, added, log);
}

bool SystemCerts::addCertBase64(const StringBuffer& text, LogBase& log) {
  std::vector<DataBuffer> ders;
  if (!certificatesFromText(text, ders, log)) return false;
  bool any = false;
  for (const DataBuffer& der : ders) any = addCertDer(der, log) || any;
  return any;
}

bool SystemCerts::addCertFile(const char* path, LogBase& log) {
  DataBuffer bytes;
  std::vector<DataBuffer> ders;
  if (!pem::readFile(path, bytes, log) || !certificatesFromBytes(bytes, ders, log)) return false;
  bool any = false;
  for (const DataBuffer& der : ders) any = addCertDer(der, log) || any;
  return any;
}

std::vector<const CertCollection*> SystemCerts::collections() const {
  std::vector<const CertCollection*> out{&m_own};
  std::lock_guard<std::mutex> lock(m_vaultMutex);
  for (const auto& v : m_vaults) out.push_back(&v->certs());
  return out;
}

BrantelX509* SystemCerts::findX509(const char* serialHex, const char* issuerCN, const char* /*unused*/,
                                   LogBase& /*log*/) {
  if (!serialHex || !*serialHex) return nullptr;
  for (const CertCollection* c : collections())
    if (CertRecord* r = c->findByIssuerCnAndSerial(serialHex, issuerCN)) return r->getX509Ptr();
  return nullptr;
}

BrantelX509* SystemCerts::findBySubjectDN_x509(const char* dnWithoutTags, const char* dn, bool allowValuesOnly,
                                               LogBase& /*log*/) {
  std::vector<DistinguishedName::Component> parts;
  const std::vector<const CertCollection*> all = collections();
  if (DistinguishedName::parse(dn, parts)) {
    const std::string key = DistinguishedName::canonicalKey(parts);
    for (const CertCollection* c : all)
      if (CertRecord* r = c->findBySubjectKey(key)) return r->getX509Ptr();
  }
  if (!allowValuesOnly) return nullptr;
  // The values alone: the tag-free text when given, else the parsed DN's values.
  std::string values;
  if (dnWithoutTags && *dnWithoutTags) {
    values = dnWithoutTags;
  } else {
    for (size_t i = 0; i < parts.size(); ++i) values += (i ? ", " : "") + parts[i].value;
  }
  values = DistinguishedName::normalizeValue(values);
  for (const CertCollection* c : all)
    if (CertRecord* r = c->findBySubjectValues(values)) return r->getX509Ptr();
  return nullptr;
}

CertRecord* SystemCerts::findBySubjectKeyId(const char* ski, LogBase& /*log*/) {
  const std::vector<DataBuffer> candidates = keyIdCandidates(ski);
  if (candidates.empty()) return nullptr;
  for (const CertCollection* c : collections())
    if (CertRecord* r = c->findByKeyId(candidates)) return r;
  return nullptr;
}

CertRecord* SystemCerts::findByCertDigest(int hashId, const DataBuffer& digest) const {
  if (digest.isEmpty()) return nullptr;
  std::vector<CertRecord*> records;
  for (const CertCollection* c : collections()) c->all(records);
  DataBuffer computed;
  for (CertRecord* r : records)
    if (_btHash::doHash(r->der().getData2(), r->der().getSize(), hashId, computed) && computed.equals(digest)) return r;
  return nullptr;
}

bool SystemCerts::addCertVault(CertMgr* certMgr, LogBase& log) {
  if (!certMgr) {
    log.LogError("No certificate manager.");
    return false;
  }
  std::shared_ptr<CertMgr> shared = certMgr->weak_from_this().lock();
  if (!shared) {
    log.LogError("The certificate manager does not belong to a vault.");
    return false;
  }
  std::lock_guard<std::mutex> lock(m_vaultMutex);
  for (const auto& v : m_vaults)
    if (v == shared) return true;
  m_vaults.push_back(std::move(shared));
  return true;
}

int SystemCerts::numCerts() const {
  int n = 0;
  for (const CertCollection* c : collections()) n += c->size();
  return n;
}

std::vector<CertRecord*> SystemCerts::allRecords() const {
  std::vector<CertRecord*> out;
  for (const CertCollection* c : collections()) c->all(out);
  return out;
}
