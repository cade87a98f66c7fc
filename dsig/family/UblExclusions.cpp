#include "dsig/family/UblExclusions.h"

#include <algorithm>

#include "dsig/transform/MarkupSearch.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"

namespace dsig_family {
namespace {

constexpr size_t npos = std::string_view::npos;

struct UblPrefix {
  std::string_view prefix, ns;
};
constexpr UblPrefix kUblPrefixes[] = {
    {"ext", "urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2"},
    {"cac", "urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2"},
    {"cbc", "urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2"},
    {"sig", "urn:oasis:names:specification:ubl:schema:xsd:CommonSignatureComponents-2"},
    {"sac", "urn:oasis:names:specification:ubl:schema:xsd:SignatureAggregateComponents-2"},
    {"sbc", "urn:oasis:names:specification:ubl:schema:xsd:SignatureBasicComponents-2"},
};

std::string_view ublNamespace(std::string_view prefix) {
  for (const UblPrefix& p : kUblPrefixes)
    if (p.prefix == prefix) return p.ns;
  return {};
}

bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

// Reads "prefix:local" (or "local") at `at`; false when there is no name there.
bool readQName(std::string_view text, size_t& at, std::string& prefix, std::string& local) {
  const size_t start = at;
  while (at < text.size() && isNameChar(text[at])) ++at;
  if (at < text.size() && text[at] == ':') {
    prefix = std::string(text.substr(start, at - start));
    const size_t localStart = ++at;
    while (at < text.size() && isNameChar(text[at])) ++at;
    local = std::string(text.substr(localStart, at - localStart));
    return !prefix.empty() && !local.empty();
  }
  prefix.clear();
  local = std::string(text.substr(start, at - start));
  return !local.empty();
}

bool resolve(const std::string& prefix, const xml::XmlTree* context, uint32_t contextNode, std::string& ns) {
  if (prefix.empty()) {
    ns.clear();  // an unprefixed name in an expression is in no namespace
    return true;
  }
  const std::string_view ubl = ublNamespace(prefix);
  if (!ubl.empty()) {
    ns = std::string(ubl);
    return true;
  }
  const xml::XmlNode* node = context ? context->nodeAt(contextNode) : nullptr;
  return node && context->namespaceOf(*node, prefix, ns);
}

std::string_view localOf(std::string_view qname) {
  const size_t colon = qname.find(':');
  return colon == npos ? qname : qname.substr(colon + 1);
}

bool isElement(const xml::XmlTree& tree, const xml::XmlNode& node, std::string_view local, std::string_view ns) {
  return localOf(tree.tagOf(node)) == local && tree.namespaceOfElement(node) == ns;
}

bool insideAny(const std::vector<ElementSpan>& gone, size_t start, size_t end) {
  return std::any_of(gone.begin(), gone.end(), [&](const ElementSpan& g) { return g.start <= start && end <= g.end; });
}

bool predicateHolds(const xml::XmlTree& tree, const xml::XmlNode& node, const Exclusion& e) {
  std::string content;
  for (uint32_t i = 0; i < node.numChildren; ++i) {
    const xml::XmlNode& child = *tree.child(node, i);
    content.clear();
    if (isElement(tree, child, e.childLocal, e.childNs) && tree.content(child, content) && content == e.childValue)
      return true;
  }
  return false;
}

// The element that starts at `start` (elements are numbered in document order), or null.
const xml::XmlNode* elementAt(const xml::XmlTree& tree, size_t start) {
  uint32_t low = 0, high = static_cast<uint32_t>(tree.nodeCount());
  while (low < high) {
    const uint32_t mid = low + (high - low) / 2;
    if (tree.nodeAt(mid)->start < start) low = mid + 1;
    else high = mid;
  }
  const xml::XmlNode* node = tree.nodeAt(low);
  return node && node->start == start ? node : nullptr;
}

bool refuse(LogBase& log, const Exclusion& e, const std::string& reason, std::string* why) {
  const std::string line = "the exclusion " + e.written + " is refused: " + reason;
  log.LogError(("Family cut: " + line + "; nothing is cut.").c_str());
  if (why) *why = line;
  return false;
}

// Every start tag the text shows under the expression's name must open such an element.
bool textAgrees(const xml::XmlTree& tree, const Exclusion& e, const std::vector<ElementSpan>& gone) {
  const std::string_view text = tree.text();
  const std::string needle = "<" + (e.prefix.empty() ? e.local : e.prefix + ":" + e.local);
  for (size_t at = markupsearch::findInMarkup(text, needle); at != npos;
       at = markupsearch::findInMarkup(text, needle, at + 1)) {
    const size_t after = at + needle.size();
    if (after < text.size() && std::string_view(" \t\r\n/>").find(text[after]) == npos) continue;
    const xml::XmlNode* node = elementAt(tree, at);
    if (node && insideAny(gone, node->start, node->end)) continue;
    if (!node || !isElement(tree, *node, e.local, e.ns)) return false;
  }
  return true;
}

// The place the invoice schema gives the excluded elements: UBLExtensions first in the
// document element, cac:Signature and the predicate's reference (one at most) among its
// children, one UBLDocumentSignatures.
bool checkPlace(const xml::XmlTree& tree, const Exclusion& e, std::vector<uint32_t>& matches, bool keepFirstExtensions,
                LogBase& log, std::string* why) {
  const bool extensions = e.local == "UBLExtensions" && e.ns == ublNamespace("ext");
  const bool rootChildren = extensions || e.hasPredicate || (e.local == "Signature" && e.ns == ublNamespace("cac"));
  const size_t most = extensions                                             ? (keepFirstExtensions ? 2 : 1)
                      : e.hasPredicate || e.local == "UBLDocumentSignatures" ? 1
                                                                             : matches.size();
  if (matches.size() > most)
    return refuse(
        log, e,
        std::to_string(matches.size()) + " such elements where at most " + std::to_string(most) + " is expected", why);
  for (const uint32_t m : matches)
    if (rootChildren && tree.nodeAt(m)->parent != 0)
      return refuse(log, e, "such an element is not a child of the document element", why);
  if (extensions && !matches.empty()) {
    const xml::XmlNode* root = tree.nodeAt(0);
    if (root->numChildren == 0 || tree.child(*root, 0) != tree.nodeAt(matches.front()))
      return refuse(log, e, "the UBLExtensions block is not the first child of the document element", why);
    if (matches.size() == 2) matches.erase(matches.begin());  // the first block is kept
  }
  return true;
}

}  // namespace

bool parseExclusion(std::string_view text, const xml::XmlTree* context, uint32_t contextNode, Exclusion& out,
                    LogBase& log, std::string* why) {
  out = Exclusion();
  out.written = std::string(text);
  size_t at = 0;
  bool ok = readQName(text, at, out.prefix, out.local);
  if (ok && at < text.size()) {
    // [q:Child='value']
    out.hasPredicate = true;
    ok = text[at++] == '[' && readQName(text, at, out.childPrefix, out.childLocal) && text.compare(at, 2, "='") == 0;
    const size_t valueEnd = ok ? text.find('\'', at + 2) : npos;
    ok = valueEnd != npos && text.substr(valueEnd) == "']";
    if (ok) out.childValue = std::string(text.substr(at + 2, valueEnd - at - 2));
  }
  if (!ok) return refuse(log, out, "it is not a name with an optional child-value predicate", why);
  if (!resolve(out.prefix, context, contextNode, out.ns) ||
      (out.hasPredicate && !resolve(out.childPrefix, context, contextNode, out.childNs)))
    return refuse(log, out, "a prefix of the expression is bound to no namespace", why);
  return true;
}

CutResult exclusionSpans(const xml::XmlTree& tree, const Exclusion& e, const std::vector<ElementSpan>& gone,
                         bool keepFirstExtensions, std::vector<ElementSpan>& spans, LogBase& log, std::string* why) {
  spans.clear();
  if (tree.empty()) return CutResult::None;
  if (!textAgrees(tree, e, gone)) {
    refuse(log, e, "a tag the text shows under that name is not an element in namespace \"" + e.ns + "\"", why);
    return CutResult::Refused;
  }
  // The outermost matching elements: an excluded element takes its descendants with it.
  std::vector<uint32_t> matches;
  uint32_t skipUntil = 0;
  for (uint32_t i = 0; i < tree.nodeCount(); ++i) {
    const xml::XmlNode& node = *tree.nodeAt(i);
    if (i < skipUntil || insideAny(gone, node.start, node.end) || !isElement(tree, node, e.local, e.ns)) continue;
    if (e.hasPredicate && !predicateHolds(tree, node, e)) continue;
    matches.push_back(i);
    skipUntil = node.subtreeEnd;
  }
  if (!checkPlace(tree, e, matches, keepFirstExtensions, log, why)) return CutResult::Refused;
  for (const uint32_t m : matches) spans.push_back({tree.nodeAt(m)->start, tree.nodeAt(m)->end});
  return spans.empty() ? CutResult::None : CutResult::Found;
}

}  // namespace dsig_family
