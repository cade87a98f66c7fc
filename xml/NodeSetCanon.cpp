#include "xml/NodeSetCanon.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "xml/XmlCanonEscape.h"

namespace xml {

namespace {

// Namespace declarations (prefix, URI) in canonical form, in the order given.
void appendNamespaceDeclarations(std::string& out, const std::vector<std::pair<std::string, std::string>>& ns) {
  for (const auto& n : ns) {
    out += n.first.empty() ? " xmlns" : " xmlns:";
    out += n.first;
    out += "=\"";
    appendEscapedAttribute(out, n.second);
    out += '"';
  }
}

constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

struct UriParts {
  bool hasScheme = false, hasAuthority = false, hasQuery = false, hasFragment = false;
  std::string scheme, authority, path, query, fragment;
};

UriParts splitUri(const std::string& s) {
  UriParts u;
  size_t i = 0;
  const size_t colon = s.find(':');
  if (colon != std::string::npos && colon > 0 && s.find_first_of("/?#") > colon &&
      std::isalpha(static_cast<unsigned char>(s[0]))) {
    u.hasScheme = true;
    u.scheme = s.substr(0, colon);
    i = colon + 1;
  }
  if (s.compare(i, 2, "//") == 0) {
    const size_t end = std::min(s.find_first_of("/?#", i + 2), s.size());
    u.hasAuthority = true;
    u.authority = s.substr(i + 2, end - i - 2);
    i = end;
  }
  const size_t pathEnd = std::min(s.find_first_of("?#", i), s.size());
  u.path = s.substr(i, pathEnd - i);
  i = pathEnd;
  if (i < s.size() && s[i] == '?') {
    const size_t end = std::min(s.find('#', i), s.size());
    u.hasQuery = true;
    u.query = s.substr(i + 1, end - i - 1);
    i = end;
  }
  if (i < s.size() && s[i] == '#') {
    u.hasFragment = true;
    u.fragment = s.substr(i + 1);
  }
  return u;
}

// Dot segments removed; on a relative path, ".." that has nothing left to remove stays.
std::string removeDotSegments(const std::string& path) {
  const bool absolute = !path.empty() && path[0] == '/';
  std::vector<std::string> out;
  size_t i = absolute ? 1 : 0;
  bool trailingSlash = false;
  while (i <= path.size()) {
    const size_t slash = std::min(path.find('/', i), path.size());
    const std::string seg = path.substr(i, slash - i);
    const bool last = slash >= path.size();
    trailingSlash = false;
    if (seg == ".") {
      trailingSlash = true;
    } else if (seg == "..") {
      if (!out.empty() && out.back() != "..") out.pop_back();
      else if (!absolute) out.push_back("..");
      trailingSlash = true;
    } else if (!seg.empty() || !last) {
      out.push_back(seg);
    } else {
      trailingSlash = !out.empty();
    }
    if (last) break;
    i = slash + 1;
  }
  std::string r = absolute ? "/" : "";
  for (size_t k = 0; k < out.size(); ++k) {
    if (k) r += '/';
    r += out[k];
  }
  if (trailingSlash && !out.empty() && r.back() != '/') r += '/';
  return r;
}

std::string joinUri(const UriParts& u) {
  std::string r;
  if (u.hasScheme) r += u.scheme + ":";
  if (u.hasAuthority) r += "//" + u.authority;
  r += u.path;
  if (u.hasQuery) r += "?" + u.query;
  if (u.hasFragment) r += "#" + u.fragment;
  return r;
}

}  // namespace

std::string joinXmlBase(const std::string& base, const std::string& reference) {
  if (base.empty()) return reference;
  const UriParts b = splitUri(base);
  UriParts r = splitUri(reference);
  UriParts t;
  if (r.hasScheme) {
    t = r;
    t.path = removeDotSegments(r.path);
  } else {
    t.hasScheme = b.hasScheme;
    t.scheme = b.scheme;
    if (r.hasAuthority) {
      t.hasAuthority = true;
      t.authority = r.authority;
      t.path = removeDotSegments(r.path);
      t.hasQuery = r.hasQuery;
      t.query = r.query;
    } else {
      t.hasAuthority = b.hasAuthority;
      t.authority = b.authority;
      if (r.path.empty()) {
        t.path = b.path;
        t.hasQuery = r.hasQuery || b.hasQuery;
        t.query = r.hasQuery ? r.query : b.query;
      } else {
        if (r.path[0] == '/') {
          t.path = removeDotSegments(r.path);
        } else {
          std::string merged;
          if (b.hasAuthority && b.path.empty()) merged = "/" + r.path;
          else merged = b.path.substr(0, b.path.rfind('/') == std::string::npos ? 0 : b.path.rfind('/') + 1) + r.path;
          t.path = removeDotSegments(merged);
        }
        t.hasQuery = r.hasQuery;
        t.query = r.query;
      }
    }
    t.hasFragment = r.hasFragment;
    t.fragment = r.fragment;
  }
  return joinUri(t);
}

namespace {

class Writer {
 public:
  Writer(const XPathDocument& doc, const std::vector<char>& inSet, const NodeSetCanonOptions& opt, std::string& out)
      : m_doc(doc), m_in(inSet), m_opt(opt), m_out(out) {}

