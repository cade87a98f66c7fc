#include "support/xml/XmlTree.h"

#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "support/xml/XmlScanner.h"

namespace xml {

namespace {

// Counts of '<' and '=' in text, 16 bytes at a time where SSE2 is available.
void countMarkup(std::string_view text, size_t& lessThan, size_t& equals) {
  size_t lt = 0, eq = 0, i = 0;
  const char* const p = text.data();
#if defined(__SSE2__)
  // Matches are counted per byte lane (a match compares as -1, so subtracting adds 1)
  // and the lanes summed before they can overflow.
  const __m128i ltByte = _mm_set1_epi8('<');
  const __m128i eqByte = _mm_set1_epi8('=');
  const __m128i zero = _mm_setzero_si128();
  while (i + 16 <= text.size()) {
    __m128i ltLanes = zero, eqLanes = zero;
    for (int round = 0; round < 255 && i + 16 <= text.size(); ++round, i += 16) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      ltLanes = _mm_sub_epi8(ltLanes, _mm_cmpeq_epi8(block, ltByte));
      eqLanes = _mm_sub_epi8(eqLanes, _mm_cmpeq_epi8(block, eqByte));
    }
    const __m128i ltSums = _mm_sad_epu8(ltLanes, zero);
    const __m128i eqSums = _mm_sad_epu8(eqLanes, zero);
    lt += static_cast<size_t>(_mm_cvtsi128_si32(ltSums)) + static_cast<size_t>(_mm_extract_epi16(ltSums, 4));
    eq += static_cast<size_t>(_mm_cvtsi128_si32(eqSums)) + static_cast<size_t>(_mm_extract_epi16(eqSums, 4));
  }
#endif
  for (; i < text.size(); ++i) {
    lt += p[i] == '<';
    eq += p[i] == '=';
  }
  lessThan = lt;
  equals = eq;
}

}  // namespace

void XmlTree::clear() {
  m_nodes.clear();
  m_attributes.clear();
  m_defaulted.clear();
  m_texts.clear();
  m_children.clear();
  m_dtd = XmlDtd();
  m_text.reset();
  m_view = std::string_view();
  m_borrowed = false;
  const std::lock_guard<std::mutex> lock(m_idIndexMutex);
  m_idIndex.clear();
  m_idIndexBuilt = false;
}

bool XmlTree::parse(std::string_view text, std::string& error) {
  clear();
  if (text.size() >= std::numeric_limits<uint32_t>::max()) {
    error = "documents of 4 GiB or more are not supported";
    return false;
  }
  return parseShared(std::make_shared<const std::string>(text), error);
}

bool XmlTree::parseShared(std::shared_ptr<const std::string> text, std::string& error) {
  clear();
  if (!text) text = std::make_shared<const std::string>();
  const std::string_view view = *text;
  m_text = std::move(text);
  return buildOn(view, error);
}

bool XmlTree::parseBorrowed(std::string_view text, std::string& error) {
  clear();
  m_borrowed = true;
  return buildOn(text, error);
}

bool XmlTree::buildOn(std::string_view text, std::string& error) {
  // Offsets are kept in 32 bits, which keeps the nodes small.
  if (text.size() >= std::numeric_limits<uint32_t>::max()) {
    clear();
    error = "documents of 4 GiB or more are not supported";
    return false;
  }
  m_view = text;
  if (build(error)) return true;
  clear();
  return false;
}

