#include "crypto/CertCollection.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "crypto/DistinguishedName.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

// Upper-case hex without leading zero digits ("00ff" and "FF" compare equal).
std::string normalizeSerial(const char* hex) {
  std::string out;
  for (const char* p = hex ? hex : ""; *p; ++p) {
    const char c = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    if (c == ' ' || c == ':') continue;
    if (out.empty() && c == '0') continue;
    out += c;
  }
  return out;
}

// The subject's values joined with ", " in written order (reversed when asked), normalised.
std::string joinedSubjectValues(const CertRecord& rec, bool reversed) {
  std::vector<DistinguishedName::Component> parts;
  DistinguishedName::parse(rec.subjectDn().c_str(), parts);
  if (reversed) std::reverse(parts.begin(), parts.end());
  std::string joined;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) joined += ", ";
    joined += parts[i].value;
  }
  return DistinguishedName::normalizeValue(joined);
}

}  // namespace

bool CertCollection::addDer(const DataBuffer& der, bool& added, LogBase& log) {
  added = false;
  auto rec = std::make_unique<CertRecord>();
  if (!rec->loadDer(der, log)) return false;
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const auto& r : m_records)
    if (r->thumbprint().equals(rec->thumbprint())) return true;
  m_records.push_back(std::move(rec));
  added = true;
  return true;
}

int CertCollection::size() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return static_cast<int>(m_records.size());
}

CertRecord* CertCollection::findByIssuerCnAndSerial(const char* serialHex, const char* issuerCN) const {
  const std::string serial = normalizeSerial(serialHex);
  const std::string cn = DistinguishedName::normalizeValue(issuerCN ? issuerCN : "");
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const auto& r : m_records) {
    if (normalizeSerial(r->serialHex().c_str()) != serial) continue;
    if (!cn.empty() && r->issuerCnNormalized() != cn) continue;
    return r.get();
  }
  return nullptr;
}

CertRecord* CertCollection::findBySubjectKey(const std::string& canonKey) const {
  if (canonKey.empty()) return nullptr;
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const auto& r : m_records)
    if (r->subjectCanonKey() == canonKey) return r.get();
  return nullptr;
}

CertRecord* CertCollection::findBySubjectValues(const std::string& normalizedJoinedValues) const {
  if (normalizedJoinedValues.empty()) return nullptr;
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const auto& r : m_records)
    if (joinedSubjectValues(*r, false) == normalizedJoinedValues ||
        joinedSubjectValues(*r, true) == normalizedJoinedValues)
      return r.get();
  return nullptr;
}

CertRecord* CertCollection::findByKeyId(const std::vector<DataBuffer>& candidates) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const DataBuffer& id : candidates) {
    if (id.isEmpty()) continue;
    for (const auto& r : m_records)
      if (r->subjectKeyId().equals(id) || r->thumbprint().equals(id)) return r.get();
  }
  return nullptr;
}

void CertCollection::all(std::vector<CertRecord*>& out) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  for (const auto& r : m_records) out.push_back(r.get());
}
