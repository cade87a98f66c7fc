#include "xml/NamespaceStack.h"

namespace xml {

void NamespaceStack::popScope() {
  if (m_scopeStarts.empty()) return;
  const size_t start = m_scopeStarts.back();
  m_scopeStarts.pop_back();
  while (m_bindings.size() > start) {
    auto it = m_index.find(m_bindings.back().prefix);
    if (it != m_index.end() && !it->second.empty()) it->second.pop_back();
    m_bindings.pop_back();
  }
}

void NamespaceStack::declare(std::string_view prefix, std::string_view uri) {
  m_bindings.push_back(Binding{std::string(prefix), std::string(uri)});
  auto it = m_index.find(prefix);
  if (it == m_index.end()) it = m_index.emplace(std::string(prefix), std::vector<size_t>()).first;
  it->second.push_back(m_bindings.size() - 1);
}

const std::string* NamespaceStack::lookup(std::string_view prefix) const {
  auto it = m_index.find(prefix);
  if (it == m_index.end() || it->second.empty()) return nullptr;
  return &m_bindings[it->second.back()].uri;
}

void NamespaceStack::clear() {
  m_bindings.clear();
  m_scopeStarts.clear();
  m_index.clear();
}

}  // namespace xml
