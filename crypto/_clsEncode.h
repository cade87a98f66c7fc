// _clsEncode: decoding text given in a named encoding into bytes. Binary-to-text
// encodings ("base64", "base64url", "hex", "url", "quoted-printable") are decoded; a
// character-set name ("utf-8", "ascii", "ansi", "iso-8859-1", "utf-16", ... anything
// the character-set converter knows) gives the text's bytes in that character set.
// Names are case-insensitive.
#pragma once

#include <string>

class DataBuffer;
class LogBase;
class XString;

class _clsEncode {
 public:
  void put_EncodingMode(const char* name) { m_mode = name ? name : ""; }
  void put_EncodingMode(const XString& name);
  const std::string& get_EncodingMode() const { return m_mode; }

  // Decodes text in the current mode into out (appending when `append`, else replacing
  // it). False, with an error line, for an unknown mode or text that is not valid in it.
  bool decodeBinary(const XString& text, DataBuffer& out, bool append, LogBase& log) const;

 private:
  std::string m_mode = "base64";
};
