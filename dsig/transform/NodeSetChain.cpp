// The transforms of a same-document reference from its first general XPath expression on:
// they work on the node-set of the parsed document instead of on its text, and the last
// canonicalization (or the default one) writes the selected nodes as the digested octets.
#include <string>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "dsig/SignatureLocation.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/transform/TransformAlgorithms.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "xml/NodeSetTransforms.h"

namespace {

using dsig_algorithms::CanonicalForm;
using dsig_algorithms::StepKind;

const dsig_algorithms::AlgorithmRow* rowOf(const StringBuffer& algorithm) {
  return dsig_algorithms::findAlgorithm(algorithm.view());
}

StepKind kindOf(const StringBuffer& algorithm) {
  const dsig_algorithms::AlgorithmRow* row = rowOf(algorithm);
  return row ? row->kind : StepKind::Unknown;
}

xml::NodeSetCanonOptions canonOptionsOf(const dsig_algorithms::AlgorithmRow& row, ClsXml* transform) {
  xml::NodeSetCanonOptions canon;
  canon.comments = row.withComments;
  canon.method = row.form == CanonicalForm::Exclusive10   ? xml::NodeSetCanonMethod::Exclusive
                 : row.form == CanonicalForm::Inclusive11 ? xml::NodeSetCanonMethod::Inclusive11
                                                          : xml::NodeSetCanonMethod::Inclusive10;
  if (canon.method != xml::NodeSetCanonMethod::Exclusive) return canon;
  RcPtr<ClsXml> inclusive(transform->getChildWithTagUtf8("*:InclusiveNamespaces"));
  StringBuffer prefixList;
  if (inclusive) inclusive->getAttrValue("PrefixList", prefixList);
  const std::string& list = prefixList.str();
  size_t p = 0;
  auto blank = [&](size_t i) { return list[i] == ' ' || list[i] == '\t' || list[i] == '\n' || list[i] == '\r'; };
  while (p < list.size()) {
    while (p < list.size() && blank(p)) ++p;
    size_t q = p;
    while (q < list.size() && !blank(q)) ++q;
    if (q > p) {
      const std::string prefix = list.substr(p, q - p);
      canon.inclusivePrefixes.push_back(prefix == "#default" ? std::string() : prefix);
    }
    p = q;
  }
  return canon;
}

constexpr size_t kMaxXPathSteps = 50'000'000;

// The expressions of an XPath or Filter 2.0 transform, each with the prefixes and here()
// of the element that holds it: found in the document when the transform is part of it
// (inside the signature when known), else in the transform's own text.
bool readExpressions(ClsXml* transform, bool filter2, const xml::NodeSetState& state, uint32_t signature,
                     std::vector<xml::XPathFilterExpr>& out, LogBase& log) {
  StringBuffer transformText;
  transform->getXml(false, transformText, log);
  xml::NodeSetState own;
  std::string error;
  const bool ownParsed = own.load(transformText.view(), error);

  const int n = transform->get_NumChildren();
  for (int i = 0; i < n; ++i) {
    RcPtr<ClsXml> child(transform->GetChild(i));
    if (!child || child->localNameView() != "XPath") continue;
    xml::XPathFilterExpr f;
    StringBuffer content, filter;
    child->getContentSb(content);
    child->getAttrValue("Filter", filter);
    f.expression = content.str();
    f.filter = filter.str();
    uint32_t holder = state.findElementWithText("XPath", f.expression, signature);
    if (holder == UINT32_MAX && signature != UINT32_MAX)
      holder = state.findElementWithText("XPath", f.expression, UINT32_MAX);
    if (ownParsed) {
      const uint32_t inOwn = own.findElementWithText("XPath", f.expression, UINT32_MAX);
      if (inOwn != UINT32_MAX) f.namespaces = own.namespacesAt(inOwn);
    }
    if (holder != UINT32_MAX) {
      for (const auto& ns : state.namespacesAt(holder)) f.namespaces[ns.first] = ns.second;
      f.here = state.hereNodeOf(holder);
    }
    out.push_back(std::move(f));
    if (!filter2) break;
  }
  if (out.empty()) {
    log.LogError("No XPath found in transform.");
    return false;
  }
  return true;
}

}  // namespace

bool _clsXmlDSigBase::isTextXPathPattern(ClsXml* transform, const StringBuffer& algorithm, const StringBuffer& xpath) {
  // The Filter 2.0 signature subtraction and other Filter 2.0 sets are evaluated; the UBL
  // extensions subtraction is a document convention.
  std::string excluded;
  const int pattern = textXPathPattern(transform, algorithm, xpath, excluded);
  return pattern != 0 && pattern != 4 && (pattern != 5 || !excluded.empty());
}

