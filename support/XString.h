// XString: the public-API string. UTF-8 text kept in a StringBuffer; may be flagged
// secret, after which its storage is wiped whenever it is cleared or destroyed.
#pragma once

#include "support/StringBuffer.h"

class DataBuffer;
class LogBase;
class _btCharset;

class XString {
 public:
  XString() = default;
  explicit XString(const char* utf8) { m_sb.append(utf8); }
  XString(const XString& other);
  XString& operator=(const XString& other);
  ~XString();

  const char* getUtf8() const { return m_sb.getString(); }
  const StringBuffer& getUtf8Sb() const { return m_sb; }
  StringBuffer& getUtf8Sb_rw() { return m_sb; }
  size_t getSizeUtf8() const { return m_sb.getSize(); }

  void clear();
  bool isEmpty() const { return m_sb.isEmpty(); }
  void copyFromX(const XString& other);
  bool appendUtf8(const char* text) { return m_sb.append(text); }
  bool appendSbUtf8(const StringBuffer& sb) { return m_sb.append(sb); }
  void setFromSbUtf8(const StringBuffer& sb);
  void setFromUtf8(const char* text);
  bool equalsUtf8(const char* text) const { return m_sb.equals(text); }

  // Marks the text as secret: storage is overwritten before it is released.
  void setSecureX(bool secure) { m_secure = secure; }
  bool isSecure() const { return m_secure; }

  // Re-encodes the text between textual encodings; supported: "decimal" -> "hex"
  // (an arbitrarily long unsigned decimal number to upper-case hex with an even digit count).
  bool reencode(const char* fromEncoding, const char* toEncoding);
  // The text converted to the bytes of the charset; false (with what converted in out)
  // when the charset cannot represent it.
  bool getConverted(const _btCharset& charset, DataBuffer& out) const;
  // Repairs text that is Windows-1252 mistaken for UTF-8: invalid UTF-8 sequences are
  // taken as Windows-1252 bytes and converted. Returns true when something was repaired.
  bool checkFixUtf8Windows1252(LogBase& log);

 private:
  void wipe();
  StringBuffer m_sb;
  bool m_secure = false;
};
