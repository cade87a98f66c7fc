#include "crypto/Der.h"

#include <cstdlib>
#include <cstring>

namespace der {

namespace {

// Indefinite lengths are found by walking the children, which nest; deeper nesting than
// any real structure has is refused instead of exhausting the stack.
const int kMaxIndefiniteDepth = 64;

bool readTlvAt(const uint8_t* data, size_t size, size_t pos, Tlv& out, int depth) {
  out = Tlv();
  out.headerStart = pos;
  if (pos >= size) return false;
  const uint8_t id = data[pos++];
  out.tagClass = static_cast<uint8_t>(id >> 6);
  out.constructed = (id & 0x20) != 0;
  out.tagNumber = id & 0x1f;
  if (out.tagNumber == 0x1f) {  // high tag number form, base 128
    out.tagNumber = 0;
    for (int count = 0;; ++count) {
      if (pos >= size || count > 4) return false;
      const uint8_t b = data[pos++];
      out.tagNumber = (out.tagNumber << 7) | (b & 0x7f);
      if (!(b & 0x80)) break;
    }
  }
  if (pos >= size) return false;
  const uint8_t first = data[pos++];
  if (first < 0x80) {
    out.contentLength = first;
  } else if (first == 0x80) {
    if (!out.constructed) return false;
    out.indefinite = true;
  } else {
    out.lengthOctets = first & 0x7f;
    if (out.lengthOctets > sizeof(size_t) || pos + out.lengthOctets > size) return false;
    size_t length = 0;
    for (size_t i = 0; i < out.lengthOctets; ++i) length = (length << 8) | data[pos++];
    out.contentLength = length;
    const size_t minimalOctets = length < 0x80 ? 0
                                               : (length <= 0xff       ? 1
                                                  : length <= 0xffff   ? 2
                                                  : length <= 0xffffff ? 3
                                                                       : 4);
    out.minimalLength = out.lengthOctets == minimalOctets;
  }
  out.contentStart = pos;
  if (!out.indefinite) {
    if (out.contentLength > size - pos) return false;
    out.end = pos + out.contentLength;
    return true;
  }
  // Indefinite length: walk the children up to the end-of-contents octets.
  if (depth >= kMaxIndefiniteDepth) return false;
  size_t cur = pos;
  for (;;) {
    if (cur + 2 <= size && data[cur] == 0 && data[cur + 1] == 0) {
      out.contentLength = cur - pos;
      out.end = cur + 2;
      return true;
    }
    Tlv child;
    if (!readTlvAt(data, size, cur, child, depth + 1)) return false;
    cur = child.end;
  }
}

}  // namespace

bool readTlv(const uint8_t* data, size_t size, size_t pos, Tlv& out) { return readTlvAt(data, size, pos, out, 0); }

void appendLength(Bytes& out, size_t length) {
  if (length < 0x80) {
    out.push_back(static_cast<uint8_t>(length));
    return;
  }
  uint8_t octets[sizeof(size_t)];
  size_t n = 0;
  for (size_t v = length; v; v >>= 8) octets[n++] = static_cast<uint8_t>(v & 0xff);
  out.push_back(static_cast<uint8_t>(0x80 | n));
  while (n) out.push_back(octets[--n]);
}

void appendTlv(Bytes& out, uint8_t tag, const uint8_t* content, size_t length) {
  out.push_back(tag);
  appendLength(out, length);
  if (length) out.insert(out.end(), content, content + length);
}

void appendUnsignedInteger(Bytes& out, const uint8_t* value, size_t length) {
  while (length > 0 && *value == 0) {
    ++value;
    --length;
  }
  Bytes content;
  if (length == 0 || (value[0] & 0x80)) content.push_back(0);
  content.insert(content.end(), value, value + length);
  appendTlv(out, kInteger, content);
}

namespace {

void appendBase128(Bytes& out, unsigned long long v) {
  uint8_t tmp[10];
  size_t n = 0;
  do {
    tmp[n++] = static_cast<uint8_t>(v & 0x7f);
    v >>= 7;
  } while (v);
  while (n > 1) out.push_back(static_cast<uint8_t>(tmp[--n] | 0x80));
  out.push_back(tmp[0]);
}

}  // namespace

bool encodeOid(const char* dotted, Bytes& out) {
  out.clear();
  if (!dotted) return false;
  std::vector<unsigned long long> arcs;
  const char* p = dotted;
  while (*p) {
    if (*p < '0' || *p > '9') return false;
    char* end = nullptr;
    arcs.push_back(std::strtoull(p, &end, 10));
    p = end;
    if (*p == '.') {
      ++p;
      if (!*p) return false;
    } else if (*p) {
      return false;
    }
  }
  if (arcs.size() < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] > 39)) return false;
  appendBase128(out, arcs[0] * 40 + arcs[1]);
  for (size_t i = 2; i < arcs.size(); ++i) appendBase128(out, arcs[i]);
  return true;
}

bool decodeOid(const uint8_t* content, size_t length, std::string& dotted) {
  dotted.clear();
  if (length == 0 || (content[length - 1] & 0x80)) return false;
  bool first = true;
  unsigned long long v = 0;
  int digits = 0;
  for (size_t i = 0; i < length; ++i) {
    if (digits == 0 && content[i] == 0x80) return false;  // non-minimal encoding
    if (++digits > 9) return false;                       // arc beyond 63 bits
    v = (v << 7) | (content[i] & 0x7f);
    if (content[i] & 0x80) continue;
    if (first) {
      const unsigned long long top = v < 40 ? 0 : v < 80 ? 1 : 2;
      dotted += std::to_string(top) + "." + std::to_string(v - top * 40);
      first = false;
    } else {
      dotted += "." + std::to_string(v);
    }
    v = 0;
    digits = 0;
  }
  return true;
}

bool rsToDer(const uint8_t* sig, size_t length, Bytes& out) {
  out.clear();
  if (length == 0 || length % 2) return false;
  const size_t half = length / 2;
  Bytes body;
  appendUnsignedInteger(body, sig, half);
  appendUnsignedInteger(body, sig + half, half);
  appendTlv(out, kSequence, body);
  return true;
}

bool isSequenceOfTwoIntegers(const uint8_t* data, size_t length) {
  Tlv seq;
  if (!readTlv(data, length, 0, seq) || seq.end != length || seq.indefinite) return false;
  if (seq.tagClass != 0 || !seq.constructed || seq.tagNumber != 16) return false;
  size_t pos = seq.contentStart;
  for (int i = 0; i < 2; ++i) {
    Tlv item;
    if (!readTlv(data, seq.end, pos, item)) return false;
    if (item.tagClass != 0 || item.constructed || item.tagNumber != 2 || item.contentLength == 0) return false;
    pos = item.end;
  }
  return pos == seq.end;
}

}  // namespace der