  void run() {
    const XPathNode& root = m_doc.node(0);
    const uint32_t documentElement = m_doc.documentElement();
    bool beforeElement = true;
    for (uint32_t c = root.firstChild; c != UINT32_MAX; c = m_doc.node(c).nextSibling) {
      const XPathNode& n = m_doc.node(c);
      if (c == documentElement) {
        element(c, UINT32_MAX);
        beforeElement = false;
      } else if (m_in[c] && (n.kind == XPathNodeKind::PI || (n.kind == XPathNodeKind::Comment && m_opt.comments))) {
        if (!beforeElement) m_out += '\n';
        misc(n);
        if (beforeElement) m_out += '\n';
      }
    }
  }

 private:
  bool inSet(uint32_t i) const { return m_in[i] != 0; }
  bool exclusive() const { return m_opt.method == NodeSetCanonMethod::Exclusive; }

  void misc(const XPathNode& n) {
    if (n.kind == XPathNodeKind::Comment) {
      m_out += "<!--";
      m_out += n.value;
      m_out += "-->";
    } else {
      m_out += "<?";
      m_out += n.name;
      if (!n.value.empty()) {
        m_out += ' ';
        m_out += n.value;
      }
      m_out += "?>";
    }
  }

  // The namespace node of element e for prefix that is in the set, or null.
  const XPathNode* namespaceInSet(uint32_t e, std::string_view prefix) const {
    const XPathNode& el = m_doc.node(e);
    for (uint32_t k = el.firstNamespace; k < el.firstNamespace + el.numNamespaces; ++k)
      if (m_doc.node(k).name == prefix) return inSet(k) ? &m_doc.node(k) : nullptr;
    return nullptr;
  }

  void namespacesInclusive(uint32_t e, uint32_t outputAncestor,
                           std::vector<std::pair<std::string, std::string>>& out) const {
    const XPathNode& el = m_doc.node(e);
    bool defaultInSet = false;
    for (uint32_t k = el.firstNamespace; k < el.firstNamespace + el.numNamespaces; ++k) {
      const XPathNode& ns = m_doc.node(k);
      if (!inSet(k) || (ns.name == "xml" && ns.value == kXmlNamespace)) continue;
      if (ns.name.empty()) defaultInSet = true;
      if (outputAncestor != UINT32_MAX) {
        const XPathNode* above = namespaceInSet(outputAncestor, ns.name);
        if (above && above->value == ns.value) continue;
      }
      out.emplace_back(ns.name, ns.value);
    }
    if (!defaultInSet && outputAncestor != UINT32_MAX && namespaceInSet(outputAncestor, "")) out.emplace_back("", "");
  }

  static std::string_view prefixOf(const XPathNode& n) {
    return std::string_view(n.name).substr(0, n.localStart ? n.localStart - 1 : 0);
  }

  // Whether written element e uses prefix on its tag or on an attribute in the set.
  bool visiblyUses(uint32_t e, std::string_view prefix) const {
    const XPathNode& el = m_doc.node(e);
    if (prefixOf(el) == prefix) return true;
    if (prefix.empty()) return false;
    for (uint32_t k = el.firstAttribute; k < el.firstAttribute + el.numAttributes; ++k)
      if (inSet(k) && m_doc.node(k).localStart && prefixOf(m_doc.node(k)) == prefix) return true;
    return false;
  }

