// What a reference covers, decided on the parsed tree of the loaded document: the element
// its fragment names (or the whole document), and the elements its transforms take out.
#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/reference/Fragment.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsXml.h"
#include "support/xml/XmlTree.h"

namespace {

// The position of node among its parent's children of the same qualified name (1-based).
size_t positionAmongNamesakes(const xml::XmlTree& tree, const xml::XmlNode& node) {
  const xml::XmlNode* parent = tree.parentOf(node);
  if (!parent) return 1;
  const std::string_view tag = tree.tagOf(node);
  size_t position = 0;
  for (uint32_t i = 0; i < parent->numChildren; ++i) {
    const xml::XmlNode* sibling = tree.child(*parent, i);
    if (tree.tagOf(*sibling) == tag) ++position;
    if (sibling == &node) break;
  }
  return position;
}

void describe(const xml::XmlTree& tree, const xml::XmlNode& node, CoveredElement& out) {
  out.name = std::string(tree.tagOf(node));
  out.ns = tree.namespaceOfElement(node);
  out.id.clear();
  for (uint32_t i = 0; i < node.numAttributes && out.id.empty(); ++i) {
    const xml::XmlTreeAttribute& attr = *tree.attribute(node, i);
    if (tree.isIdAttribute(node, attr)) tree.attributeValue(attr, out.id);
  }
  out.path.clear();
  for (const xml::XmlNode* n = &node; n; n = tree.parentOf(*n))
    out.path.insert(0,
                    "/" + std::string(tree.tagOf(*n)) + "[" + std::to_string(positionAmongNamesakes(tree, *n)) + "]");
  out.start = node.start;
  out.end = node.end;
}

// Whether the element has the qualified name as the expression writes it: the same
// name as written, or the same local name in the namespace the prefix has at the element.
bool hasName(const xml::XmlTree& tree, const xml::XmlNode& node, std::string_view qname) {
  const std::string_view tag = tree.tagOf(node);
  if (tag == qname) return true;
  const size_t colon = qname.find(':');
  const std::string_view local = colon == std::string_view::npos ? qname : qname.substr(colon + 1);
  const size_t tagColon = tag.find(':');
  if ((tagColon == std::string_view::npos ? tag : tag.substr(tagColon + 1)) != local) return false;
  std::string uri;
  return colon != std::string_view::npos && tree.namespaceOf(node, qname.substr(0, colon), uri) &&
         uri == tree.namespaceOfElement(node);
}

// Whether one child of the element has this name and this text.
bool hasChildWithText(const xml::XmlTree& tree, const xml::XmlNode& node, std::string_view qname,
                      std::string_view text) {
  std::string content;
  for (uint32_t i = 0; i < node.numChildren; ++i) {
    const xml::XmlNode& child = *tree.child(node, i);
    content.clear();
    if (hasName(tree, child, qname) && tree.content(child, content) && content == text) return true;
  }
  return false;
}

bool isNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == ':' || c == '_' || c == '-' || c == '.';
}

// One excluded name of an expression: "ancestor-or-self::q:Name", optionally with a
// predicate "[q:Child='text']", or "*[name()='q:Name']".
struct Exclusion {
  std::string name;
  std::string childName;
  std::string childText;
};

std::vector<Exclusion> exclusionsOf(std::string_view xpath) {
  std::vector<Exclusion> out;
  constexpr std::string_view kAxis = "ancestor-or-self::";
  for (size_t at = xpath.find(kAxis); at != std::string_view::npos; at = xpath.find(kAxis, at + 1)) {
    size_t p = at + kAxis.size();
    Exclusion e;
    while (p < xpath.size() && isNameChar(xpath[p])) e.name += xpath[p++];
    if (p < xpath.size() && xpath[p] == '*') {
      ++p;
      constexpr std::string_view kByName = "[name()='";
      if (xpath.compare(p, kByName.size(), kByName) != 0) continue;
      p += kByName.size();
      while (p < xpath.size() && xpath[p] != '\'') e.name += xpath[p++];
    } else if (p < xpath.size() && xpath[p] == '[') {
      ++p;
      while (p < xpath.size() && isNameChar(xpath[p])) e.childName += xpath[p++];
      if (xpath.compare(p, 2, "='") == 0) {
        p += 2;
        while (p < xpath.size() && xpath[p] != '\'') e.childText += xpath[p++];
      } else {
        e.childName.clear();
      }
    }
    if (!e.name.empty()) out.push_back(e);
  }
  return out;
}

}  // namespace

