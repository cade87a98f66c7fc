// DataBuffer::convertXmlToUtf8: finds the encoding of XML bytes (byte-order mark, the
// zero-byte pattern of UTF-16/32 text, else the XML declaration) and converts them to
// UTF-8. Bytes that are not valid in the encoding they claim are an error, never garbage.
#include <cstring>
#include <new>
#include <string>

#include "support/Charset.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

bool startsWith(const unsigned char* p, size_t n, const char* bytes, size_t len) {
  return n >= len && std::memcmp(p, bytes, len) == 0;
}

// The value of the encoding pseudo-attribute of a leading XML declaration, or "" when
// there is no declaration or it names no encoding.
std::string declaredEncoding(const unsigned char* p, size_t n) {
  std::string_view text(reinterpret_cast<const char*>(p), n < 1024 ? n : 1024);
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n')) ++i;
  if (text.substr(i, 5) != "<?xml") return {};
  const size_t end = text.find("?>", i);
  if (end == std::string_view::npos) return {};
  const std::string_view decl = text.substr(i, end - i);
  size_t k = decl.find("encoding");
  if (k == std::string_view::npos) return {};
  k += 8;
  auto skipWs = [&] {
    while (k < decl.size() && (decl[k] == ' ' || decl[k] == '\t' || decl[k] == '\r' || decl[k] == '\n')) ++k;
  };
  skipWs();
  if (k >= decl.size() || decl[k] != '=') return {};
  ++k;
  skipWs();
  if (k >= decl.size() || (decl[k] != '"' && decl[k] != '\'')) return {};
  const char quote = decl[k++];
  const size_t close = decl.find(quote, k);
  if (close == std::string_view::npos) return {};
  return std::string(decl.substr(k, close - k));
}

bool allAscii(const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] & 0x80) return false;
  return true;
}

bool isUtf8Name(const std::string& iconvName) { return iconvName == "UTF-8"; }

bool isWideName(const std::string& iconvName) {
  return iconvName.rfind("UTF-16", 0) == 0 || iconvName.rfind("UTF-32", 0) == 0 || iconvName.rfind("UCS-2", 0) == 0 ||
         iconvName.rfind("UCS-4", 0) == 0 || iconvName == "UNICODELITTLE" || iconvName == "UNICODEBIG";
}

void logBadBytes(LogBase& log, const char* how, const std::string& encoding, size_t offset) {
  std::string msg = "Invalid byte sequence for the ";
  msg += how;
  msg += " encoding ";
  msg += encoding;
  msg += " at offset ";
  msg += std::to_string(offset);
  log.LogError(msg.c_str());
}

}  // namespace

namespace {

// The conversion works on the container holding the bytes (a DataBuffer's vector or a
// std::string), so that text already in UTF-8 is checked where it lies, never copied.
template <typename Bytes>
bool convertToUtf8(Bytes& bytes, LogBase& log) {
  try {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const size_t n = bytes.size();

    // 1. A byte-order mark, or the zero bytes of ASCII characters in UTF-16/32 text.
    const char* wide = nullptr;
    size_t skip = 0;
    if (startsWith(p, n, "\xFF\xFE\x00\x00", 4)) {
      wide = "UTF-32LE", skip = 4;
    } else if (startsWith(p, n, "\x00\x00\xFE\xFF", 4)) {
      wide = "UTF-32BE", skip = 4;
    } else if (startsWith(p, n, "\xEF\xBB\xBF", 3)) {
      const size_t bad = findInvalidUtf8(p + 3, n - 3);
      if (bad != SIZE_MAX) {
        logBadBytes(log, "detected", "UTF-8", bad + 3);
        return false;
      }
      bytes.erase(bytes.begin(), bytes.begin() + 3);
      return true;
    } else if (startsWith(p, n, "\xFF\xFE", 2)) {
      wide = "UTF-16LE", skip = 2;
    } else if (startsWith(p, n, "\xFE\xFF", 2)) {
      wide = "UTF-16BE", skip = 2;
    } else if (n >= 4 && p[0] && !p[1] && !p[2] && !p[3]) {
      wide = "UTF-32LE";
    } else if (n >= 4 && !p[0] && !p[1] && !p[2] && p[3]) {
      wide = "UTF-32BE";
    } else if (n >= 4 && p[0] && !p[1] && p[2] && !p[3]) {
      wide = "UTF-16LE";
    } else if (n >= 4 && !p[0] && p[1] && !p[2] && p[3]) {
      wide = "UTF-16BE";
    }
    if (wide) {
      std::string out;
      size_t failAt = 0;
      if (!convertCharsetAt(wide, "UTF-8", p + skip, n - skip, out, failAt)) {
        logBadBytes(log, "detected", wide, failAt + skip);
        return false;
      }
      bytes.assign(out.begin(), out.end());
      return true;
    }

    // 2. An 8-bit encoding: the declared one, else UTF-8.
    const std::string declared = declaredEncoding(p, n);
    std::string iconvName = declared.empty() ? std::string("UTF-8") : iconvCharsetName(declared);
    if (!declared.empty() && !iconvName.empty() && isWideName(iconvName)) {
      log.LogInfo("The XML declares a 16/32-bit encoding but its bytes are 8-bit; reading them as UTF-8.");
      iconvName = "UTF-8";
    }
    if (iconvName.empty()) {
      if (findInvalidUtf8(p, n) == SIZE_MAX) {
        log.LogInfo("Unknown encoding declared; the bytes are valid UTF-8 and are read as such.");
        log.LogDataStr("declaredEncoding", declared.c_str());
        return true;
      }
      log.LogError("Unsupported encoding declared in the XML.");
      log.LogDataStr("declaredEncoding", declared.c_str());
      return false;
    }

    if (isUtf8Name(iconvName)) {
      const size_t bad = findInvalidUtf8(p, n);
      if (bad == SIZE_MAX) return true;
      if (!declared.empty()) {
        logBadBytes(log, "declared", declared, bad);
        return false;
      }
      // No encoding declared and not UTF-8: the usual cause is a Windows editor's ANSI text.
      std::string out;
      repairUtf8AsWindows1252(std::string_view(reinterpret_cast<const char*>(p), n), out);
      log.LogInfo("No encoding declared and the bytes are not valid UTF-8; converting them from Windows-1252.");
      bytes.assign(out.begin(), out.end());
      return true;
    }

    // Pure ASCII reads the same in every 8-bit charset.
    if (allAscii(p, n)) return true;
    std::string out;
    size_t failAt = 0;
    if (!convertCharsetAt(iconvName.c_str(), "UTF-8", p, n, out, failAt)) {
      logBadBytes(log, "declared", declared, failAt);
      return false;
    }
    bytes.assign(out.begin(), out.end());
    return true;
  } catch (const std::bad_alloc&) {
    log.LogError("Out of memory converting the XML to UTF-8.");
    return false;
  }
}

}  // namespace

bool DataBuffer::convertXmlToUtf8(LogBase& log) { return convertToUtf8(m_bytes, log); }

bool convertXmlTextToUtf8(std::string& text, LogBase& log) { return convertToUtf8(text, log); }