  // A namespace of e is written when e uses its prefix (or the prefix is listed as
  // inclusive) and the nearest written ancestor that does (any written ancestor, for a
  // listed prefix) does not have the same namespace node in the set.
  void namespacesExclusive(uint32_t e, std::vector<std::pair<std::string, std::string>>& out) const {
    const XPathNode& el = m_doc.node(e);
    auto listed = [&](std::string_view prefix) {
      for (const std::string& p : m_opt.inclusivePrefixes)
        if (p == prefix) return true;
      return false;
    };
    auto ancestorFor = [&](std::string_view prefix, bool inclusive) -> uint32_t {
      for (size_t k = m_written.size(); k-- > 0;)
        if (inclusive || visiblyUses(m_written[k], prefix)) return m_written[k];
      return UINT32_MAX;
    };
    bool defaultInSet = false;
    for (uint32_t k = el.firstNamespace; k < el.firstNamespace + el.numNamespaces; ++k) {
      const XPathNode& ns = m_doc.node(k);
      if (ns.name == "xml" || !inSet(k)) continue;
      const bool inclusive = listed(ns.name);
      if (!inclusive && !visiblyUses(e, ns.name)) continue;
      if (ns.name.empty()) defaultInSet = true;
      const uint32_t above = ancestorFor(ns.name, inclusive);
      if (above != UINT32_MAX) {
        const XPathNode* same = namespaceInSet(above, ns.name);
        if (same && same->value == ns.value) continue;
      }
      out.emplace_back(ns.name, ns.value);
    }
    // An element in no default namespace undoes one that an ancestor using it wrote.
    const bool inclusiveDefault = listed("");
    if (!defaultInSet && (inclusiveDefault || prefixOf(el).empty())) {
      const uint32_t above = ancestorFor("", inclusiveDefault);
      if (above != UINT32_MAX && namespaceInSet(above, "")) out.emplace_back("", "");
    }
  }

  // xml:* attributes an element whose parent is left out takes from its ancestors.
  void inheritedXmlAttributes(uint32_t e, std::vector<std::pair<std::string, std::string>>& have,
                              std::vector<std::pair<std::string, std::string>>& added) const {
    const bool v11 = m_opt.method == NodeSetCanonMethod::Inclusive11;
    auto has = [&](const std::string& name) {
      for (const auto& a : have)
        if (a.first == name) return true;
      for (const auto& a : added)
        if (a.first == name) return true;
      return false;
    };
    std::string base;
    bool ownBase = false;
    for (const auto& a : have)
      if (a.first == "xml:base") {
        base = a.second;
        ownBase = true;
      }
    bool baseChanged = false;
    for (uint32_t p = m_doc.node(e).parent; p != UINT32_MAX && m_doc.node(p).kind == XPathNodeKind::Element;
         p = m_doc.node(p).parent) {
      if (v11 && inSet(p)) break;  // what a written ancestor carries is inherited in the output
      const XPathNode& anc = m_doc.node(p);
      for (uint32_t k = anc.firstAttribute; k < anc.firstAttribute + anc.numAttributes; ++k) {
        const XPathNode& a = m_doc.node(k);
        if (a.uri != kXmlNamespace) continue;
        if (v11 && a.name == "xml:id") continue;
        if (v11 && a.name == "xml:base") {
          base = joinXmlBase(a.value, base);
          baseChanged = true;
          continue;
        }
        if (!has(a.name)) added.emplace_back(a.name, a.value);
      }
    }
    if (baseChanged && !base.empty()) {
      if (ownBase) {
        for (auto& a : have)
          if (a.first == "xml:base") a.second = base;
      } else {
        added.emplace_back("xml:base", base);
      }
    }
  }

