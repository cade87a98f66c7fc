#include "xml/XmlTree.h"

#include <cstring>
#include <limits>

#include "xml/XmlScanner.h"

namespace xml {

namespace {

// Line ends in CDATA are normalised like all other text of the document.
void appendNormalisedLines(std::string& out, std::string_view s) {
  if (std::memchr(s.data(), '\r', s.size()) == nullptr) {
    out.append(s.data(), s.size());
    return;
  }
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\r') {
      out.push_back('\n');
      if (i + 1 < s.size() && s[i + 1] == '\n') ++i;
    } else {
      out.push_back(s[i]);
    }
  }
}

}  // namespace

bool XmlTree::parse(std::string_view text, std::string& error) {
  m_nodes.clear();
  m_attributes.clear();
  m_texts.clear();
  m_children.clear();
  m_dtd = XmlDtd();
  m_text.clear();
  // Offsets are kept in 32 bits, which keeps the nodes small.
  if (text.size() >= std::numeric_limits<uint32_t>::max()) {
    error = "documents of 4 GiB or more are not supported";
    return false;
  }
  m_text.assign(text.data(), text.size());

  struct Open {
    XmlNode* node;
    uint32_t lastText;
  };
  std::vector<Open> open;
  XmlScanner scanner(m_text);
  XmlToken tok;
  while (scanner.next(tok)) {
    switch (tok.type) {
      case XmlTokenType::StartTag: {
        XmlNode& node = m_nodes.emplace_back();
        node.tag = tok.name;
        node.start = static_cast<uint32_t>(tok.start);
        node.index = static_cast<uint32_t>(m_nodes.size() - 1);
        if (!open.empty()) {
          node.parent = open.back().node;
          ++node.parent->numChildren;
        }
        node.firstAttribute = static_cast<uint32_t>(m_attributes.size());
        node.numAttributes = static_cast<uint32_t>(tok.attributes.size());
        const bool typed = !scanner.dtd().empty();
        for (const XmlAttribute& a : tok.attributes) {
          XmlTreeAttribute& attr = m_attributes.emplace_back();
          attr.qname = a.qname;
          attr.rawValue = a.rawValue;
          attr.defaulted = a.defaulted;
          if (typed) {
            const std::string_view type = scanner.dtd().attributeType(tok.name, a.qname);
            attr.nonCdata = !type.empty() && type != "CDATA";
          }
        }
        if (tok.selfClosing) {
          node.end = static_cast<uint32_t>(tok.end);
          node.subtreeEnd = node.index + 1;
        } else {
          open.push_back({&node, kNoIndex});
        }
        break;
      }
      case XmlTokenType::EndTag: {
        XmlNode* node = open.back().node;
        node->end = static_cast<uint32_t>(tok.end);
        node->subtreeEnd = static_cast<uint32_t>(m_nodes.size());
        open.pop_back();
        break;
      }
      case XmlTokenType::Text:
      case XmlTokenType::CData: {
        if (open.empty()) break;  // white space around the document element
        const uint32_t pieceIndex = static_cast<uint32_t>(m_texts.size());
        XmlTextPiece& piece = m_texts.emplace_back();
        piece.start = static_cast<uint32_t>(tok.content.data() - m_text.data());
        piece.end = static_cast<uint32_t>(piece.start + tok.content.size());
        piece.cdata = tok.type == XmlTokenType::CData;
        Open& o = open.back();
        if (o.lastText == kNoIndex)
          o.node->firstText = pieceIndex;
        else
          m_texts[o.lastText].next = pieceIndex;
        o.lastText = pieceIndex;
        break;
      }
      default:
        break;
    }
  }
  if (scanner.hasError()) {
    error = scanner.errorMessage();
    m_nodes.clear();
    m_attributes.clear();
    m_texts.clear();
    m_text.clear();
    return false;
  }
  // Defaulted attribute values point into the DTD's entries, which the move keeps in place.
  m_dtd = scanner.releaseDtd();
  buildChildTable();
  return true;
}

// Lays each node's children side by side so that the i-th child is one lookup.
void XmlTree::buildChildTable() {
  uint32_t slot = 0;
  for (XmlNode& node : m_nodes) {
    node.firstChildSlot = slot;
    slot += node.numChildren;
    node.numChildren = 0;  // refilled below as the children are placed
  }
  m_children.assign(slot, nullptr);
  for (XmlNode& node : m_nodes) {
    if (!node.parent) continue;
    XmlNode& parent = *node.parent;
    m_children[parent.firstChildSlot + parent.numChildren++] = &node;
  }
}

const XmlTreeAttribute* XmlTree::findAttribute(const XmlNode& node, std::string_view qname) const {
  for (uint32_t i = 0; i < node.numAttributes; ++i) {
    const XmlTreeAttribute& a = m_attributes[node.firstAttribute + i];
    if (a.qname == qname) return &a;
  }
  return nullptr;
}

bool XmlTree::attributeValue(const XmlTreeAttribute& attr, std::string& out) const {
  const std::string_view raw = attr.rawValue;
  bool plain = !attr.nonCdata;
  for (size_t i = 0; plain && i < raw.size(); ++i) {
    const char c = raw[i];
    plain = c != '&' && c != '\t' && c != '\r' && c != '\n';
  }
  if (plain) {
    out.append(raw.data(), raw.size());
    return true;
  }
  return expandAttributeValue(m_dtd, raw, out, attr.nonCdata, nullptr);
}

bool XmlTree::content(const XmlNode& node, std::string& out) const {
  for (uint32_t i = node.firstText; i != kNoIndex; i = m_texts[i].next) {
    const XmlTextPiece& piece = m_texts[i];
    const std::string_view raw = std::string_view(m_text).substr(piece.start, piece.end - piece.start);
    if (piece.cdata) {
      appendNormalisedLines(out, raw);
    } else if (!expandText(m_dtd, raw, out, nullptr)) {
      return false;
    }
  }
  return true;
}

bool XmlTree::namespaceOf(const XmlNode& node, std::string_view prefix, std::string& uri) const {
  for (const XmlNode* n = &node; n; n = n->parent) {
    for (uint32_t i = 0; i < n->numAttributes; ++i) {
      const XmlTreeAttribute& a = m_attributes[n->firstAttribute + i];
      const std::string_view q = a.qname;
      const bool match = prefix.empty() ? q == "xmlns"
                                        : (q.size() == 6 + prefix.size() && q.compare(0, 6, "xmlns:") == 0 &&
                                           q.compare(6, std::string_view::npos, prefix) == 0);
      if (!match) continue;
      uri.clear();
      return attributeValue(a, uri);
    }
  }
  return false;
}

}  // namespace xml
