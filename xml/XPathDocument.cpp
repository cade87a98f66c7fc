#include "xml/XPathDocument.h"

#include <algorithm>
#include <utility>

#include "support/xml/XmlScanner.h"
#include "xml/XmlCanonEscape.h"

namespace xml {

namespace {

constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

using Bindings = std::vector<std::pair<std::string, std::string>>;  // prefix -> uri, sorted by prefix

void bind(Bindings& scope, std::string_view prefix, std::string_view uri) {
  auto it = std::lower_bound(scope.begin(), scope.end(), prefix,
                             [](const auto& b, std::string_view p) { return b.first < p; });
  if (it != scope.end() && it->first == prefix) {
    if (uri.empty()) scope.erase(it);  // xmlns="" takes the default namespace away
    else it->second = uri;
  } else if (!uri.empty()) {
    scope.insert(it, {std::string(prefix), std::string(uri)});
  }
}

const std::string* lookup(const Bindings& scope, std::string_view prefix) {
  auto it = std::lower_bound(scope.begin(), scope.end(), prefix,
                             [](const auto& b, std::string_view p) { return b.first < p; });
  return it != scope.end() && it->first == prefix ? &it->second : nullptr;
}

size_t localStartOf(std::string_view qname) {
  const size_t colon = qname.find(':');
  return colon == std::string_view::npos ? 0 : colon + 1;
}

bool isIdName(std::string_view qname) {
  const std::string_view local = qname.substr(localStartOf(qname));
  return local == "Id" || local == "ID" || local == "id";
}

}  // namespace

bool XPathDocument::parse(std::string_view text, std::string& error, size_t maxNodes) {
  m_nodes.clear();
  m_nodes.emplace_back();  // the root

  struct Open {
    uint32_t node;
    uint32_t lastChild;
    Bindings scope;
  };
  std::vector<Open> open;
  open.push_back({0, UINT32_MAX, Bindings{{"xml", std::string(kXmlNamespace)}}});

  auto appendChild = [&](XPathNode&& n) -> uint32_t {
    const uint32_t index = static_cast<uint32_t>(m_nodes.size());
    Open& parent = open.back();
    n.parent = parent.node;
    n.prevSibling = parent.lastChild;
    n.subtreeEnd = index + 1;
    m_nodes.push_back(std::move(n));
    if (parent.lastChild == UINT32_MAX) m_nodes[parent.node].firstChild = index;
    else m_nodes[parent.lastChild].nextSibling = index;
    parent.lastChild = index;
    return index;
  };
  // Adjacent character data (text, CDATA, expanded references) is one text node.
  auto appendText = [&](std::string&& value) {
    const uint32_t last = open.back().lastChild;
    if (last != UINT32_MAX && m_nodes[last].kind == XPathNodeKind::Text && last + 1 == m_nodes.size()) {
      m_nodes[last].value += value;
      return;
    }
    XPathNode n;
    n.kind = XPathNodeKind::Text;
    n.value = std::move(value);
    appendChild(std::move(n));
  };

  XmlScanner scanner(text);
  XmlToken tok;
  std::string decoded;
  while (scanner.next(tok)) {
    if (m_nodes.size() > maxNodes) {
      error = "the document has more nodes than XPath evaluation accepts";
      m_nodes.clear();
      return false;
    }
    switch (tok.type) {
      case XmlTokenType::StartTag: {
        Bindings scope = open.back().scope;
        for (const XmlAttribute& a : tok.attributes) {
          if (a.qname == "xmlns") {
            bind(scope, "", a.rawValue);
          } else if (a.qname.size() > 6 && a.qname.compare(0, 6, "xmlns:") == 0) {
            decoded.clear();
            scanner.decodeAttributeValue(a.rawValue, decoded);
            bind(scope, a.qname.substr(6), decoded);
          }
        }
        XPathNode el;
        el.kind = XPathNodeKind::Element;
        el.name = std::string(tok.name);
        el.localStart = localStartOf(tok.name);
        el.sourceStart = tok.start;
        const std::string_view prefix = el.localStart ? tok.name.substr(0, el.localStart - 1) : std::string_view();
        if (const std::string* uri = lookup(scope, prefix)) el.uri = *uri;
        const uint32_t index = appendChild(std::move(el));

        m_nodes[index].firstNamespace = static_cast<uint32_t>(m_nodes.size());
        for (const auto& b : scope) {
          XPathNode ns;
          ns.kind = XPathNodeKind::Namespace;
          ns.parent = index;
          ns.name = b.first;
          ns.value = b.second;
          ns.subtreeEnd = static_cast<uint32_t>(m_nodes.size() + 1);
          m_nodes.push_back(std::move(ns));
        }
        m_nodes[index].numNamespaces = static_cast<uint32_t>(scope.size());
        m_nodes[index].firstAttribute = static_cast<uint32_t>(m_nodes.size());
        const XmlDtd& dtd = scanner.dtd();
        for (const XmlAttribute& a : tok.attributes) {
          if (a.qname == "xmlns" || a.qname.compare(0, 6, "xmlns:") == 0) continue;
          XPathNode at;
          at.kind = XPathNodeKind::Attribute;
          at.parent = index;
          at.name = std::string(a.qname);
          at.localStart = localStartOf(a.qname);
          if (at.localStart) {
            if (const std::string* uri = lookup(scope, a.qname.substr(0, at.localStart - 1))) at.uri = *uri;
          }
          const std::string_view type = dtd.empty() ? std::string_view() : dtd.attributeType(tok.name, a.qname);
          scanner.decodeAttributeValue(a.rawValue, at.value, !type.empty() && type != "CDATA");
          at.isIdAttribute = type == "ID" || isIdName(a.qname);
          at.subtreeEnd = static_cast<uint32_t>(m_nodes.size() + 1);
          m_nodes.push_back(std::move(at));
        }
        m_nodes[index].numAttributes = static_cast<uint32_t>(m_nodes.size()) - m_nodes[index].firstAttribute;
        if (tok.selfClosing) m_nodes[index].subtreeEnd = static_cast<uint32_t>(m_nodes.size());
        else open.push_back({index, UINT32_MAX, std::move(scope)});
        break;
      }
      case XmlTokenType::EndTag:
        m_nodes[open.back().node].subtreeEnd = static_cast<uint32_t>(m_nodes.size());
        open.pop_back();
        break;
      case XmlTokenType::Text:
        if (open.size() == 1) break;  // white space around the document element
        decoded.clear();
        if (!scanner.decodeText(tok.content, decoded)) {
          error = scanner.errorMessage();
          m_nodes.clear();
          return false;
        }
        appendText(std::move(decoded));
        decoded = std::string();
        break;
      case XmlTokenType::CData:
        decoded.clear();
        appendNormalizedLineEnds(decoded, tok.content);
        appendText(std::move(decoded));
        decoded = std::string();
        break;
      case XmlTokenType::Comment:
      case XmlTokenType::PI: {
        XPathNode n;
        n.kind = tok.type == XmlTokenType::Comment ? XPathNodeKind::Comment : XPathNodeKind::PI;
        if (tok.type == XmlTokenType::PI) n.name = std::string(tok.name);
        appendNormalizedLineEnds(n.value, tok.content);
        appendChild(std::move(n));
        break;
      }
      default: break;
    }
  }
  if (scanner.hasError()) {
    error = scanner.errorMessage();
    m_nodes.clear();
    return false;
  }
  m_nodes[0].subtreeEnd = static_cast<uint32_t>(m_nodes.size());
  return true;
}

uint32_t XPathDocument::documentElement() const {
  for (uint32_t c = m_nodes.empty() ? UINT32_MAX : m_nodes[0].firstChild; c != UINT32_MAX; c = m_nodes[c].nextSibling)
    if (m_nodes[c].kind == XPathNodeKind::Element) return c;
  return UINT32_MAX;
}

std::string XPathDocument::stringValue(uint32_t i) const {
  const XPathNode& n = m_nodes[i];
  if (n.kind != XPathNodeKind::Root && n.kind != XPathNodeKind::Element) return n.value;
  std::string out;
  for (uint32_t k = i + 1; k < n.subtreeEnd; ++k)
    if (m_nodes[k].kind == XPathNodeKind::Text) out += m_nodes[k].value;
  return out;
}

uint32_t XPathDocument::elementById(std::string_view id) const {
  for (const XPathNode& n : m_nodes)
    if (n.kind == XPathNodeKind::Attribute && n.isIdAttribute && n.value == id) return n.parent;
  return UINT32_MAX;
}

bool XPathDocument::namespaceOf(uint32_t element, std::string_view prefix, std::string& uri) const {
  const XPathNode& e = m_nodes[element];
  for (uint32_t k = e.firstNamespace; k < e.firstNamespace + e.numNamespaces; ++k)
    if (m_nodes[k].name == prefix) {
      uri = m_nodes[k].value;
      return true;
    }
  return false;
}

}  // namespace xml
