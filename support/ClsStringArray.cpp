// ClsStringArray: an ordered list of UTF-8 strings.
#include "support/ClsStringArray.h"

#include <new>

ClsStringArray* ClsStringArray::createNewCls() { return new (std::nothrow) ClsStringArray(); }

bool ClsStringArray::appendUtf8(const char* text) {
  try {
    m_items.emplace_back(text ? text : "");
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

const char* ClsStringArray::getStringUtf8(int i) const {
  if (i < 0 || i >= get_Count()) return nullptr;
  return m_items[static_cast<size_t>(i)].c_str();
}
