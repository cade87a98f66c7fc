#include "dsig/reference/StreamedDigest.h"

#include <string.h>  // memmem

#include <algorithm>

#include "dsig/DocumentFamilyMarkers.h"

namespace {

constexpr std::string_view kSignedProperties = "SignedProperties";

bool contains(std::string_view text, std::string_view needle) {
  return memmem(text.data(), text.size(), needle.data(), needle.size()) != nullptr;
}

}  // namespace

bool StreamedDigest::begin(int hashId, LogBase& log) {
  m_sawSwiftSaa = false;
  m_sawSignedProperties = false;
  m_tail.clear();
  m_ok = m_hash.begin(hashId, log);
  return m_ok;
}

void StreamedDigest::write(std::string_view piece) {
  if (piece.empty()) return;
  if (m_ok) m_ok = m_hash.update(piece.data(), piece.size());
  watch(piece);
}

bool StreamedDigest::finish(DataBuffer& out) { return m_ok && m_hash.finish(out); }

void StreamedDigest::watch(std::string_view piece) {
  const std::string_view swift = dsig_family::kSwiftSaaNamespace;
  if (m_sawSwiftSaa && m_sawSignedProperties) return;
  const size_t keep = std::max(swift.size(), kSignedProperties.size()) - 1;

  // A text split between pieces lies within the previous tail and the start of this piece.
  std::string joint = m_tail;
  joint.append(piece.substr(0, keep));
  for (const std::string_view text : {std::string_view(joint), piece}) {
    if (!m_sawSwiftSaa && contains(text, swift)) m_sawSwiftSaa = true;
    if (!m_sawSignedProperties && contains(text, kSignedProperties)) m_sawSignedProperties = true;
  }
  if (piece.size() >= keep) {
    m_tail.assign(piece.substr(piece.size() - keep));
  } else {
    m_tail.append(piece);
    if (m_tail.size() > keep) m_tail.erase(0, m_tail.size() - keep);
  }
}
