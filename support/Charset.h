// _btCharset: a character set chosen by name, used to convert UTF-8 text to bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class _btCharset {
 public:
  // Selects the charset by name ("utf-8", "utf-16le", "iso-8859-1", "windows-1252", ...);
  // false when the name is unknown (the charset stays UTF-8).
  bool setByName(const char* name);
  const std::string& name() const { return m_iconvName; }

 private:
  std::string m_iconvName = "UTF-8";
};

// Converts bytes between charsets with iconv; false when the input is invalid in `from`
// or not representable in `to` (out holds what converted before that).
bool convertCharset(const char* from, const char* to, const void* in, size_t inLen, std::string& out);
// The same, also giving the offset in the input of the byte that could not be converted
// (inLen when the conversion could not start, e.g. an unknown charset name).
bool convertCharsetAt(const char* from, const char* to, const void* in, size_t inLen, std::string& out,
                      size_t& failOffset);
// The iconv name of a charset name as callers and XML declarations spell it ("utf8",
// "latin1", "unicode", "windows-1252", ...); empty when iconv knows no such charset.
std::string iconvCharsetName(std::string_view name);

// Offset of the first byte that does not start a well-formed UTF-8 sequence (overlong
// forms, surrogates and values above U+10FFFF are ill-formed), or SIZE_MAX when all is valid.
size_t findInvalidUtf8(const void* data, size_t n);
// Copies text to out, replacing each byte that is not part of a well-formed UTF-8
// sequence by the UTF-8 form of that byte read as Windows-1252. True when something was
// replaced (out then differs from text).
bool repairUtf8AsWindows1252(std::string_view text, std::string& out);
