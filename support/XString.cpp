// XString: the public-API string, with secret wiping, charset conversion, the
// decimal-to-hex re-encoding of serial numbers and the Windows-1252 repair.
#include "support/XString.h"

#include <strings.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "support/Charset.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

XString::XString(const XString& other) : m_secure(other.m_secure) { m_sb.append(other.m_sb); }

XString& XString::operator=(const XString& other) {
  if (this != &other) {
    // A secret stays secret when it is copied, and a secret target is wiped before reuse.
    m_secure = m_secure || other.m_secure;
    clear();
    m_sb.append(other.m_sb);
  }
  return *this;
}

XString::~XString() {
  if (m_secure) wipe();
}

void XString::wipe() {
  // Overwrite the whole allocation, not only the current length: a shorter value may sit
  // in storage that still holds the tail of a longer one.
  std::string& s = m_sb.raw();
  s.resize(s.capacity());
  if (!s.empty()) explicit_bzero(&s[0], s.size());
  s.clear();
  s.shrink_to_fit();
}

void XString::clear() {
  if (m_secure) {
    wipe();
  } else {
    m_sb.clear();
  }
}

void XString::copyFromX(const XString& other) { *this = other; }

void XString::setFromSbUtf8(const StringBuffer& sb) {
  if (&sb == &m_sb) return;
  clear();
  m_sb.append(sb);
}

void XString::setFromUtf8(const char* text) {
  if (text && text >= m_sb.getString() && text <= m_sb.getString() + m_sb.getSize()) {
    const std::string copy(text);  // text points into this string
    clear();
    m_sb.append(copy);
    return;
  }
  clear();
  m_sb.append(text);
}

namespace {

// Arbitrary-length unsigned decimal text to upper-case hex with an even digit count.
bool decimalToHex(std::string_view dec, std::string& hex) {
  while (!dec.empty() && (dec.front() == ' ' || dec.front() == '\t' || dec.front() == '\r' || dec.front() == '\n'))
    dec.remove_prefix(1);
  while (!dec.empty() && (dec.back() == ' ' || dec.back() == '\t' || dec.back() == '\r' || dec.back() == '\n'))
    dec.remove_suffix(1);
  if (dec.empty()) return false;
  // Little-endian base 2^32 limbs; each group of up to nine digits is folded in at once.
  std::vector<uint32_t> limbs;
  limbs.reserve(dec.size() / 9 + 1);
  size_t i = 0;
  while (i < dec.size()) {
    const size_t take = dec.size() - i < 9 ? dec.size() - i : 9;
    uint32_t chunk = 0, scale = 1;
    for (size_t k = 0; k < take; ++k) {
      const char c = dec[i + k];
      if (c < '0' || c > '9') return false;
      chunk = chunk * 10 + static_cast<uint32_t>(c - '0');
      scale *= 10;
    }
    i += take;
    uint64_t carry = chunk;
    for (uint32_t& limb : limbs) {
      const uint64_t v = static_cast<uint64_t>(limb) * scale + carry;
      limb = static_cast<uint32_t>(v);
      carry = v >> 32;
    }
    if (carry) limbs.push_back(static_cast<uint32_t>(carry));
  }
  static const char digits[] = "0123456789ABCDEF";
  hex.clear();
  for (size_t l = limbs.size(); l-- > 0;)
    for (int shift = 28; shift >= 0; shift -= 4) hex += digits[(limbs[l] >> shift) & 15];
  const size_t firstNonZero = hex.find_first_not_of('0');
  hex.erase(0, firstNonZero == std::string::npos ? hex.size() : firstNonZero);
  if (hex.size() % 2) hex.insert(hex.begin(), '0');
  if (hex.empty()) hex = "00";
  return true;
}

}  // namespace

bool XString::reencode(const char* fromEncoding, const char* toEncoding) {
  if (!fromEncoding || !toEncoding) return false;
  if (strcasecmp(fromEncoding, "decimal") == 0 && strcasecmp(toEncoding, "hex") == 0) {
    try {
      std::string hex;
      if (!decimalToHex(m_sb.view(), hex)) return false;
      clear();
      return m_sb.append(hex);
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  return false;
}

bool XString::getConverted(const _btCharset& charset, DataBuffer& out) const {
  if (charset.name() == "UTF-8") return out.append(m_sb.getString(), m_sb.getSize());
  std::string bytes;
  const bool ok = convertCharset("UTF-8", charset.name().c_str(), m_sb.getString(), m_sb.getSize(), bytes);
  return out.append(bytes.data(), bytes.size()) && ok;
}

bool XString::checkFixUtf8Windows1252(LogBase& log) {
  if (findInvalidUtf8(m_sb.getString(), m_sb.getSize()) == SIZE_MAX) return false;
  try {
    std::string repaired;
    repairUtf8AsWindows1252(m_sb.view(), repaired);
    clear();
    m_sb.append(repaired);
    log.LogInfo("Text was not valid UTF-8; its invalid bytes were read as Windows-1252.");
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}
