// ClsXml handles over the arena tree. A handle is a shared pointer to the tree plus a
// node pointer, so any handle keeps its whole tree alive and releasing one never
// touches the tree. Text-returning getters that "get" a value replace the contents of
// their output; getChildContentUtf8 and getXml append, as their callers expect.
#include "support/ClsXml.h"

#include <algorithm>
#include <new>
#include <vector>

#include "support/LogBase.h"
#include "support/XString.h"
#include "support/xml/XmlScanner.h"
#include "support/xml/XmlTree.h"

using xml::XmlNode;
using xml::XmlTree;
using xml::XmlTreeAttribute;

namespace {

constexpr std::string_view kXmlDsigNamespace = "http://www.w3.org/2000/09/xmldsig#";

std::string_view viewOf(const char* s) { return s ? std::string_view(s) : std::string_view(); }

// Whether the local name of qname (what follows its first ':', or all of it) is `local`.
// The tail is compared first and the prefix looked at only when it matches, so that a walk
// over every element of a large document costs a length check and a byte compare per tag.
bool hasLocalName(std::string_view qname, std::string_view local) {
  if (local.empty()) return qname.find(':') == qname.size() - 1;  // "" or "prefix:"
  if (qname.size() < local.size()) return false;
  const size_t prefixEnd = qname.size() - local.size();
  if (qname.back() != local.back() || qname.compare(prefixEnd, local.size(), local) != 0) return false;
  if (prefixEnd == 0) return local.find(':') == std::string_view::npos;
  return qname[prefixEnd - 1] == ':' && qname.substr(0, prefixEnd - 1).find(':') == std::string_view::npos;
}

// A tag pattern: "*" matches any name, "*:local" a local name with any prefix or none,
// anything else the qualified name exactly. Classified once per lookup, not per element;
// an element is tested first on the tail of its tag kept in its node, and its tag is read
// from the text only when that tail fits.
struct TagPattern {
  enum Kind { kAny, kLocal, kExact } kind = kAny;
  std::string_view name;
  uint32_t tail = 0;      // tagTailOf(name)
  uint32_t tailMask = 0;  // the bytes of a tag's tail that name fixes

  constexpr TagPattern() = default;
  constexpr explicit TagPattern(std::string_view pattern) {
    if (pattern == "*") return;
    const bool local = pattern.size() >= 2 && pattern[0] == '*' && pattern[1] == ':';
    kind = local ? kLocal : kExact;
    name = local ? pattern.substr(2) : pattern;
    tail = xml::tagTailOf(name);
    tailMask = name.size() >= 4 ? 0xFFFFFFFFu : (1u << (8 * name.size())) - 1;
  }
  bool matches(std::string_view qname) const {
    switch (kind) {
      case kAny: return true;
      case kLocal: return hasLocalName(qname, name);
      default: return qname == name;
    }
  }
  bool matches(const XmlTree& tree, const XmlNode& node) const {
    if (kind == kAny) return true;
    if ((node.tagTail & tailMask) != tail || node.tagLength < name.size()) return false;
    if (kind == kExact && node.tagLength != name.size()) return false;
    return matches(tree.tagOf(node));
  }
};

bool nameMatches(std::string_view qname, std::string_view pattern) { return TagPattern(pattern).matches(qname); }

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
  const TagPattern pattern(tag);
  for (uint32_t i = 0; i < node.numChildren; ++i) {
    XmlNode* c = tree.child(node, i);
    if (pattern.matches(tree, *c) && n-- == 0) return c;
  }
  return nullptr;
}

bool isXmlDsigElement(const XmlTree& tree, const XmlNode& node, const TagPattern& name) {
  if (!name.matches(tree, node)) return false;
  std::string uri;
  return tree.namespaceOf(node, xml::prefixOf(tree.tagOf(node)), uri) && uri == kXmlDsigNamespace;
}

constexpr TagPattern kSignature("*:Signature");
constexpr TagPattern kSignedInfo("*:SignedInfo");
constexpr TagPattern kSignatureValue("*:SignatureValue");