bool _clsXmlDSigBase::needsNodeSet(ClsXml* transforms) {
  if (!transforms) return false;
  const int n = transforms->get_NumChildren();
  StringBuffer algorithm, xpath;
  for (int i = 0; i < n; ++i) {
    RcPtr<ClsXml> transform(transforms->GetChild(i));
    if (!transform) continue;
    algorithm.clear();
    transform->getAttrValue("Algorithm", algorithm);
    const StepKind kind = kindOf(algorithm);
    if (kind != StepKind::XPath && kind != StepKind::XPathFilter2) continue;
    xpath.clear();
    if (!transform->getChildContentUtf8("*:XPath", xpath, false)) continue;  // the text road reports it
    if (!isTextXPathPattern(transform.get(), algorithm, xpath)) return true;
  }
  return false;
}

bool ClsXmlDSig::nodeSetTransforms(ClsXml* transforms, const SignatureLocation& location, const StringBuffer& uri,
                                   StringBuffer& data, LogBase& log) {
  LogContextExitor ctx(log, "nodeSetTransforms");
  xml::NodeSetState state;
  std::string error;
  if (!state.load(data.view(), error)) {
    log.LogError("The data to transform is not well-formed XML.");
    log.LogDataStr("parseError", error.c_str());
    return false;
  }
  if (!state.selectByUri(uri.view(), error)) {
    log.LogError(error.c_str());
    return false;
  }
  // The signature being verified, when the data is the loaded document itself.
  uint32_t signature = UINT32_MAX;
  if (data.getSize() == m_xmlSb.getSize() && data.view() == m_xmlSb.view())
    signature = state.elementAtOffset(location.signature.start);

  const int n = transforms->get_NumChildren();
  if (n > m_maxTransforms) {
    log.LogError(("The reference has " + std::to_string(n) + " transforms, more than MaxTransforms (" +
                  std::to_string(m_maxTransforms) + ").")
                     .c_str());
    m_refFailReason = kRefFailLimit;
    return false;
  }
  bool canonicalized = false;
  bool envelopedApplied = false;
  StringBuffer algorithm;
  // Writes the selected nodes as the transformed octets.
  auto writeNodeSet = [&](const xml::NodeSetCanonOptions& canon) {
    // A whole-document reference always excludes its own signature.
    if (!envelopedApplied && uri.isEmpty() && signature != UINT32_MAX) state.removeSubtree(signature);
    std::string out;
    state.canonicalize(canon, out);
    if (!chargeCanonicalBytes(out.size(), log)) {
      m_refFailReason = kRefFailLimit;
      return false;
    }
    data.setString(std::string_view(out));
    return true;
  };
  for (int i = 0; i < n; ++i) {
    RcPtr<ClsXml> transform(transforms->GetChild(i));
    if (!transform) continue;
    algorithm.clear();
    transform->getAttrValue("Algorithm", algorithm);
    log.LogDataSb("transformAlgorithm", algorithm);
    const dsig_algorithms::AlgorithmRow* row = rowOf(algorithm);
    const StepKind kind = row ? row->kind : StepKind::Unknown;
    if (canonicalized && kind != StepKind::Canonical) {
      // The canonical octets are read again as a document for what follows.
      if (!state.load(data.view(), error) || !state.selectByUri("", error)) {
        log.LogError("The canonicalized data is not a document the next transform can read.");
        return false;
      }
      signature = UINT32_MAX;
      canonicalized = false;
    }
    switch (kind) {
      case StepKind::XPath:
      case StepKind::XPathFilter2: {
        std::vector<xml::XPathFilterExpr> exprs;
        if (!readExpressions(transform.get(), kind == StepKind::XPathFilter2, state, signature, exprs, log))
          return false;
        for (const auto& e : exprs) log.LogDataStr("xPath", e.expression.c_str());
        const bool ok = kind == StepKind::XPath ? state.applyXPath(exprs.front(), kMaxXPathSteps, error)
                                                : state.applyFilter2(exprs, kMaxXPathSteps, error);
        if (!ok) {
          log.LogError(error.c_str());
          return false;
        }
        break;
      }
      case StepKind::EnvelopedSignature:
        envelopedApplied = true;
        if (signature != UINT32_MAX) state.removeSubtree(signature);
        else log.LogInfo("The signature is not part of the transformed data; nothing to remove.");
        break;
      case StepKind::Canonical:
        if (!writeNodeSet(canonOptionsOf(*row, transform.get()))) return false;
        canonicalized = true;
        break;
      default:
        log.LogError(("Transform not supported after an XPath selection: " + std::string(algorithm.view())).c_str());
        m_refFailReason = row ? m_refFailReason : kRefFailUnknownAlgorithm;
        return false;
    }
  }
  return canonicalized || writeNodeSet(xml::NodeSetCanonOptions{});
}
