// Scoped prefix-to-URI bindings for streaming XML processing: one scope per open
// element, O(log n) lookups, undone scope by scope as elements close. The
// canonicalizer keeps two of them: the namespaces in scope and the namespaces
// already rendered by output ancestors.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace xml {

class NamespaceStack {
 public:
  // Opens a scope for the declarations of one element.
  void pushScope() { m_scopeStarts.push_back(m_bindings.size()); }
  // Closes the innermost scope, forgetting the bindings made in it.
  void popScope();
  size_t depth() const { return m_scopeStarts.size(); }

  // Binds prefix ("" = default namespace) to uri in the innermost scope.
  void declare(std::string_view prefix, std::string_view uri);
  // The innermost binding of prefix, or null when it is not bound.
  const std::string* lookup(std::string_view prefix) const;

  // Calls fn(prefix, uri) once for every prefix currently bound, with its innermost
  // binding, in prefix order.
  template <typename Fn>
  void forEachInScope(Fn&& fn) const {
    for (const auto& entry : m_index)
      if (!entry.second.empty()) fn(std::string_view(entry.first), m_bindings[entry.second.back()].uri);
  }

  void clear();

 private:
  struct Binding {
    std::string prefix;
    std::string uri;
  };
  std::vector<Binding> m_bindings;                                  // declaration order
  std::vector<size_t> m_scopeStarts;                                // first binding of each scope
  std::map<std::string, std::vector<size_t>, std::less<>> m_index;  // prefix -> binding indexes
};

}  // namespace xml
