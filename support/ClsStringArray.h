// ClsStringArray: a public ordered list of UTF-8 strings (e.g. the base64 certificates a
// signature carries). Reference counted and heap-only, like ClsStringBuilder (see its header).
#pragma once

#include <string>
#include <vector>

#include "support/RefCountedObject.h"

class ClsStringArray : public RefCountedObject {
 public:
  static ClsStringArray* createNewCls();

  // Appends a copy of the text (null appends ""); false when memory is exhausted.
  bool appendUtf8(const char* text);
  int get_Count() const { return static_cast<int>(m_items.size()); }
  // The i-th string, or null when i is outside the array.
  const char* getStringUtf8(int i) const;
  void Clear() { m_items.clear(); }

 protected:
  ClsStringArray() = default;
  ~ClsStringArray() override = default;

 private:
  std::vector<std::string> m_items;
};
