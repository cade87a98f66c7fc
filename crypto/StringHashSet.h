// StringHashSet: a set of strings, used to remember which certificates a key
// resolution has already decoded.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>

class StringBuffer;

class StringHashSet {
 public:
  // capacity: the expected number of entries (the set grows beyond it as needed).
  explicit StringHashSet(size_t capacity = 16) { m_set.reserve(capacity); }

  void add(const char* key) { m_set.insert(key ? key : ""); }
  void add(const StringBuffer& key);
  bool contains(const char* key) const { return m_set.count(key ? key : "") != 0; }
  bool contains(const StringBuffer& key) const;
  size_t size() const { return m_set.size(); }
  void clear() { m_set.clear(); }

 private:
  std::unordered_set<std::string> m_set;
};
