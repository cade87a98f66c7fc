// The parsed element tree behind ClsXml handles. The tree holds the text (its own copy,
// or one shared with the caller) or borrows it from an owner that outlives it, and keeps its nodes in an arena in document order
// (pre-order), so a subtree is a range of node indices and every walk is a plain loop.
// Nodes are small fixed-size records of 32-bit offsets and indices; names, attribute
// values and text stay views into the text and are decoded on demand with the
// scanner's rules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/xml/XmlDtd.h"

namespace xml {

constexpr uint32_t kNoIndex = UINT32_MAX;

// An attribute as byte ranges of the text (half the size of two views: a large document
// has millions); XmlTree::attributeName and attributeRawValue read them.
struct XmlTreeAttribute {
  uint32_t nameStart = 0;  // into the text; for a defaulted attribute, its index among the tree's defaulted ones
  uint32_t nameLength = 0;
  uint32_t valueStart = 0;  // raw value, references not expanded
  uint32_t valueLength = 0;
  bool defaulted = false;  // supplied by a DTD default: name and value are the DTD's
  bool nonCdata = false;   // declared with a non-CDATA type (value normalisation collapses spaces)
};

// One direct text or CDATA child of an element, as a byte range of the text; an
// element's pieces form a list through `next`.
struct XmlTextPiece {
  uint32_t start = 0;
  uint32_t end = 0;
  uint32_t next = kNoIndex;
  bool cdata = false;
};

// The last four bytes of a tag name (all of a shorter one), the last byte lowest, so that a
// walk testing names can turn most elements away from the node alone, without reading the
// tag in the text (a cache miss per element in a large document).
constexpr uint32_t tagTailOf(std::string_view name) {
  uint32_t tail = 0;
  const size_t n = name.size() < 4 ? name.size() : 4;
  for (size_t k = 0; k < n; ++k)
    tail |= static_cast<uint32_t>(static_cast<unsigned char>(name[name.size() - 1 - k])) << (8 * k);
  return tail;
}

struct XmlNode {
  uint32_t start = 0;           // offset of '<' of the start tag; the tag name follows it
  uint32_t end = 0;             // offset just past the end tag (or "/>")
  uint32_t tagTail = 0;         // tagTailOf(the tag name)
  uint32_t subtreeEnd = 0;      // index just past the last descendant
  uint32_t parent = kNoIndex;   // index of the parent element (none for the root)
  uint32_t firstChildSlot = 0;  // into the tree's child table
  uint32_t numChildren = 0;
  uint32_t firstAttribute = 0;
  uint32_t numAttributes = 0;
  uint32_t firstText = kNoIndex;
  uint32_t tagLength = 0;
};

class XmlTree {
 public:
  XmlTree() = default;
  XmlTree(const XmlTree&) = delete;
  XmlTree& operator=(const XmlTree&) = delete;

  // Copies and parses text. False with the scanner's located message when it is not
  // well-formed (the tree is then empty).
  bool parse(std::string_view text, std::string& error);
  // Parses text without copying it: the tree keeps the shared text alive.
  bool parseShared(std::shared_ptr<const std::string> text, std::string& error);
  // Parses text where it is, neither copying nor owning it. Contract: the caller keeps
  // the text alive and unchanged for as long as the tree exists, i.e. until the last
  // handle on it is released. For an owner that already holds the document (the
  // verifier), whose copy would otherwise double the memory of a large document.
  bool parseBorrowed(std::string_view text, std::string& error);
  // Whether the text belongs to someone else (parseBorrowed).
  bool borrowsText() const { return m_borrowed; }

  bool empty() const { return m_nodes.empty(); }
  XmlNode* root() { return m_nodes.empty() ? nullptr : &m_nodes.front(); }
  size_t nodeCount() const { return m_nodes.size(); }
  XmlNode* nodeAt(uint32_t index) { return index < m_nodes.size() ? &m_nodes[index] : nullptr; }
  const XmlNode* nodeAt(uint32_t index) const { return index < m_nodes.size() ? &m_nodes[index] : nullptr; }
  // Position of a node of this tree in document order.
  uint32_t indexOf(const XmlNode& node) const { return static_cast<uint32_t>(&node - m_nodes.data()); }
  std::string_view text() const { return m_view; }
  const XmlDtd& dtd() const { return m_dtd; }

