// Transforms on the XPath data model of a document: the node-set a same-document URI
// selects, the XPath transform (keep the nodes for which the expression is true), XPath
// Filter 2.0 (intersect, subtract and union of the subtrees expressions select), the
// enveloped-signature transform (drop the signature's subtree) and the canonicalization
// that turns the result into octets.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "xml/NodeSetCanon.h"
#include "xml/XPathDocument.h"

namespace xml {

// One XPath expression with what it is evaluated with.
struct XPathFilterExpr {
  std::string expression;
  std::map<std::string, std::string> namespaces;  // prefixes in scope where it is written
  uint32_t here = UINT32_MAX;                     // the node here() returns
  std::string filter;                             // Filter 2.0: intersect, subtract or union
};

class NodeSetState {
 public:
  // Parses the document; false with the parser's message.
  bool load(std::string_view text, std::string& error);
  const XPathDocument& document() const { return m_doc; }

  // The node-set a same-document reference selects: "" the whole document without
  // comments, "xpointer(/)" with them, "xpointer(id('X'))" the element X with comments,
  // any other "X" the element X without them. False when X identifies no element.
  bool selectByUri(std::string_view uri, std::string& error);
  // Keeps the nodes for which the expression is true (the XPath transform).
  bool applyXPath(const XPathFilterExpr& expr, size_t maxSteps, std::string& error);
  // Applies XPath Filter 2.0 filters in order.
  bool applyFilter2(const std::vector<XPathFilterExpr>& filters, size_t maxSteps, std::string& error);
  // Takes the subtree of element e out of the set.
  void removeSubtree(uint32_t e);
  void canonicalize(const NodeSetCanonOptions& options, std::string& out) const {
    canonicalizeNodeSet(m_doc, m_set, options, out);
  }
  const std::vector<char>& set() const { return m_set; }

  // The first element whose local name is `local`, whose text is `content` and which
  // lies in the subtree of `within` (any element when within is UINT32_MAX).
  uint32_t findElementWithText(std::string_view local, std::string_view content, uint32_t within) const;
  // The element whose start tag begins at offset, or UINT32_MAX.
  uint32_t elementAtOffset(size_t offset) const;
  // Prefix bindings in scope at element e (the xml prefix left out).
  std::map<std::string, std::string> namespacesAt(uint32_t e) const;
  // here() for an expression held by element e: its first text node, else e itself.
  uint32_t hereNodeOf(uint32_t e) const;

 private:
  XPathDocument m_doc;
  std::vector<char> m_set;
};

}  // namespace xml
