// ClsXml handles over the arena tree. A handle is a shared pointer to the tree plus a
// node pointer, so any handle keeps its whole tree alive and releasing one never
// touches the tree. Text-returning getters that "get" a value replace the contents of
// their output; getChildContentUtf8 and getXml append, as their callers expect.
#include "support/ClsXml.h"

#include <new>

#include "support/LogBase.h"
#include "support/XString.h"
#include "xml/XmlScanner.h"
#include "xml/XmlTree.h"

using xml::XmlNode;
using xml::XmlTree;
using xml::XmlTreeAttribute;

namespace {

constexpr std::string_view kXmlDsigNamespace = "http://www.w3.org/2000/09/xmldsig#";

std::string_view viewOf(const char* s) { return s ? std::string_view(s) : std::string_view(); }

// "*" matches any name, "*:local" a local name with any prefix or none, anything else
// the qualified name exactly.
bool nameMatches(std::string_view qname, std::string_view pattern) {
  if (pattern == "*") return true;
  if (pattern.size() >= 2 && pattern[0] == '*' && pattern[1] == ':') return xml::localNameOf(qname) == pattern.substr(2);
  return qname == pattern;
}

// Whole-value match where '*' stands for any run of bytes; greedy with one
// backtracking point, so linear in practice.
bool wildcardMatches(std::string_view value, std::string_view pattern) {
  size_t v = 0, p = 0;
  size_t starP = std::string_view::npos, starV = 0;
  while (v < value.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      starP = p++;
      starV = v;
    } else if (p < pattern.size() && pattern[p] == value[v]) {
      ++p;
      ++v;
    } else if (starP != std::string_view::npos) {
      p = starP + 1;
      v = ++starV;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

// One step of a tag path: the tag pattern and which match to take ("[i]" uses I).
struct PathStep {
  std::string_view tag;
  long index = 0;
};

bool parseStep(std::string_view step, int handleI, PathStep& out) {
  out.tag = step;
  out.index = 0;
  if (step.empty() || step.back() != ']') return true;
  const size_t open = step.rfind('[');
  if (open == std::string_view::npos) return true;
  const std::string_view inside = step.substr(open + 1, step.size() - open - 2);
  out.tag = step.substr(0, open);
  if (inside == "i") {
    out.index = handleI;
    return true;
  }
  if (inside.empty()) return false;
  long n = 0;
  for (char c : inside) {
    if (c < '0' || c > '9' || n > 100000000) return false;
    n = n * 10 + (c - '0');
  }
  out.index = n;
  return true;
}

XmlNode* nthMatchingChild(XmlTree& tree, const XmlNode& node, std::string_view tag, long n) {
  if (n < 0) return nullptr;
  for (uint32_t i = 0; i < node.numChildren; ++i) {
    XmlNode* c = tree.child(node, i);
    if (nameMatches(tree.tagOf(*c), tag) && n-- == 0) return c;
  }
  return nullptr;
}

bool isXmlDsigElement(const XmlTree& tree, const XmlNode& node, std::string_view localName) {
  const std::string_view tag = tree.tagOf(node);
  if (xml::localNameOf(tag) != localName) return false;
  std::string uri;
  return tree.namespaceOf(node, xml::prefixOf(tag), uri) && uri == kXmlDsigNamespace;
}

// A Signature of the XML-Signature namespace, or an element of any name (EBICS
// AuthSignature) holding a SignedInfo and a SignatureValue of that namespace.
bool isSignatureElement(const XmlTree& tree, const XmlNode& node) {
  if (isXmlDsigElement(tree, node, "Signature")) return true;
  bool signedInfo = false, signatureValue = false;
  for (uint32_t i = 0; i < node.numChildren && !(signedInfo && signatureValue); ++i) {
    const XmlNode& c = *tree.child(node, i);
    if (!signedInfo && isXmlDsigElement(tree, c, "SignedInfo")) signedInfo = true;
    else if (!signatureValue && isXmlDsigElement(tree, c, "SignatureValue")) signatureValue = true;
  }
  return signedInfo && signatureValue;
}

}  // namespace

ClsXml::ClsXml(std::shared_ptr<XmlTree> tree, XmlNode* node) : m_tree(std::move(tree)), m_node(node) {}

ClsXml::~ClsXml() = default;

ClsXml* ClsXml::createNewCls() {
  try {
    return createNewCls(std::make_shared<XmlTree>(), nullptr);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

ClsXml* ClsXml::createNewCls(const std::shared_ptr<XmlTree>& tree, XmlNode* node) {
  return new (std::nothrow) ClsXml(tree, node);
}

template <typename Parse>
bool ClsXml::load(Parse&& parse, LogBase& log) {
  try {
    auto tree = std::make_shared<XmlTree>();
    std::string error;
    const bool ok = parse(*tree, error);
    // Even a failed load replaces the old content: the handle is then empty.
    m_tree = std::move(tree);
    m_node = ok ? m_tree->root() : nullptr;
    if (!ok) log.LogError(error.c_str());
    return ok;
  } catch (const std::bad_alloc&) {
    m_node = nullptr;
    log.LogError("Out of memory while parsing XML.");
    return false;
  }
}

bool ClsXml::loadXml(const StringBuffer& text, bool /*flag*/, LogBase& log) {
  return load([&text](XmlTree& tree, std::string& error) { return tree.parse(text.view(), error); }, log);
}

bool ClsXml::loadXmlShared(std::shared_ptr<const std::string> text, LogBase& log) {
  return load([&text](XmlTree& tree, std::string& error) { return tree.parseShared(std::move(text), error); },
              log);
}

bool ClsXml::findSignatures(ExtPtrArrayRc& out, LogBase& /*log*/) {
  if (!m_node) return true;
  for (uint32_t i = m_node->index; i < m_node->subtreeEnd; ++i) {
    XmlNode* node = m_tree->nodeAt(i);
    if (!isSignatureElement(*m_tree, *node)) continue;
    ClsXml* handle = createNewCls(m_tree, node);
    if (!handle) return false;
    out.appendRefCounted(handle);
  }
  return true;
}

XmlNode* ClsXml::resolvePath(std::string_view path) const {
  if (!m_node) return nullptr;
  XmlNode* node = m_node;
  size_t pos = 0;
  while (node) {
    const size_t bar = path.find('|', pos);
    const std::string_view step = path.substr(pos, bar == std::string_view::npos ? std::string_view::npos : bar - pos);
    PathStep s;
    if (!parseStep(step, m_i, s)) return nullptr;
    node = nthMatchingChild(*m_tree, *node, s.tag, s.index);
    if (bar == std::string_view::npos) break;
    pos = bar + 1;
  }
  return node;
}

ClsXml* ClsXml::getChildWithTagUtf8(const char* path) {
  XmlNode* node = resolvePath(viewOf(path));
  return node ? createNewCls(m_tree, node) : nullptr;
}

ClsXml* ClsXml::getNthChildWithTagUtf8(const char* tag, int n, LogBase& /*log*/) {
  if (!m_node) return nullptr;
  XmlNode* node = nthMatchingChild(*m_tree, *m_node, viewOf(tag), n);
  return node ? createNewCls(m_tree, node) : nullptr;
}

int ClsXml::numChildrenHavingTagUtf8(const char* tag, LogBase& /*log*/) {
  if (!m_node) return 0;
  const std::string_view pattern = viewOf(tag);
  int count = 0;
  for (uint32_t i = 0; i < m_node->numChildren; ++i)
    if (nameMatches(m_tree->tagOf(*m_tree->child(*m_node, i)), pattern)) ++count;
  return count;
}

bool ClsXml::getChildContentUtf8(const char* path, StringBuffer& out, bool /*flag*/) {
  XmlNode* node = resolvePath(viewOf(path));
  if (!node) return false;
  std::string& s = out.raw();
  const size_t before = s.size();
  if (m_tree->content(*node, s)) return true;
  s.resize(before);
  return false;
}

bool ClsXml::getChildAttrValue(const char* path, const char* attr, StringBuffer& out) {
  out.clear();
  XmlNode* node = resolvePath(viewOf(path));
  if (!node) return false;
  const XmlTreeAttribute* a = m_tree->findAttribute(*node, viewOf(attr));
  return a && m_tree->attributeValue(*a, out.raw());
}

bool ClsXml::getAttrValue(const char* attr, StringBuffer& out) {
  out.clear();
  if (!m_node) return false;
  const XmlTreeAttribute* a = m_tree->findAttribute(*m_node, viewOf(attr));
  return a && m_tree->attributeValue(*a, out.raw());
}

bool ClsXml::HasAttribute(const char* name) {
  return m_node && m_tree->findAttribute(*m_node, viewOf(name)) != nullptr;
}

int ClsXml::get_NumAttributes() { return m_node ? static_cast<int>(m_node->numAttributes) : 0; }

bool ClsXml::getAttributeName(int i, StringBuffer& out) {
  out.clear();
  if (!m_node || i < 0) return false;
  const XmlTreeAttribute* a = m_tree->attribute(*m_node, static_cast<uint32_t>(i));
  if (!a) return false;
  out.append(a->qname);
  return true;
}

bool ClsXml::getAttributeValue(int i, StringBuffer& out) {
  out.clear();
  if (!m_node || i < 0) return false;
  const XmlTreeAttribute* a = m_tree->attribute(*m_node, static_cast<uint32_t>(i));
  return a && m_tree->attributeValue(*a, out.raw());
}

void ClsXml::get_Content(XString& out) {
  out.clear();
  if (m_node) m_tree->content(*m_node, out.getUtf8Sb_rw().raw());
}

bool ClsXml::getContentSb(StringBuffer& out) {
  out.clear();
  return m_node && m_tree->content(*m_node, out.raw());
}

bool ClsXml::getTag(StringBuffer& out) {
  out.clear();
  if (!m_node) return false;
  out.append(m_tree->tagOf(*m_node));
  return true;
}

bool ClsXml::getTagNamespace(StringBuffer& out) {
  out.clear();
  if (!m_node) return false;
  out.append(xml::prefixOf(m_tree->tagOf(*m_node)));
  return true;
}

std::string_view ClsXml::tagView() const { return m_node ? m_tree->tagOf(*m_node) : std::string_view(); }

std::string_view ClsXml::localNameView() const { return xml::localNameOf(tagView()); }

bool ClsXml::getXml(bool /*flag*/, StringBuffer& out, LogBase& /*log*/) {
  if (!m_node) return false;
  return out.append(m_tree->sourceOf(*m_node));
}

bool ClsXml::GetXml(XString& out) {
  out.clear();
  if (!m_node) return false;
  return out.getUtf8Sb_rw().append(m_tree->sourceOf(*m_node));
}

int ClsXml::get_NumChildren() { return m_node ? static_cast<int>(m_node->numChildren) : 0; }

ClsXml* ClsXml::GetChild(int i) {
  if (!m_node || i < 0) return nullptr;
  XmlNode* c = m_tree->child(*m_node, static_cast<uint32_t>(i));
  return c ? createNewCls(m_tree, c) : nullptr;
}

bool ClsXml::getChild2(int i) {
  if (!m_node || i < 0) return false;
  XmlNode* c = m_tree->child(*m_node, static_cast<uint32_t>(i));
  if (!c) return false;
  m_node = c;
  return true;
}

ClsXml* ClsXml::getParent() {
  XmlNode* parent = m_node ? m_tree->parentOf(*m_node) : nullptr;
  return parent ? createNewCls(m_tree, parent) : nullptr;
}

// Pre-order walk of this element's subtree (the element included); with `after`, the
// walk resumes just after that element in document order.
XmlNode* ClsXml::searchFrom(const ClsXml* after, std::string_view tag, const char* attr,
                            const char* valuePattern) const {
  if (!m_node) return nullptr;
  uint32_t begin = m_node->index;
  const uint32_t end = m_node->subtreeEnd;
  if (after) {
    if (after->m_tree != m_tree || !after->m_node) return nullptr;
    begin = after->m_node->index + 1;
    if (after->m_node->index < m_node->index || begin > end) return nullptr;
  }
  const std::string_view attrPattern = viewOf(attr);
  const std::string_view pattern = valuePattern ? std::string_view(valuePattern) : std::string_view("*");
  std::string value;
  for (uint32_t i = begin; i < end; ++i) {
    XmlNode* node = m_tree->nodeAt(i);
    if (!nameMatches(m_tree->tagOf(*node), tag)) continue;
    if (!attr) return node;
    for (uint32_t k = 0; k < node->numAttributes; ++k) {
      const XmlTreeAttribute* a = m_tree->attribute(*node, k);
      // Namespace declarations are not attributes a "*:" name should find.
      if (xml::prefixOf(a->qname) == "xmlns" || !nameMatches(a->qname, attrPattern)) continue;
      value.clear();
      if (m_tree->attributeValue(*a, value) && wildcardMatches(value, pattern)) return node;
    }
  }
  return nullptr;
}

ClsXml* ClsXml::searchForTag(ClsXml* after, const char* path) {
  XmlNode* node = searchFrom(after, viewOf(path), nullptr, nullptr);
  return node ? createNewCls(m_tree, node) : nullptr;
}

ClsXml* ClsXml::searchForAttribute(ClsXml* after, const char* tag, const char* attr, bool /*flag*/,
                                   const char* valuePattern) {
  if (!attr) return nullptr;
  XmlNode* node = searchFrom(after, viewOf(tag), attr, valuePattern);
  return node ? createNewCls(m_tree, node) : nullptr;
}

size_t ClsXml::sourceStart() const { return m_node ? m_node->start : 0; }

size_t ClsXml::sourceEnd() const { return m_node ? m_node->end : 0; }