  // Namespace and attribute nodes in the set whose element is left out are written where
  // they stand, as they would be inside a tag (exclusive: namespaces only of the listed
  // inclusive prefixes).
  void orphanNodes(uint32_t e, uint32_t outputAncestor) {
    const XPathNode& el = m_doc.node(e);
    std::vector<std::pair<std::string, std::string>> ns;
    {
      for (uint32_t k = el.firstNamespace; k < el.firstNamespace + el.numNamespaces; ++k) {
        const XPathNode& n = m_doc.node(k);
        if (!inSet(k) || (n.name == "xml" && n.value == kXmlNamespace)) continue;
        if (exclusive() && std::find(m_opt.inclusivePrefixes.begin(), m_opt.inclusivePrefixes.end(), n.name) ==
                               m_opt.inclusivePrefixes.end())
          continue;
        if (outputAncestor != UINT32_MAX) {
          const XPathNode* above = namespaceInSet(outputAncestor, n.name);
          if (above && above->value == n.value) continue;
        }
        ns.emplace_back(n.name, n.value);
      }
    }
    appendNamespaceDeclarations(m_out, ns);
    std::vector<uint32_t> attrs;
    for (uint32_t k = el.firstAttribute; k < el.firstAttribute + el.numAttributes; ++k)
      if (inSet(k)) attrs.push_back(k);
    std::sort(attrs.begin(), attrs.end(), [&](uint32_t a, uint32_t b) {
      const XPathNode& x = m_doc.node(a);
      const XPathNode& y = m_doc.node(b);
      return x.uri != y.uri ? x.uri < y.uri : x.localName() < y.localName();
    });
    for (uint32_t k : attrs) {
      m_out += ' ';
      m_out += m_doc.node(k).name;
      m_out += "=\"";
      appendEscapedAttribute(m_out, m_doc.node(k).value);
      m_out += '"';
    }
  }

  void element(uint32_t e, uint32_t outputAncestor) {
    const XPathNode& el = m_doc.node(e);
    const bool written = inSet(e);
    if (written) {
      std::vector<std::pair<std::string, std::string>> ns;
      if (exclusive()) namespacesExclusive(e, ns);
      else namespacesInclusive(e, outputAncestor, ns);
      std::sort(ns.begin(), ns.end());

      struct Attr {
        std::string uri, local, name, value;
      };
      std::vector<std::pair<std::string, std::string>> own, added;
      std::vector<Attr> attrs;
      for (uint32_t k = el.firstAttribute; k < el.firstAttribute + el.numAttributes; ++k)
        if (inSet(k)) own.emplace_back(m_doc.node(k).name, m_doc.node(k).value);
      const uint32_t parent = el.parent;
      if (!exclusive() && parent != UINT32_MAX && m_doc.node(parent).kind == XPathNodeKind::Element && !inSet(parent))
        inheritedXmlAttributes(e, own, added);
      for (uint32_t k = el.firstAttribute, i = 0; k < el.firstAttribute + el.numAttributes; ++k) {
        if (!inSet(k)) continue;
        const XPathNode& a = m_doc.node(k);
        attrs.push_back({a.uri, std::string(a.localName()), a.name, own[i++].second});
      }
      for (const auto& a : added) attrs.push_back({std::string(kXmlNamespace), a.first.substr(4), a.first, a.second});
      std::sort(attrs.begin(), attrs.end(),
                [](const Attr& a, const Attr& b) { return a.uri != b.uri ? a.uri < b.uri : a.local < b.local; });

      m_out += '<';
      m_out += el.name;
      appendNamespaceDeclarations(m_out, ns);
      for (const Attr& a : attrs) {
        m_out += ' ';
        m_out += a.name;
        m_out += "=\"";
        appendEscapedAttribute(m_out, a.value);
        m_out += '"';
      }
      m_out += '>';
      m_written.push_back(e);
    }
    if (!written) orphanNodes(e, outputAncestor);
    const uint32_t childAncestor = written ? e : outputAncestor;
    for (uint32_t c = el.firstChild; c != UINT32_MAX; c = m_doc.node(c).nextSibling) {
      const XPathNode& n = m_doc.node(c);
      switch (n.kind) {
        case XPathNodeKind::Element: element(c, childAncestor); break;
        case XPathNodeKind::Text:
          if (inSet(c)) appendEscapedText(m_out, n.value);
          break;
        case XPathNodeKind::Comment:
          if (inSet(c) && m_opt.comments) misc(n);
          break;
        case XPathNodeKind::PI:
          if (inSet(c)) misc(n);
          break;
        default: break;
      }
    }
    if (written) {
      m_out += "</";
      m_out += el.name;
      m_out += '>';
      m_written.pop_back();
    }
  }

  const XPathDocument& m_doc;
  const std::vector<char>& m_in;
  const NodeSetCanonOptions& m_opt;
  std::string& m_out;
  std::vector<uint32_t> m_written;  // the open elements that are written, outermost first
};

}  // namespace

void canonicalizeNodeSet(const XPathDocument& doc, const std::vector<char>& inSet, const NodeSetCanonOptions& options,
                         std::string& out) {
  if (doc.size() == 0 || inSet.size() != doc.size()) return;
  Writer(doc, inSet, options, out).run();
}

}  // namespace xml
