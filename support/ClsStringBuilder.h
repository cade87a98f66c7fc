// ClsStringBuilder: a public text object (UTF-8 in an XString) that the verifier's
// operations read from and write to.
//
// Ownership scheme of the small public value classes (ClsStringBuilder, ClsBinData,
// ClsStringArray): they are reference counted and live on the heap only. Create one with
// createNewCls() (null when memory is exhausted), which hands the caller one reference;
// release it with decRefCount(), or hold it in an RcPtr. Constructors and destructors are
// protected so that a stack instance or a plain delete cannot bypass the count.
#pragma once

#include <cstddef>

#include "support/RefCountedObject.h"
#include "support/XString.h"

class LogBase;

class ClsStringBuilder : public RefCountedObject {
 public:
  static ClsStringBuilder* createNewCls();

  XString& getXString() { return m_text; }
  const XString& getXString() const { return m_text; }
  const char* getUtf8() const { return m_text.getUtf8(); }
  size_t getSize() const { return m_text.getSizeUtf8(); }  // bytes of UTF-8

  bool Append(const char* utf8) { return m_text.appendUtf8(utf8); }
  bool Append(const XString& text) { return m_text.appendSbUtf8(text.getUtf8Sb()); }
  void SetString(const char* utf8) { m_text.setFromUtf8(utf8); }
  void SetString(const XString& text) { m_text.copyFromX(text); }
  void GetAsString(XString& out) const { out.copyFromX(m_text); }
  void Clear() { m_text.clear(); }

  // Replaces the text with the file's contents read in the named charset ("utf-8",
  // "iso-8859-1", "utf-16", ...); a byte-order mark of that charset is dropped. False, with
  // the reason in the log, when the file cannot be read or is not valid in the charset.
  bool LoadFile(const char* path, const char* charset, LogBase* log = nullptr);
  // Writes the text to the file in the named charset (no byte-order mark). False, with
  // the reason in the log, when the charset cannot represent it or the file cannot be written.
  bool WriteFile(const char* path, const char* charset, LogBase* log = nullptr) const;

 protected:
  ClsStringBuilder() = default;
  ~ClsStringBuilder() override = default;

 private:
  XString m_text;
};
