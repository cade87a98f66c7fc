// Owning arrays: ExtPtrArraySb (ordered StringBuffers) and ExtPtrArray (sparse array of
// BrantelObject-derived objects). Both destroy what they hold.
#pragma once

#include <memory>
#include <vector>

#include "support/StringBuffer.h"

// Root class of objects held in an ExtPtrArray.
class BrantelObject {
 public:
  virtual ~BrantelObject() = default;
  virtual size_t getHeapUsage() const { return 0; }
};

class ExtPtrArraySb {
 public:
  int getSize() const { return static_cast<int>(m_items.size()); }
  // The i-th element's text ("" when out of range).
  const char* strAt(int i) const;
  StringBuffer* sbAt(int i) const;
  void appendSb(std::unique_ptr<StringBuffer> sb) { m_items.push_back(std::move(sb)); }
  void appendString(std::string_view text);
  void removeAll() { m_items.clear(); }

 private:
  std::vector<std::unique_ptr<StringBuffer>> m_items;
};

class ExtPtrArray {
 public:
  int getSize() const { return static_cast<int>(m_items.size()); }
  // Null for an empty slot or an index outside the array.
  BrantelObject* elementAt(int i) const;
  // Stores obj at slot i (growing with empty slots); a previous object there is destroyed.
  void setAt(int i, std::unique_ptr<BrantelObject> obj);
  void removeAll() { m_items.clear(); }

 private:
  std::vector<std::unique_ptr<BrantelObject>> m_items;
};
