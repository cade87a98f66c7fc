#include "xml/NodeSetTransforms.h"

#include "xml/XPathEval.h"

namespace xml {

namespace {

void markSubtree(const XPathDocument& doc, uint32_t e, std::vector<char>& set, char value) {
  for (uint32_t k = e; k < doc.node(e).subtreeEnd; ++k) set[k] = value;
}

void dropComments(const XPathDocument& doc, std::vector<char>& set) {
  for (uint32_t k = 0; k < doc.size(); ++k)
    if (doc.node(k).kind == XPathNodeKind::Comment) set[k] = 0;
}

// The X of xpointer(id('X')) or xpointer(id("X")), or false.
bool xpointerId(std::string_view uri, std::string& id) {
  const std::string_view open = "xpointer(id(";
  if (uri.substr(0, open.size()) != open || uri.size() < open.size() + 4) return false;
  const char quote = uri[open.size()];
  if (quote != '\'' && quote != '"') return false;
  const size_t close = uri.find(quote, open.size() + 1);
  if (close == std::string_view::npos || uri.substr(close + 1) != "))") return false;
  id = std::string(uri.substr(open.size() + 1, close - open.size() - 1));
  return true;
}

bool compileFor(const XPathFilterExpr& f, XPathExpression& compiled, std::string& error) {
  if (compiled.compile(f.expression, error)) return true;
  error = "XPath expression not understood: " + error;
  return false;
}

}  // namespace

bool NodeSetState::load(std::string_view text, std::string& error) {
  if (!m_doc.parse(text, error)) return false;
  m_set.assign(m_doc.size(), 1);
  return true;
}

bool NodeSetState::selectByUri(std::string_view uri, std::string& error) {
  if (uri.empty() || uri == "xpointer(/)") {
    m_set.assign(m_doc.size(), 1);
    if (uri.empty()) dropComments(m_doc, m_set);
    return true;
  }
  std::string id;
  const bool xpointer = xpointerId(uri, id);
  if (!xpointer) {
    if (uri.substr(0, 8) == "xpointer") {
      error = "unsupported xpointer expression";
      return false;
    }
    id = std::string(uri);
  }
  const uint32_t e = m_doc.elementById(id);
  if (e == UINT32_MAX) {
    error = "no element has the Id " + id;
    return false;
  }
  m_set.assign(m_doc.size(), 0);
  markSubtree(m_doc, e, m_set, 1);
  if (!xpointer) dropComments(m_doc, m_set);
  return true;
}

bool NodeSetState::applyXPath(const XPathFilterExpr& f, size_t maxSteps, std::string& error) {
  XPathExpression expr;
  if (!compileFor(f, expr, error)) return false;
  XPathEvaluator ev(m_doc);
  ev.setNamespaces(f.namespaces);
  ev.setHere(f.here);
  ev.setMaxSteps(maxSteps);
  for (uint32_t k = 0; k < m_doc.size(); ++k) {
    if (!m_set[k]) continue;
    bool keep = false;
    if (!ev.evaluateBoolean(expr, k, keep)) {
      error = ev.error();
      return false;
    }
    m_set[k] = keep;
  }
  return true;
}

bool NodeSetState::applyFilter2(const std::vector<XPathFilterExpr>& filters, size_t maxSteps, std::string& error) {
  // The filter starts as every node of the document; the output is what the input and the
  // filter have in common.
  std::vector<char> filter(m_doc.size(), 1);
  size_t budget = maxSteps;
  for (const XPathFilterExpr& f : filters) {
    if (f.filter != "intersect" && f.filter != "subtract" && f.filter != "union") {
      error = "XPath Filter 2.0 filter '" + f.filter + "' is not intersect, subtract or union";
      return false;
    }
    XPathExpression expr;
    if (!compileFor(f, expr, error)) return false;
    XPathEvaluator ev(m_doc);
    ev.setNamespaces(f.namespaces);
    ev.setHere(f.here);
    ev.setMaxSteps(budget);
    NodeList selected;
    if (!ev.evaluateNodeSet(expr, 0, selected)) {
      error = ev.error();
      return false;
    }
    budget -= std::min(budget, ev.stepsUsed());
    std::vector<char> subtrees(m_doc.size(), 0);
    for (uint32_t n : selected)
      if (!subtrees[n]) markSubtree(m_doc, n, subtrees, 1);
    for (uint32_t k = 0; k < m_doc.size(); ++k) {
      if (f.filter == "intersect") filter[k] = filter[k] && subtrees[k];
      else if (f.filter == "subtract") filter[k] = filter[k] && !subtrees[k];
      else filter[k] = filter[k] || subtrees[k];
    }
  }
  for (uint32_t k = 0; k < m_doc.size(); ++k) m_set[k] = m_set[k] && filter[k];
  return true;
}

void NodeSetState::removeSubtree(uint32_t e) {
  if (e < m_doc.size()) markSubtree(m_doc, e, m_set, 0);
}

uint32_t NodeSetState::findElementWithText(std::string_view local, std::string_view content, uint32_t within) const {
  const uint32_t from = within == UINT32_MAX ? 0 : within;
  const uint32_t to = within == UINT32_MAX ? static_cast<uint32_t>(m_doc.size()) : m_doc.node(within).subtreeEnd;
  for (uint32_t k = from; k < to; ++k) {
    const XPathNode& n = m_doc.node(k);
    if (n.kind == XPathNodeKind::Element && n.localName() == local && m_doc.stringValue(k) == content) return k;
  }
  return UINT32_MAX;
}

uint32_t NodeSetState::elementAtOffset(size_t offset) const {
  for (uint32_t k = 0; k < m_doc.size(); ++k) {
    const XPathNode& n = m_doc.node(k);
    if (n.kind == XPathNodeKind::Element && n.sourceStart == offset) return k;
  }
  return UINT32_MAX;
}

std::map<std::string, std::string> NodeSetState::namespacesAt(uint32_t e) const {
  std::map<std::string, std::string> out;
  const XPathNode& el = m_doc.node(e);
  for (uint32_t k = el.firstNamespace; k < el.firstNamespace + el.numNamespaces; ++k)
    if (!m_doc.node(k).name.empty() && m_doc.node(k).name != "xml") out[m_doc.node(k).name] = m_doc.node(k).value;
  return out;
}

uint32_t NodeSetState::hereNodeOf(uint32_t e) const {
  for (uint32_t c = m_doc.node(e).firstChild; c != UINT32_MAX; c = m_doc.node(c).nextSibling)
    if (m_doc.node(c).kind == XPathNodeKind::Text) return c;
  return e;
}

}  // namespace xml
