// DataBuffer: a growable byte array (bytes may include NUL) for digests, keys,
// decoded base64 and file contents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class StringBuffer;
class LogBase;

class DataBuffer {
 public:
  DataBuffer() = default;
  DataBuffer(const void* data, size_t n) { append(data, n); }
  DataBuffer(const DataBuffer&) = default;
  DataBuffer(DataBuffer&&) noexcept = default;
  DataBuffer& operator=(const DataBuffer&) = default;
  DataBuffer& operator=(DataBuffer&&) noexcept = default;
  ~DataBuffer() = default;

  size_t getSize() const { return m_bytes.size(); }
  bool isEmpty() const { return m_bytes.empty(); }
  // Contents (valid until the next change); never null, also when empty.
  const unsigned char* getData2() const;
  unsigned char* getDataRw() { return m_bytes.data(); }
  std::string_view view() const;
  std::vector<unsigned char>& bytes() { return m_bytes; }
  const std::vector<unsigned char>& bytes() const { return m_bytes; }

  void clear() { m_bytes.clear(); }
  void secureClear();  // overwrites the bytes before emptying
  void resize(size_t n) { m_bytes.resize(n); }

  bool append(const void* data, size_t n);
  bool append(const DataBuffer& db) { return append(db.getData2(), db.getSize()); }
  bool append(const StringBuffer& sb);
  bool appendByte(unsigned char b);
  // Decodes text in the named encoding ("base64", "hex", ...) and appends the bytes.
  // False when the text is not valid in it (the valid prefix may have been appended).
  bool appendEncoded(const char* text, const char* encoding);
  // Appends the bytes encoded ("base64": one line, '=' padded; "hex": upper case;
  // "hex_lower": two lowercase digits a byte) to out. False for an unknown encoding.
  bool encodeDB(const char* encoding, StringBuffer& out) const;

  bool equals(const DataBuffer& db) const { return m_bytes == db.m_bytes; }

  // Converts XML bytes from their declared or detected encoding (BOM, XML declaration,
  // UTF-16 LE/BE, ISO-8859-1, Windows-1252, ...) to UTF-8 in place. A UTF-8 BOM is removed.
  // False, with the reason in the log, when the bytes are not in the encoding they claim.
  bool convertXmlToUtf8(LogBase& log);

 private:
  std::vector<unsigned char> m_bytes;
};

// The same conversion for XML text held in a std::string (text already in UTF-8 is only
// checked, not copied).
bool convertXmlTextToUtf8(std::string& text, LogBase& log);
