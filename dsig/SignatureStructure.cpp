// What is signed is decided from the parsed document: the structure of the selected
// signature, and the element an Id names, are elements of the tree, and the text offsets
// used to canonicalize in place are their exact spans (where the signature itself stands
// is SignatureLocation.cpp). The text scans elsewhere may propose where something is, but
// only these answers are acted on.
#include <string>
#include <string_view>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/xml/XmlScanner.h"
#include "support/xml/XmlTree.h"

namespace {

constexpr std::string_view kDsigNamespace = "http://www.w3.org/2000/09/xmldsig#";

void appendEscapedAttributeValue(std::string_view value, std::string& out) {
  for (char c : value) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '"': out += "&quot;"; break;
      case '\t': out += "&#9;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      default: out.push_back(c);
    }
  }
}

// Whether an attribute of an ancestor can show in the canonical form of a descendant
// canonicalized as a document subset: namespace declarations and xml:* attributes.
bool inheritedByDescendants(std::string_view n) {
  return n == "xmlns" || n.compare(0, 6, "xmlns:") == 0 || n.compare(0, 4, "xml:") == 0;
}

// The rank of a child of Signature in the order it must keep; -1 for anything else.
int signatureChildRank(std::string_view local) {
  if (local == "SignedInfo") return 0;
  if (local == "SignatureValue") return 1;
  if (local == "KeyInfo") return 2;
  if (local == "Object") return 3;
  return -1;
}

}  // namespace

bool ClsXmlDSig::checkSignatureStructure(LogBase& log) {
  ClsXml* signature = selectedSignature();
  if (!signature || !signature->tree() || !signature->node()) return false;
  const xml::XmlTree& tree = *signature->tree();
  const xml::XmlNode& node = *signature->node();

  int lastRank = -1;
  int counts[4] = {0, 0, 0, 0};
  for (uint32_t i = 0; i < node.numChildren; ++i) {
    const xml::XmlNode& child = *tree.child(node, i);
    const std::string tag(tree.tagOf(child));
    const int rank = signatureChildRank(xml::localNameOf(tag));
    if (rank < 0 || tree.namespaceOfElement(child) != kDsigNamespace) {
      log.LogError(("The Signature holds an element that does not belong in it: <" + tag + ">.").c_str());
      return false;
    }
    if (rank < lastRank || (rank == lastRank && rank != 3)) {
      log.LogError(("The Signature's children are out of order or repeated at <" + tag + ">.").c_str());
      return false;
    }
    lastRank = rank;
    ++counts[rank];
  }
  if (counts[0] != 1 || counts[1] != 1) {
    log.LogError("The Signature must hold exactly one SignedInfo and one SignatureValue.");
    return false;
  }
  return true;
}

bool ClsXmlDSig::resolveIdTarget(const StringBuffer& id, uint32_t& nodeIndex, LogBase& log) {
  if (!m_xmlRoot || !m_xmlRoot->tree()) return false;
  const std::vector<uint32_t>& carriers = m_xmlRoot->tree()->elementsWithId(id.view());
  if (carriers.size() == 1) {
    nodeIndex = carriers.front();
    return true;
  }
  if (carriers.empty()) {
    log.LogError(("No element is identified by \"" + std::string(id.view()) + "\".").c_str());
    m_refFailReason = 5;
  } else {
    log.LogError(("ambiguous Id: \"" + std::string(id.view()) + "\" identifies " + std::to_string(carriers.size()) +
                  " elements.")
                     .c_str());
    m_refFailReason = kRefFailAmbiguousId;
  }
  return false;
}

bool ClsXmlDSig::elementInContext(uint32_t nodeIndex, const std::vector<TextSpan>& cuts, StringBuffer& text,
                                  size_t& offset) {
  if (!m_xmlRoot || !m_xmlRoot->tree()) return false;
  const xml::XmlTree& tree = *m_xmlRoot->tree();
  const xml::XmlNode* const node = tree.nodeAt(nodeIndex);
  if (!node) return false;
  const std::string_view doc = tree.text();
  // A DTD can supply attributes and entities the small document would not have.
  const size_t rootStart = m_xmlRoot->sourceStart();
  if (rootStart > doc.size() || doc.substr(0, rootStart).find("<!DOCTYPE") != std::string_view::npos) return false;

  std::vector<const xml::XmlNode*> ancestors;  // nearest first
  for (const xml::XmlNode* p = tree.parentOf(*node); p; p = tree.parentOf(*p)) ancestors.push_back(p);

  std::string out;
  std::string value;
  for (auto it = ancestors.rbegin(); it != ancestors.rend(); ++it) {
    const xml::XmlNode& element = **it;
    out += '<';
    out += tree.tagOf(element);
    for (uint32_t i = 0; i < element.numAttributes; ++i) {
      const xml::XmlTreeAttribute& a = *tree.attribute(element, i);
      const std::string_view name = tree.attributeName(a);
      if (!inheritedByDescendants(name)) continue;
      value.clear();
      if (!tree.attributeValue(a, value)) return false;
      out += ' ';
      out += name;
      out += "=\"";
      appendEscapedAttributeValue(value, out);
      out += '"';
    }
    out += '>';
  }
  offset = out.size();
  size_t from = node->start;
  for (const TextSpan& cut : cuts) {
    if (cut.start < node->start || cut.end > node->end) continue;
    out += doc.substr(from, cut.start - from);
    from = cut.end;
  }
  out += doc.substr(from, node->end - from);
  for (const xml::XmlNode* element : ancestors) {
    out += "</";
    out += tree.tagOf(*element);
    out += '>';
  }
  text.setString(std::string_view(out));
  return true;
}

bool ClsXmlDSig::chargeCanonicalBytes(size_t bytes, LogBase& log) {
  m_canonicalBytesUsed += static_cast<int64_t>(bytes);
  if (m_canonicalBytesUsed <= m_maxCanonicalBytes) return true;
  m_limitExceeded = "The verification canonicalized more than MaxCanonicalBytes (" +
                    std::to_string(m_maxCanonicalBytes) + " bytes): stopped.";
  log.LogError(m_limitExceeded.c_str());
  return false;
}
