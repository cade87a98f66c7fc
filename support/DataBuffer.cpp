// DataBuffer operations: appending, the encoded forms, secure clearing, and the
// conversion of XML bytes in any declared or detected encoding to UTF-8.
#include "support/DataBuffer.h"

#include <strings.h>

#include <cstring>
#include <new>
#include <string>

#include "support/Charset.h"
#include "support/ContentCoding.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

namespace {

const unsigned char kEmpty[1] = {0};

bool named(const char* encoding, const char* name) { return strcasecmp(encoding, name) == 0; }

}  // namespace

const unsigned char* DataBuffer::getData2() const { return m_bytes.empty() ? kEmpty : m_bytes.data(); }

std::string_view DataBuffer::view() const {
  return std::string_view(reinterpret_cast<const char*>(getData2()), m_bytes.size());
}

void DataBuffer::secureClear() {
  if (!m_bytes.empty()) explicit_bzero(m_bytes.data(), m_bytes.size());
  m_bytes.clear();
  m_bytes.shrink_to_fit();
}

bool DataBuffer::append(const void* data, size_t n) {
  if (n == 0) return true;
  if (!data) return false;
  const unsigned char* p = static_cast<const unsigned char*>(data);
  try {
    // Appending a part of this buffer to itself: growing may move the source, so copy first.
    if (!m_bytes.empty() && p >= m_bytes.data() && p < m_bytes.data() + m_bytes.size()) {
      const std::vector<unsigned char> copy(p, p + n);
      m_bytes.insert(m_bytes.end(), copy.begin(), copy.end());
    } else {
      m_bytes.insert(m_bytes.end(), p, p + n);
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool DataBuffer::append(const StringBuffer& sb) { return append(sb.getString(), sb.getSize()); }

bool DataBuffer::appendByte(unsigned char b) { return append(&b, 1); }

bool DataBuffer::appendEncoded(const char* text, const char* encoding) {
  if (!text || !encoding) return false;
  const size_t n = std::strlen(text);
  if (named(encoding, "base64")) return ContentCoding::decodeBase64ToDb(text, n, *this);
  if (named(encoding, "hex") || named(encoding, "hex_lower") || named(encoding, "hex_upper"))
    return ContentCoding::decodeHexToDb(text, n, *this);
  if (named(encoding, "ascii") || named(encoding, "utf-8") || named(encoding, "utf8")) return append(text, n);
  return false;
}

bool DataBuffer::encodeDB(const char* encoding, StringBuffer& out) const {
  if (!encoding) return false;
  if (named(encoding, "base64")) {
    ContentCoding::encodeBase64(getData2(), getSize(), out);
  } else if (named(encoding, "hex") || named(encoding, "hex_upper")) {
    ContentCoding::encodeHex(getData2(), getSize(), false, out);
  } else if (named(encoding, "hex_lower")) {
    ContentCoding::encodeHex(getData2(), getSize(), true, out);
  } else {
    return false;
  }
  return true;
}
