// Owning arrays of StringBuffers and of BrantelObjects.
#include "support/ExtPtrArray.h"

#include <new>

const char* ExtPtrArraySb::strAt(int i) const {
  const StringBuffer* sb = sbAt(i);
  return sb ? sb->getString() : "";
}

StringBuffer* ExtPtrArraySb::sbAt(int i) const {
  if (i < 0 || i >= getSize()) return nullptr;
  return m_items[static_cast<size_t>(i)].get();
}

void ExtPtrArraySb::appendString(std::string_view text) {
  // Allocation failure drops the element (callers that care compare the size).
  try {
    m_items.push_back(std::make_unique<StringBuffer>(text));
  } catch (const std::bad_alloc&) {
  }
}

BrantelObject* ExtPtrArray::elementAt(int i) const {
  if (i < 0 || i >= getSize()) return nullptr;
  return m_items[static_cast<size_t>(i)].get();
}

void ExtPtrArray::setAt(int i, std::unique_ptr<BrantelObject> obj) {
  if (i < 0) return;  // obj is destroyed: there is no slot to hold it
  try {
    if (static_cast<size_t>(i) >= m_items.size()) m_items.resize(static_cast<size_t>(i) + 1);
    m_items[static_cast<size_t>(i)] = std::move(obj);
  } catch (const std::bad_alloc&) {
  }
}
