// Charset conversion through glibc iconv, UTF-8 validation, and the Windows-1252 repair of
// text that claims to be UTF-8 but is not.
#include "support/Charset.h"

#include <iconv.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace {

// Owns one iconv conversion descriptor.
class IconvHandle {
 public:
  IconvHandle(const char* to, const char* from) : m_cd(iconv_open(to, from)) {}
  ~IconvHandle() {
    if (ok()) iconv_close(m_cd);
  }
  IconvHandle(const IconvHandle&) = delete;
  IconvHandle& operator=(const IconvHandle&) = delete;
  bool ok() const { return m_cd != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return m_cd; }

 private:
  iconv_t m_cd;
};

char asciiUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

std::string upperTrimmed(std::string_view name) {
  while (!name.empty() && (name.front() == ' ' || name.front() == '\t')) name.remove_prefix(1);
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.remove_suffix(1);
  std::string s(name);
  for (char& c : s) c = asciiUpper(c);
  return s;
}

// Unicode code points of the Windows-1252 bytes 0x80..0x9F. The five bytes the code page
// leaves undefined map to the C1 control of the same value, as browsers do.
constexpr uint16_t kCp1252High[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                      0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void appendUtf8(uint32_t cp, std::string& out) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// Length of the well-formed UTF-8 sequence starting at p[0] (p has n > 0 bytes), or 0.
size_t utf8SequenceLength(const unsigned char* p, size_t n) {
  const unsigned char c = p[0];
  if (c < 0x80) return 1;
  size_t len;
  unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    len = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    len = 3;
    if (c == 0xE0) lo = 0xA0;  // no overlong forms
    if (c == 0xED) hi = 0x9F;  // no surrogates
  } else if (c >= 0xF0 && c <= 0xF4) {
    len = 4;
    if (c == 0xF0) lo = 0x90;
    if (c == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (n < len || p[1] < lo || p[1] > hi) return 0;
  for (size_t i = 2; i < len; ++i)
    if ((p[i] & 0xC0) != 0x80) return 0;
  return len;
}

}  // namespace

std::string iconvCharsetName(std::string_view name) {
  const std::string n = upperTrimmed(name);
  if (n.empty()) return {};
  struct Alias {
    const char* alias;
    const char* iconvName;
  };
  // Names in common use that iconv spells differently or reads differently. A bare
  // "UTF-16"/"Unicode" is little-endian without a byte-order mark, as most callers mean it.
  static const Alias kAliases[] = {
      {"UTF8", "UTF-8"},         {"UTF-16", "UTF-16LE"},   {"UNICODE", "UTF-16LE"},     {"UTF16", "UTF-16LE"},
      {"UTF-16LE", "UTF-16LE"},  {"UTF-16BE", "UTF-16BE"}, {"UNICODEFFFE", "UTF-16BE"}, {"LATIN1", "ISO-8859-1"},
      {"LATIN-1", "ISO-8859-1"}, {"ANSI", "WINDOWS-1252"}, {"CP-1252", "WINDOWS-1252"}, {"ASCII", "US-ASCII"},
      {"UTF-32", "UTF-32LE"},    {"UTF32", "UTF-32LE"},
  };
  for (const Alias& a : kAliases)
    if (n == a.alias) return a.iconvName;
  IconvHandle probe("UTF-8", n.c_str());
  return probe.ok() ? n : std::string();
}

bool _btCharset::setByName(const char* name) {
  std::string n = iconvCharsetName(name ? name : "");
  if (n.empty()) {
    m_iconvName = "UTF-8";
    return false;
  }
  m_iconvName = std::move(n);
  return true;
}

bool convertCharsetAt(const char* from, const char* to, const void* in, size_t inLen, std::string& out,
                      size_t& failOffset) {
  out.clear();
  failOffset = inLen;
  if (!from || !to) return false;
  IconvHandle cd(to, from);
  if (!cd.ok()) return false;
  char* src = const_cast<char*>(static_cast<const char*>(in));
  size_t srcLeft = inLen;
  try {
    char chunk[16384];
    while (true) {
      char* dst = chunk;
      size_t dstLeft = sizeof chunk;
      // A final call with no input flushes any shift state of the target charset.
      const size_t rc = srcLeft ? iconv(cd.get(), &src, &srcLeft, &dst, &dstLeft)
                                : iconv(cd.get(), nullptr, nullptr, &dst, &dstLeft);
      const int err = errno;
      out.append(chunk, sizeof chunk - dstLeft);
      if (rc != static_cast<size_t>(-1)) {
        if (srcLeft == 0 && dst == chunk) break;  // flushed with nothing more to write
        continue;
      }
      if (err == E2BIG) continue;
      failOffset = inLen - srcLeft;  // EILSEQ or an incomplete sequence at the end
      return false;
    }
  } catch (const std::bad_alloc&) {
    failOffset = inLen - srcLeft;
    return false;
  }
  failOffset = inLen;
  return true;
}

bool convertCharset(const char* from, const char* to, const void* in, size_t inLen, std::string& out) {
  size_t failOffset = 0;
  return convertCharsetAt(from, to, in, inLen, out, failOffset);
}

size_t findInvalidUtf8(const void* data, size_t n) {
  const unsigned char* p = static_cast<const unsigned char*>(data);
  size_t i = 0;
  while (i < n) {
    // Skip ASCII eight bytes at a time; most XML is mostly ASCII.
    while (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, p + i, 8);
      if (word & 0x8080808080808080ULL) break;
      i += 8;
    }
    if (i >= n) break;
    const size_t len = utf8SequenceLength(p + i, n - i);
    if (len == 0) return i;
    i += len;
  }
  return SIZE_MAX;
}

bool repairUtf8AsWindows1252(std::string_view text, std::string& out) {
  out.clear();
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  size_t bad = findInvalidUtf8(p, n);
  if (bad == SIZE_MAX) {
    out.assign(text.data(), n);
    return false;
  }
  out.reserve(n + n / 8);
  out.append(text.data(), bad);
  size_t i = bad;
  while (i < n) {
    const size_t len = utf8SequenceLength(p + i, n - i);
    if (len > 0) {
      out.append(text.data() + i, len);
      i += len;
      continue;
    }
    const unsigned char c = p[i++];
    appendUtf8(c >= 0x80 && c <= 0x9F ? kCp1252High[c - 0x80] : c, out);
  }
  return true;
}
