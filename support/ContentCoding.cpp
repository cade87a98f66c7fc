// Base64 (RFC 4648 alphabet) and hex coding. Decoders are lenient about white space and
// base64 padding, because signed documents carry values folded over lines, but strict
// about any other byte.
#include "support/ContentCoding.h"

#include <array>
#include <new>

#include "support/DataBuffer.h"
#include "support/StringBuffer.h"

namespace {

constexpr char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr signed char kWs = -2, kPad = -3, kBad = -1;

constexpr std::array<signed char, 256> makeB64Table() {
  std::array<signed char, 256> t{};
  for (auto& v : t) v = kBad;
  for (int i = 0; i < 64; ++i) t[static_cast<unsigned char>(kB64[i])] = static_cast<signed char>(i);
  t[' '] = t['\t'] = t['\r'] = t['\n'] = t['\f'] = t['\v'] = kWs;
  t['='] = kPad;
  return t;
}
constexpr std::array<signed char, 256> kB64Table = makeB64Table();

int hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }

}  // namespace

bool ContentCoding::decodeBase64ToDb(const char* text, size_t length, DataBuffer& out) {
  if (!text) return length == 0;
  std::vector<unsigned char>& bytes = out.bytes();
  const size_t oldSize = bytes.size();
  try {
    bytes.reserve(oldSize + length / 4 * 3 + 3);
  } catch (const std::exception&) {
    return false;
  }
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  uint32_t quantum = 0;
  int have = 0;     // sextets collected in the current quantum
  int padding = 0;  // '=' seen; after the first one only '=' and white space may follow
  for (size_t i = 0; i < length; ++i) {
    const signed char v = kB64Table[p[i]];
    if (v >= 0) {
      if (padding) return false;
      quantum = (quantum << 6) | static_cast<uint32_t>(v);
      if (++have == 4) {
        bytes.push_back(static_cast<unsigned char>(quantum >> 16));
        bytes.push_back(static_cast<unsigned char>(quantum >> 8));
        bytes.push_back(static_cast<unsigned char>(quantum));
        quantum = 0;
        have = 0;
      }
    } else if (v == kWs) {
      continue;
    } else if (v == kPad) {
      // Padding completes a quantum of two or three sextets and nothing else.
      if (have < 2 || have + ++padding > 4) return false;
    } else {
      return false;
    }
  }
  if (have == 1) return false;  // six bits cannot make a byte
  if (have == 2) {
    bytes.push_back(static_cast<unsigned char>(quantum >> 4));
  } else if (have == 3) {
    bytes.push_back(static_cast<unsigned char>(quantum >> 10));
    bytes.push_back(static_cast<unsigned char>(quantum >> 2));
  }
  return true;
}

void ContentCoding::encodeBase64(const void* data, size_t n, StringBuffer& out) {
  if (!data || n == 0) return;
  const unsigned char* p = static_cast<const unsigned char*>(data);
  std::string& s = out.raw();
  try {
    s.reserve(s.size() + (n + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= n; i += 3) {
      const uint32_t v = (uint32_t{p[i]} << 16) | (uint32_t{p[i + 1]} << 8) | p[i + 2];
      s += kB64[v >> 18];
      s += kB64[(v >> 12) & 63];
      s += kB64[(v >> 6) & 63];
      s += kB64[v & 63];
    }
    if (n - i == 1) {
      const uint32_t v = uint32_t{p[i]} << 16;
      s += kB64[v >> 18];
      s += kB64[(v >> 12) & 63];
      s += "==";
    } else if (n - i == 2) {
      const uint32_t v = (uint32_t{p[i]} << 16) | (uint32_t{p[i + 1]} << 8);
      s += kB64[v >> 18];
      s += kB64[(v >> 12) & 63];
      s += kB64[(v >> 6) & 63];
      s += '=';
    }
  } catch (const std::exception&) {
  }
}

bool ContentCoding::decodeHexToDb(const char* text, size_t length, DataBuffer& out) {
  if (!text) return length == 0;
  std::vector<unsigned char>& bytes = out.bytes();
  try {
    bytes.reserve(bytes.size() + length / 2);
  } catch (const std::exception&) {
    return false;
  }
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  int high = -1;
  for (size_t i = 0; i < length; ++i) {
    if (isSpace(p[i])) continue;
    const int v = hexValue(p[i]);
    if (v < 0) return false;
    if (high < 0) {
      high = v;
    } else {
      bytes.push_back(static_cast<unsigned char>((high << 4) | v));
      high = -1;
    }
  }
  return high < 0;  // an odd digit count leaves half a byte
}

void ContentCoding::encodeHex(const void* data, size_t n, bool lowerCase, StringBuffer& out) {
  if (!data || n == 0) return;
  const char* digits = lowerCase ? "0123456789abcdef" : "0123456789ABCDEF";
  const unsigned char* p = static_cast<const unsigned char*>(data);
  std::string& s = out.raw();
  try {
    s.reserve(s.size() + n * 2);
    for (size_t i = 0; i < n; ++i) {
      s += digits[p[i] >> 4];
      s += digits[p[i] & 15];
    }
  } catch (const std::exception&) {
  }
}