// A Signature of the XML-Signature namespace, or an element of any name (EBICS
// AuthSignature) holding a SignedInfo and a SignatureValue of that namespace.
bool isSignatureElement(const XmlTree& tree, const XmlNode& node) {
  if (isXmlDsigElement(tree, node, kSignature)) return true;
  bool signedInfo = false, signatureValue = false;
  for (uint32_t i = 0; i < node.numChildren && !(signedInfo && signatureValue); ++i) {
    const XmlNode& c = *tree.child(node, i);
    if (!signedInfo && isXmlDsigElement(tree, c, kSignedInfo)) signedInfo = true;
    else if (!signatureValue && isXmlDsigElement(tree, c, kSignatureValue)) signatureValue = true;
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
  return load([&text](XmlTree& tree, std::string& error) { return tree.parseShared(std::move(text), error); }, log);
}

bool ClsXml::loadXmlBorrowed(const StringBuffer& text, LogBase& log) {
  const std::string_view view = text.view();
  return load([view](XmlTree& tree, std::string& error) { return tree.parseBorrowed(view, error); }, log);
}

ClsXml* ClsXml::handleOwningText() {
  if (!m_node) return nullptr;
  ClsXml* handle = nullptr;
  if (!m_tree->borrowsText()) {
    handle = createNewCls(m_tree, m_node);
  } else {
    try {
      // The same text gives the same tree, so the element keeps its index.
      auto copy = std::make_shared<XmlTree>();
      std::string error;
      if (!copy->parse(m_tree->text(), error)) return nullptr;
      handle = createNewCls(copy, copy->nodeAt(m_tree->indexOf(*m_node)));
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }
  if (handle) handle->m_i = m_i;
  return handle;
}

bool ClsXml::findSignatures(ExtPtrArrayRc& out, LogBase& /*log*/) {
  if (!m_node) return true;
  // Each element's own name is looked at once: a Signature is tested where it stands, an
  // element of another name (EBICS) when one of its SignedInfo or SignatureValue children
  // comes by. That finds a parent after its later siblings, so the finds are sorted.
  const uint32_t begin = m_tree->indexOf(*m_node);
  std::vector<uint32_t> found;
  try {
    for (uint32_t i = begin; i < m_node->subtreeEnd; ++i) {
      const XmlNode& node = *m_tree->nodeAt(i);
      uint32_t candidate = xml::kNoIndex;
      if (kSignature.matches(*m_tree, node)) candidate = i;
      else if (kSignedInfo.matches(*m_tree, node) || kSignatureValue.matches(*m_tree, node)) candidate = node.parent;
      if (candidate == xml::kNoIndex || candidate < begin) continue;
      if (isSignatureElement(*m_tree, *m_tree->nodeAt(candidate))) found.push_back(candidate);
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  for (uint32_t index : found) {
    ClsXml* handle = createNewCls(m_tree, m_tree->nodeAt(index));
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
  const TagPattern pattern(viewOf(tag));
  int count = 0;
  for (uint32_t i = 0; i < m_node->numChildren; ++i)
    if (pattern.matches(*m_tree, *m_tree->child(*m_node, i))) ++count;
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
  out.append(m_tree->attributeName(*a));
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

bool ClsXml::searchRange(const ClsXml* after, uint32_t& begin, uint32_t& end) const {
  if (!m_node) return false;
  begin = m_tree->indexOf(*m_node);
  end = m_node->subtreeEnd;
  if (after) {
    if (after->m_tree != m_tree || !after->m_node) return false;
    const uint32_t afterIndex = m_tree->indexOf(*after->m_node);
    if (afterIndex < begin || afterIndex + 1 > end) return false;
    begin = afterIndex + 1;
  }
  return true;
}

// Pre-order walk of this element's subtree (the element included); with `after`, the
// walk resumes just after that element in document order.
XmlNode* ClsXml::searchFrom(const ClsXml* after, std::string_view tag, const char* attr,
                            const char* valuePattern) const {
  uint32_t begin = 0, end = 0;
  if (!searchRange(after, begin, end)) return nullptr;
  const TagPattern tagPattern(tag);
  const std::string_view attrPattern = viewOf(attr);
  const std::string_view pattern = valuePattern ? std::string_view(valuePattern) : std::string_view("*");
  std::string value;
  for (uint32_t i = begin; i < end; ++i) {
    XmlNode* node = m_tree->nodeAt(i);
    if (!tagPattern.matches(*m_tree, *node)) continue;
    if (!attr) return node;
    for (uint32_t k = 0; k < node->numAttributes; ++k) {
      const XmlTreeAttribute* a = m_tree->attribute(*node, k);
      // Namespace declarations are not attributes a "*:" name should find.
      const std::string_view name = m_tree->attributeName(*a);
      if (xml::prefixOf(name) == "xmlns" || !nameMatches(name, attrPattern)) continue;
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

ClsXml* ClsXml::searchForAnyTag(ClsXml* after, std::initializer_list<const char*> tags) {
  uint32_t begin = 0, end = 0;
  if (!searchRange(after, begin, end)) return nullptr;
  constexpr size_t kMaxPatterns = 8;
  if (tags.size() > kMaxPatterns) return nullptr;
  TagPattern patterns[kMaxPatterns];
  size_t count = 0;
  for (const char* tag : tags) patterns[count++] = TagPattern(viewOf(tag));
  for (uint32_t i = begin; i < end; ++i) {
    XmlNode* node = m_tree->nodeAt(i);
    for (size_t p = 0; p < count; ++p)
      if (patterns[p].matches(*m_tree, *node)) return createNewCls(m_tree, node);
  }
  return nullptr;
}

ClsXml* ClsXml::searchForAttribute(ClsXml* after, const char* tag, const char* attr, bool /*flag*/,
                                   const char* valuePattern) {
  if (!attr) return nullptr;
  XmlNode* node = searchFrom(after, viewOf(tag), attr, valuePattern);
  return node ? createNewCls(m_tree, node) : nullptr;
}

ClsXml* ClsXml::handleOnNode(uint32_t index) {
  XmlNode* node = m_tree ? m_tree->nodeAt(index) : nullptr;
  return node ? createNewCls(m_tree, node) : nullptr;
}

size_t ClsXml::sourceStart() const { return m_node ? m_node->start : 0; }

size_t ClsXml::sourceEnd() const { return m_node ? m_node->end : 0; }