void ClsXmlDSig::recordSameDocumentCoverage(const StringBuffer& fragment, Coverage& coverage) {
  coverage = Coverage();
  const xml::XmlTree* tree = m_xmlRoot ? m_xmlRoot->tree() : nullptr;
  if (!tree || tree->empty()) return;
  StringBuffer id;
  bool keepsComments = false;
  switch (classifyFragment(fragment, id, keepsComments)) {
    case Fragment::WholeDocument:
      coverage.kind = "document";
      coverage.nodeIndex = tree->indexOf(*m_xmlRoot->node());
      break;
    case Fragment::ById: {
      const std::vector<uint32_t>& carriers = tree->elementsWithId(id.view());
      if (carriers.size() != 1) return;
      coverage.kind = "element";
      coverage.nodeIndex = carriers.front();
      break;
    }
    default: return;
  }
  coverage.hasElement = true;
  describe(*tree, *tree->nodeAt(coverage.nodeIndex), coverage.element);
}

void ClsXmlDSig::recordRemovedElement(size_t start, const char* by, Coverage& coverage) {
  const xml::XmlTree* tree = m_xmlRoot ? m_xmlRoot->tree() : nullptr;
  if (!tree) return;
  // Elements are numbered in document order, so their start offsets increase.
  uint32_t low = 0, high = static_cast<uint32_t>(tree->nodeCount());
  while (low < high) {
    const uint32_t mid = low + (high - low) / 2;
    if (tree->nodeAt(mid)->start < start) low = mid + 1;
    else high = mid;
  }
  const xml::XmlNode* node = tree->nodeAt(low);
  if (!node || node->start != start) return;
  RemovedPart part;
  part.by = by;
  describe(*tree, *node, part.element);
  const bool already = std::any_of(coverage.removed.begin(), coverage.removed.end(),
                                   [&](const RemovedPart& p) { return p.element.start == start; });
  if (!already) coverage.removed.push_back(part);
}

void ClsXmlDSig::recordFamilyRemovals(const std::vector<dsig_family::ElementSpan>& spans, Coverage& coverage) {
  for (const dsig_family::ElementSpan& span : spans)
    if (coverage.hasElement && coverage.element.start <= span.start && span.end <= coverage.element.end)
      recordRemovedElement(span.start, "family", coverage);
}

void ClsXmlDSig::recordXPathRemovals(const StringBuffer& xpath, const char* by, Coverage& coverage) {
  const xml::XmlTree* tree = m_xmlRoot ? m_xmlRoot->tree() : nullptr;
  if (!tree || !coverage.hasElement) return;
  const std::vector<Exclusion> exclusions = exclusionsOf(xpath.view());
  if (exclusions.empty()) return;
  const xml::XmlNode* covered = tree->nodeAt(coverage.nodeIndex);
  // An excluded element takes its descendants with it: only the outermost is named.
  size_t skipUntil = 0;
  for (uint32_t i = coverage.nodeIndex; i < covered->subtreeEnd; ++i) {
    const xml::XmlNode& node = *tree->nodeAt(i);
    if (node.start < skipUntil) continue;
    for (const Exclusion& e : exclusions) {
      if (!hasName(*tree, node, e.name)) continue;
      if (!e.childName.empty() && !hasChildWithText(*tree, node, e.childName, e.childText)) continue;
      recordRemovedElement(node.start, by, coverage);
      skipUntil = node.end;
      break;
    }
  }
}