bool XmlTree::build(std::string& error) {
  // Every element starts at a '<' and every attribute has an '=', so these counts bound
  // the arenas: reserving them once avoids the copies of repeated growth. Pages of the
  // reserve that are never written are never touched.
  size_t markup = 0, equals = 0;
  countMarkup(m_view, markup, equals);
  m_nodes.reserve(markup);
  m_texts.reserve(markup);
  m_attributes.reserve(equals);
  m_children.reserve(markup);

  struct Open {
    uint32_t node;
    uint32_t lastText;
  };
  std::vector<Open> open;
  // Children of the open elements, in order: an element's own are on top when it closes,
  // and move from there to the child table side by side, so the i-th child is one lookup.
  std::vector<uint32_t> pendingChildren;
  XmlScanner scanner(m_view);
  XmlToken tok;
  const char* const base = m_view.data();
  while (scanner.next(tok)) {
    switch (tok.type) {
      case XmlTokenType::StartTag: {
        const uint32_t index = static_cast<uint32_t>(m_nodes.size());
        XmlNode& node = m_nodes.emplace_back();
        node.start = static_cast<uint32_t>(tok.start);
        node.tagLength = static_cast<uint32_t>(tok.name.size());
        node.tagTail = tagTailOf(tok.name);
        if (!open.empty()) {
          node.parent = open.back().node;
          ++m_nodes[node.parent].numChildren;
          pendingChildren.push_back(index);
        }
        node.firstAttribute = static_cast<uint32_t>(m_attributes.size());
        node.numAttributes = static_cast<uint32_t>(tok.attributes.size());
        const XmlDtd& dtd = scanner.dtd();
        const bool typed = !dtd.empty();
        for (const XmlAttribute& a : tok.attributes) {
          XmlTreeAttribute& attr = m_attributes.emplace_back();
          attr.defaulted = a.defaulted;
          if (a.defaulted) {
            attr.nameStart = static_cast<uint32_t>(m_defaulted.size());
            m_defaulted.emplace_back(a.qname, a.rawValue);
          } else {
            attr.nameStart = static_cast<uint32_t>(a.qname.data() - base);
            attr.nameLength = static_cast<uint32_t>(a.qname.size());
            attr.valueStart = static_cast<uint32_t>(a.rawValue.data() - base);
            attr.valueLength = static_cast<uint32_t>(a.rawValue.size());
          }
          if (typed) {
            const std::string_view type = dtd.attributeType(tok.name, a.qname);
            attr.nonCdata = !type.empty() && type != "CDATA";
          }
        }
        if (tok.selfClosing) {
          node.end = static_cast<uint32_t>(tok.end);
          node.subtreeEnd = index + 1;
        } else {
          open.push_back({index, kNoIndex});
        }
        break;
      }
      case XmlTokenType::EndTag: {
        XmlNode& node = m_nodes[open.back().node];
        node.end = static_cast<uint32_t>(tok.end);
        node.subtreeEnd = static_cast<uint32_t>(m_nodes.size());
        node.firstChildSlot = static_cast<uint32_t>(m_children.size());
        const auto own = pendingChildren.end() - node.numChildren;
        m_children.insert(m_children.end(), own, pendingChildren.end());
        pendingChildren.erase(own, pendingChildren.end());
        open.pop_back();
        break;
      }
      case XmlTokenType::Text:
      case XmlTokenType::CData: {
        if (open.empty()) break;  // white space around the document element
        const uint32_t pieceIndex = static_cast<uint32_t>(m_texts.size());
        XmlTextPiece& piece = m_texts.emplace_back();
        piece.start = static_cast<uint32_t>(tok.content.data() - base);
        piece.end = static_cast<uint32_t>(piece.start + tok.content.size());
        piece.cdata = tok.type == XmlTokenType::CData;
        Open& o = open.back();
        if (o.lastText == kNoIndex) m_nodes[o.node].firstText = pieceIndex;
        else m_texts[o.lastText].next = pieceIndex;
        o.lastText = pieceIndex;
        break;
      }
      default: break;
    }
  }
  if (scanner.hasError()) {
    error = scanner.errorMessage();
    return false;
  }
  // Defaulted attribute values point into the DTD's entries, which the move keeps in place.
  m_dtd = scanner.releaseDtd();
  return true;
}

const XmlTreeAttribute* XmlTree::findAttribute(const XmlNode& node, std::string_view qname) const {
  for (uint32_t i = 0; i < node.numAttributes; ++i) {
    const XmlTreeAttribute& a = m_attributes[node.firstAttribute + i];
    if (attributeName(a) == qname) return &a;
  }
  return nullptr;
}

bool XmlTree::attributeValue(const XmlTreeAttribute& attr, std::string& out) const {
  const std::string_view raw = attributeRawValue(attr);
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
    const std::string_view raw = m_view.substr(piece.start, piece.end - piece.start);
    if (piece.cdata) {
      appendNormalisedLineEnds(out, raw);  // CDATA: line ends only
    } else if (!expandText(m_dtd, raw, out, nullptr)) {
      return false;
    }
  }
  return true;
}

bool XmlTree::namespaceOf(const XmlNode& node, std::string_view prefix, std::string& uri) const {
  for (const XmlNode* n = &node; n; n = parentOf(*n)) {
    for (uint32_t i = 0; i < n->numAttributes; ++i) {
      const XmlTreeAttribute& a = m_attributes[n->firstAttribute + i];
      const std::string_view q = attributeName(a);
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

std::string XmlTree::namespaceOfElement(const XmlNode& node) const {
  std::string uri;
  if (!namespaceOf(node, prefixOf(tagOf(node)), uri)) uri.clear();
  return uri;
}

bool XmlTree::isIdAttribute(const XmlNode& node, const XmlTreeAttribute& attr) const {
  const std::string_view qname = attributeName(attr);
  const std::string_view local = localNameOf(qname);
  if (local == "Id" || local == "ID" || local == "id" || local == "AssertionID" || local == "RequestID" ||
      local == "ResponseID")
    return true;
  return !m_dtd.empty() && m_dtd.attributeType(tagOf(node), qname) == "ID";
}

const std::vector<uint32_t>& XmlTree::elementsWithId(std::string_view value) const {
  const std::lock_guard<std::mutex> lock(m_idIndexMutex);
  if (!m_idIndexBuilt) {
    m_idIndexBuilt = true;
    std::string v;
    for (uint32_t n = 0; n < m_nodes.size(); ++n) {
      const XmlNode& node = m_nodes[n];
      for (uint32_t i = 0; i < node.numAttributes; ++i) {
        const XmlTreeAttribute& a = m_attributes[node.firstAttribute + i];
        if (!isIdAttribute(node, a)) continue;
        v.clear();
        if (!attributeValue(a, v)) continue;
        std::vector<uint32_t>& carriers = m_idIndex[v];
        // An element that carries the value twice (Id and wsu:Id alike) is still one element.
        if (carriers.empty() || carriers.back() != n) carriers.push_back(n);
      }
    }
  }
  static const std::vector<uint32_t> kNone;
  const auto it = m_idIndex.find(std::string(value));
  return it == m_idIndex.end() ? kNone : it->second;
}

}  // namespace xml
