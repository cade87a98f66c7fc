// ClsBinData: a public byte object (a DataBuffer) that the verifier's operations take.
// Reference counted and heap-only, like ClsStringBuilder (see its header).
#pragma once

#include <cstddef>

#include "support/DataBuffer.h"
#include "support/RefCountedObject.h"

class LogBase;
class XString;

class ClsBinData : public RefCountedObject {
 public:
  static ClsBinData* createNewCls();

  DataBuffer& getDb() { return m_data; }
  const DataBuffer& getDb() const { return m_data; }
  size_t getSize() const { return m_data.getSize(); }

  bool AppendBinary(const void* data, size_t n) { return m_data.append(data, n); }
  // Decodes text in the named encoding ("base64", "hex") and appends the bytes.
  bool AppendEncoded(const char* text, const char* encoding) { return m_data.appendEncoded(text, encoding); }
  // Sets out to the bytes encoded ("base64", "hex", "hex_lower"); false for an unknown encoding.
  bool GetEncoded(const char* encoding, XString& out) const;
  void Clear() { m_data.clear(); }

  // Replaces the bytes with the file's contents; false, with the reason in the log, on failure.
  bool LoadFile(const char* path, LogBase* log = nullptr);
  bool WriteFile(const char* path, LogBase* log = nullptr) const;

 protected:
  ClsBinData() = default;
  ~ClsBinData() override = default;

 private:
  DataBuffer m_data;
};
