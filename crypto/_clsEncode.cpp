#include "crypto/_clsEncode.h"

#include <cctype>
#include <string_view>

#include "support/Charset.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool decodeBase64Url(std::string_view text, DataBuffer& out) {
  std::string std64;
  for (char c : text) {
    if (c == '-') std64 += '+';
    else if (c == '_') std64 += '/';
    else if (c == '+' || c == '/') return false;  // not in the URL-safe alphabet
    else std64 += c;
  }
  return ContentCoding::decodeBase64ToDb(std64.data(), std64.size(), out);
}

// Percent-encoding as in URLs and HTML forms: %XX is a byte, '+' a space.
bool decodeUrl(std::string_view text, DataBuffer& out) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out.appendByte(' ');
    } else if (text[i] == '%') {
      const int hi = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
      const int lo = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
      if (hi < 0 || lo < 0) return false;
      out.appendByte(static_cast<unsigned char>(hi * 16 + lo));
      i += 2;
    } else {
      out.appendByte(static_cast<unsigned char>(text[i]));
    }
  }
  return true;
}

// Quoted-printable (RFC 2045): =XX is a byte, '=' at a line end is a soft break.
bool decodeQuotedPrintable(std::string_view text, DataBuffer& out) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '=') {
      out.appendByte(static_cast<unsigned char>(text[i]));
      continue;
    }
    size_t j = i + 1;
    while (j < text.size() && (text[j] == ' ' || text[j] == '\t')) ++j;  // padding before a soft break
    if (j < text.size() && (text[j] == '\r' || text[j] == '\n')) {
      if (text[j] == '\r' && j + 1 < text.size() && text[j + 1] == '\n') ++j;
      i = j;
      continue;
    }
    if (j >= text.size()) return true;  // a final soft break
    const int hi = hexValue(text[i + 1]);
    const int lo = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
    if (hi < 0 || lo < 0) return false;
    out.appendByte(static_cast<unsigned char>(hi * 16 + lo));
    i += 2;
  }
  return true;
}

}  // namespace

void _clsEncode::put_EncodingMode(const XString& name) { m_mode = name.getUtf8(); }

bool _clsEncode::decodeBinary(const XString& text, DataBuffer& out, bool append, LogBase& log) const {
  if (!append) out.clear();
  const std::string mode = lower(m_mode);
  const std::string_view t = text.getUtf8Sb().view();
  DataBuffer decoded;
  bool known = true;
  bool ok;
  if (mode == "base64") {
    ok = ContentCoding::decodeBase64ToDb(t.data(), t.size(), decoded);
  } else if (mode == "base64url") {
    ok = decodeBase64Url(t, decoded);
  } else if (mode == "hex" || mode == "hexidecimal" || mode == "hexadecimal" || mode == "base16") {
    ok = ContentCoding::decodeHexToDb(t.data(), t.size(), decoded);
  } else if (mode == "url") {
    ok = decodeUrl(t, decoded);
  } else if (mode == "quoted-printable" || mode == "qp") {
    ok = decodeQuotedPrintable(t, decoded);
  } else {
    _btCharset charset;
    known = charset.setByName(mode.c_str());
    ok = known && text.getConverted(charset, decoded);
  }
  if (!known) {
    log.LogError("Unsupported encoding mode.");
    log.LogDataStr("encodingMode", m_mode.c_str());
    return false;
  }
  if (!ok) {
    decoded.secureClear();
    log.LogError("The text is not valid in the encoding.");
    log.LogDataStr("encodingMode", m_mode.c_str());
    return false;
  }
  const bool appended = out.append(decoded);
  decoded.secureClear();  // the text is often a secret key
  return appended;
}
