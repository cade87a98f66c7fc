// The XPath data model of one document: every node XPath and canonicalization see (root,
// elements, attributes, namespace nodes, merged text, comments, processing instructions)
// in one vector in document order, built in one pass of the project's scanner. An
// element is followed by its namespace nodes, then its attributes, then its children,
// so node indices compare as document order and a subtree is a range of indices.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace xml {

enum class XPathNodeKind : uint8_t { Root, Element, Attribute, Namespace, Text, Comment, PI };

struct XPathNode {
  XPathNodeKind kind = XPathNodeKind::Root;
  uint32_t parent = UINT32_MAX;      // element (or root) the node belongs to
  uint32_t subtreeEnd = 0;           // index past the last node of the subtree
  uint32_t firstChild = UINT32_MAX;  // child nodes (not attributes or namespaces)
  uint32_t nextSibling = UINT32_MAX;
  uint32_t prevSibling = UINT32_MAX;
  uint32_t firstNamespace = 0;  // elements: namespace nodes, then attributes
  uint32_t numNamespaces = 0;
  uint32_t firstAttribute = 0;
  uint32_t numAttributes = 0;
  size_t sourceStart = 0;  // elements: offset of '<' in the text
  std::string name;        // element/attribute: qualified name; namespace: prefix ("" default); PI: target
  std::string uri;         // element/attribute: namespace URI
  std::string value;       // attribute value, namespace URI, text, comment or PI data
  size_t localStart = 0;   // offset of the local part in name
  bool isIdAttribute = false;
  std::string_view localName() const { return std::string_view(name).substr(localStart); }
};

class XPathDocument {
 public:
  // Parses text; false with the scanner's located message. maxNodes bounds the model (a
  // document of many elements with many namespaces in scope multiplies namespace nodes).
  bool parse(std::string_view text, std::string& error, size_t maxNodes = 20000000);

  size_t size() const { return m_nodes.size(); }
  const XPathNode& node(uint32_t i) const { return m_nodes[i]; }
  // The document element, or UINT32_MAX.
  uint32_t documentElement() const;
  // String value (XPath): for the root and elements, the concatenated text descendants.
  std::string stringValue(uint32_t i) const;
  // The element an ID attribute with this value identifies, or UINT32_MAX.
  uint32_t elementById(std::string_view id) const;
  // The namespace URI bound to prefix where element i stands ("" unbound), from its namespace nodes.
  bool namespaceOf(uint32_t element, std::string_view prefix, std::string& uri) const;

 private:
  std::vector<XPathNode> m_nodes;
};

}  // namespace xml
