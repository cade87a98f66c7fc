// A compact XPath 1.0 evaluator over XPathDocument: location paths on every axis,
// predicates, the core function library (with id() and the here() of signature
// transforms), comparisons and arithmetic. Node-sets are sorted vectors of node
// indices (document order). Every node an axis visits counts against a step budget,
// so that a hostile expression over a large document ends with an error instead of
// running for hours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "xml/XPathDocument.h"

namespace xml {

using NodeList = std::vector<uint32_t>;  // sorted, unique node indices

struct XPathCompiled;  // the parsed expression

class XPathExpression {
 public:
  XPathExpression();
  ~XPathExpression();
  XPathExpression(XPathExpression&&) noexcept;
  XPathExpression& operator=(XPathExpression&&) noexcept;
  // False with a message naming the position when the text is not an XPath 1.0 expression
  // this evaluator supports (variables are not).
  bool compile(std::string_view text, std::string& error);
  const XPathCompiled* compiled() const { return m_compiled.get(); }

 private:
  std::unique_ptr<XPathCompiled> m_compiled;
};

class XPathEvaluator {
 public:
  static constexpr size_t kDefaultMaxSteps = 50'000'000;

  explicit XPathEvaluator(const XPathDocument& doc) : m_doc(doc) {}

  // Prefix bindings of the expression (from the element that holds it). The "xml" prefix
  // is always bound.
  void setNamespaces(std::map<std::string, std::string> prefixes) { m_prefixes = std::move(prefixes); }
  // The node here() returns (the text of the element holding the expression); none by default.
  void setHere(uint32_t node) { m_here = node; }
  void setMaxSteps(size_t steps) { m_maxSteps = steps; }
  size_t stepsUsed() const { return m_steps; }

  // The expression's value for one context node, converted to a boolean.
  bool evaluateBoolean(const XPathExpression& expr, uint32_t contextNode, bool& result);
  // The expression's value, which must be a node-set.
  bool evaluateNodeSet(const XPathExpression& expr, uint32_t contextNode, NodeList& result);
  // The expression's value converted to a string.
  bool evaluateString(const XPathExpression& expr, uint32_t contextNode, std::string& result);
  // Why the last evaluation failed (step budget, unknown function or prefix, type error).
  const std::string& error() const { return m_error; }

 private:
  friend struct XPathMachine;
  const XPathDocument& m_doc;
  std::map<std::string, std::string> m_prefixes;
  uint32_t m_here = UINT32_MAX;
  size_t m_maxSteps = kDefaultMaxSteps;
  size_t m_steps = 0;
  std::string m_error;
};

}  // namespace xml
