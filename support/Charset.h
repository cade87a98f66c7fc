// _btCharset: a character set chosen by name, used to convert UTF-8 text to bytes.
#pragma once

#include <string>

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
