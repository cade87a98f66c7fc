// The XPath transform's text patterns: the signature exclusions and document conventions
// that signing software emits are recognised by their text and applied as the cut each
// stands for on the document text (isTextXPathPattern says which). Every other expression
// is evaluated on the document's node-set (NodeSetChain.cpp).
#include <string>
#include <vector>

#include "dsig/_clsXmlDSigBase.h"
#include "dsig/family/UblExclusions.h"
#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlSigLocate.h"

namespace {

constexpr const char kFilter2Uri[] = "http://www.w3.org/2002/06/xmldsig-filter2";
// The Filter attribute of the transform's i-th child element ("" when absent).
StringBuffer childFilter(ClsXml* transform, int i, StringBuffer* content) {
  StringBuffer filter;
  if (!transform) return filter;
  RcPtr<ClsXml> child(transform->GetChild(i));
  if (!child) return filter;
  child->getAttrValue("Filter", filter);
  if (content) child->getContentSb(*content);
  return filter;
}

// Replaces the text with the document minus every XML-Signature element.
bool removeAllSignatures(StringBuffer& xml, LogBase& log) {
  _btXmlDtd dtd;
  StringBuffer out;
  const bool ok = XmlSigRemoval::removeSignatures(xml, dtd, out, log);
  xml.takeSb(out);
  return ok;
}

}  // namespace

int _clsXmlDSigBase::textXPathPattern(ClsXml* transform, const StringBuffer& algorithm, const StringBuffer& xpath,
                                      std::string& excluded) {
  excluded.clear();
  const bool filter2 = algorithm.containsSubstring(kFilter2Uri);
  if (xpath.containsSubstring("Signature") &&
      (xpath.containsSubstring("not(ancestor-or-self") || xpath.containsSubstring("not(//ancestor-or-self"))) {
    // UBL: the cac:Signature blocks describe the signature and are left out of the digest.
    if (xpath.containsSubstring("cac:Signature")) excluded = "cac:Signature";
    return 1;
  }
  if (xpath.containsSubstring("ebxml-msg:actor:next")) return 2;
  if (xpath.containsSubstring("ancestor-or-self::sig:UBLDocumentSignatures")) {
    excluded = "sig:UBLDocumentSignatures";
    return 3;
  }
  if (filter2 && (xpath.containsSubstring("/descendant::ds:Signature") ||
                  xpath.containsSubstring("/descendant::*[name()='ds:Signature']")))
    return 4;
  if (filter2) {
    // The UBL extensions subtraction (the second child carries the filter).
    StringBuffer expression;
    if (childFilter(transform, 1, &expression).equals("subtract") &&
        expression.containsSubstring("ancestor::ext:UBLExtensions/ext:UBLExtension"))
      excluded = "ext:UBLExtensions";
    return 5;
  }
  // not(//ancestor-or-self::P:E) and not(//ancestor-or-self::P:E[Q:N='V']) (the ZATCA QR reference).
  constexpr std::string_view kOpen = "not(//ancestor-or-self::";
  if (!xpath.matches("not(//ancestor-or-self::*)", true)) return 0;
  const std::string_view text = xpath.view();
  excluded = std::string(text.substr(kOpen.size(), text.size() - kOpen.size() - 1));
  return xpath.matches("not(//ancestor-or-self::*[*ID='*'])", true) ? 6 : 7;
}

bool _clsXmlDSigBase::cutExclusionFromText(ClsXml* transform, const std::string& excluded, StringBuffer& xml,
                                           LogBase& log) {
  xml::XmlTree tree;
  std::string error;
  dsig_family::Exclusion exclusion;
  std::vector<dsig_family::ElementSpan> spans;
  const xml::XmlTree* context = transform ? transform->tree() : nullptr;
  const uint32_t contextNode = context && transform->node() ? context->indexOf(*transform->node()) : 0;
  if (!tree.parse(xml.view(), error)) {
    noteFamilyRefusal("the data is not well-formed, so what " + excluded + " names cannot be located (" + error + ")",
                      log);
    return false;
  }
  std::string why;
  if (!dsig_family::parseExclusion(excluded, context, contextNode, exclusion, log, &why) ||
      dsig_family::exclusionSpans(tree, exclusion, {}, family().keepsFirstUblExtensions(), spans, log, &why) ==
          dsig_family::CutResult::Refused) {
    m_familyRefusal = why;
    return false;
  }
  for (size_t i = spans.size(); i-- > 0;) xml.removeChunk(spans[i].start, spans[i].end - spans[i].start);
  return true;
}

bool _clsXmlDSigBase::transformXPath(ClsXml* transform, StringBuffer& xml, const StringBuffer& algorithm,
                                     const StringBuffer& xpath, LogBase& log) {
  LogContextExitor ctx(log, "transformXPath");
  log.LogDataSb("transformAlgorithm", algorithm);
  log.LogDataSb("xPath", xpath);

  bool ok = true;
  std::string excluded;
  const int option = textXPathPattern(transform, algorithm, xpath, excluded);
  if (option != 0) log.LogDataLong("commonXPathOption", option);
  if (!excluded.empty()) {
    // A family exclusion (UBL blocks, the QR reference): decided on the parsed text.
    ok = cutExclusionFromText(transform, excluded, xml, log);
    if (option == 3) log.LogInfo("Found UBLDocumentSignatures transform.");
  } else if (option == 1) {
    log.LogInfo("removing all Signatures from the XML to be canonicalized");
    ok = removeAllSignatures(xml, log);
  } else if (option == 2) {
    ok = DSigReference::removeEbXmlFragments(xml, log);
    if (!ok) noteFamilyRefusal("the SOAP next-actor blocks the text shows are not the elements addressed so", log);
  } else if (option == 4) {
    if (!childFilter(transform, 0, nullptr).equals("subtract")) {
      log.LogDataLong("unhandledXPath", 1);
      ok = false;
    } else {
      removeAllSignatures(xml, log);
    }
  } else {
    log.LogDataLong("unhandledXPath", option == 5 ? 3 : 2);
    ok = false;
  }

  log.LogDataBool("transformXPathSuccess", ok);
  return ok;
}