  // Qualified tag name as written.
  std::string_view tagOf(const XmlNode& node) const { return m_view.substr(node.start + 1, node.tagLength); }
  XmlNode* parentOf(const XmlNode& node) { return node.parent == kNoIndex ? nullptr : &m_nodes[node.parent]; }
  const XmlNode* parentOf(const XmlNode& node) const {
    return node.parent == kNoIndex ? nullptr : &m_nodes[node.parent];
  }
  XmlNode* child(const XmlNode& node, uint32_t i) {
    return i < node.numChildren ? &m_nodes[m_children[node.firstChildSlot + i]] : nullptr;
  }
  const XmlNode* child(const XmlNode& node, uint32_t i) const {
    return i < node.numChildren ? &m_nodes[m_children[node.firstChildSlot + i]] : nullptr;
  }
  const XmlTreeAttribute* attribute(const XmlNode& node, uint32_t i) const {
    return i < node.numAttributes ? &m_attributes[node.firstAttribute + i] : nullptr;
  }
  // Qualified name as written, and the value between the quotes, references not expanded.
  std::string_view attributeName(const XmlTreeAttribute& attr) const {
    return attr.defaulted ? m_defaulted[attr.nameStart].first : m_view.substr(attr.nameStart, attr.nameLength);
  }
  std::string_view attributeRawValue(const XmlTreeAttribute& attr) const {
    return attr.defaulted ? m_defaulted[attr.nameStart].second : m_view.substr(attr.valueStart, attr.valueLength);
  }
  // The attribute whose qualified name is exactly qname, or null.
  const XmlTreeAttribute* findAttribute(const XmlNode& node, std::string_view qname) const;

  // Attribute value with references expanded and white space normalised.
  bool attributeValue(const XmlTreeAttribute& attr, std::string& out) const;
  // Direct character data and CDATA of the element, references expanded and line ends
  // normalised; appended to out.
  bool content(const XmlNode& node, std::string& out) const;
  // The element's exact source text.
  std::string_view sourceOf(const XmlNode& node) const { return m_view.substr(node.start, node.end - node.start); }

  // Namespace URI bound to prefix ("" for the default namespace) where node stands,
  // from the xmlns declarations on it and its ancestors; false when unbound.
  bool namespaceOf(const XmlNode& node, std::string_view prefix, std::string& uri) const;
  // Namespace URI of the element's own name ("" when it has none).
  std::string namespaceOfElement(const XmlNode& node) const;

  // Whether an attribute identifies its element: local name Id, ID or id (any prefix),
  // the SAML 1.1 AssertionID, RequestID and ResponseID, or declared of type ID by the DTD.
  bool isIdAttribute(const XmlNode& node, const XmlTreeAttribute& attr) const;
  // Every element carrying an identifying attribute with this value (expanded as the
  // application reads it), in document order. The index behind it is built on first use,
  // once per tree, so that many lookups cost one walk of the document.
  const std::vector<uint32_t>& elementsWithId(std::string_view value) const;

 private:
  bool build(std::string& error);
  bool buildOn(std::string_view text, std::string& error);
  void clear();

  std::shared_ptr<const std::string> m_text;
  std::string_view m_view;  // all of *m_text, or the borrowed text
  bool m_borrowed = false;
  std::vector<XmlNode> m_nodes;
  std::vector<XmlTreeAttribute> m_attributes;
  // Name and value of each attribute supplied by a DTD default, as views into m_dtd.
  std::vector<std::pair<std::string_view, std::string_view>> m_defaulted;
  std::vector<XmlTextPiece> m_texts;
  std::vector<uint32_t> m_children;  // each node's children side by side, in order
  XmlDtd m_dtd;
  // Id value -> elements carrying it; filled once by elementsWithId.
  mutable std::mutex m_idIndexMutex;
  mutable bool m_idIndexBuilt = false;
  mutable std::unordered_map<std::string, std::vector<uint32_t>> m_idIndex;
};

}  // namespace xml
