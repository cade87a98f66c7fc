#include "dsig/family/FamilyCuts.h"

#include <string>
#include <utility>

#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/transform/MarkupSearch.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"
#include "support/xml/XmlTree.h"

namespace dsig_family {
namespace {

using markupsearch::findInMarkup;
constexpr size_t npos = std::string_view::npos;

constexpr std::string_view kSoapEnvelopeNamespace = "http://schemas.xmlsoap.org/soap/envelope/";
constexpr std::string_view kNextActors[] = {"http://schemas.xmlsoap.org/soap/actor/next",
                                            "urn:oasis:names:tc:ebxml-msg:actor:nextMSH"};

std::string_view localName(std::string_view qname) {
  const size_t colon = qname.find(':');
  return colon == npos ? qname : qname.substr(colon + 1);
}

std::string_view prefixOf(std::string_view qname) {
  const size_t colon = qname.find(':');
  return colon == npos ? std::string_view() : qname.substr(0, colon);
}

bool parse(std::string_view text, xml::XmlTree& tree, const char* what, LogBase& log) {
  std::string error;
  if (tree.parse(text, error)) return true;
  log.LogError(
      (std::string(what) + ": the data is not well-formed, so the element to cut cannot be located (" + error + ").")
          .c_str());
  return false;
}

// Indices of the elements whose local name is `local`, in document order.
std::vector<uint32_t> elementsNamed(const xml::XmlTree& tree, std::string_view local) {
  std::vector<uint32_t> found;
  for (uint32_t i = 0; i < tree.nodeCount(); ++i)
    if (localName(tree.tagOf(*tree.nodeAt(i))) == local) found.push_back(i);
  return found;
}

CutResult refuse(LogBase& log, const std::string& why) {
  log.LogError(why.c_str());
  return CutResult::Refused;
}

// Offset just past the start tag that opens at `start` ('>' outside attribute values).
size_t startTagEnd(std::string_view text, size_t start) {
  char quote = 0;
  for (size_t i = start; i < text.size(); ++i) {
    const char c = text[i];
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return i + 1;
    }
  }
  return text.size();
}

bool isAncestorOrSelf(const xml::XmlTree& tree, uint32_t ancestor, uint32_t node) {
  const xml::XmlNode* a = tree.nodeAt(ancestor);
  return a && ancestor <= node && node < a->subtreeEnd;
}

}  // namespace

CutResult swiftLauSpan(std::string_view data, ElementSpan& span, LogBase& log) {
  const size_t candidate = findInMarkup(data, "<LAU");
  if (candidate == npos || data.find(kSwiftSaaNamespace) == npos) return CutResult::None;
  xml::XmlTree tree;
  if (!parse(data, tree, "SWIFT LAU block", log)) return CutResult::Refused;
  const std::vector<uint32_t> laus = elementsNamed(tree, "LAU");
  if (laus.size() != 1)
    return refuse(log, "SWIFT LAU block: " + std::to_string(laus.size()) +
                           " elements named LAU; exactly one is cut, so none is.");
  const xml::XmlNode& lau = *tree.nodeAt(laus.front());
  const std::string lauNamespace = tree.namespaceOfElement(lau);
  if (lau.parent != 0 || tree.namespaceOfElement(*tree.root()) != kSwiftSaaNamespace || lau.start != candidate ||
      (!lauNamespace.empty() && lauNamespace != kSwiftSaaNamespace))
    return refuse(log,
                  "SWIFT LAU block: the LAU element is not an unprefixed child of an Alliance document element "
                  "(in no namespace or the Alliance one) where the text has it; nothing is cut.");
  span = {lau.start, lau.end};
  return CutResult::Found;
}

CutResult cmaStpDocumentSpan(std::string_view text, ElementSpan& span, LogBase& log) {
  const size_t candidate = findInMarkup(text, "<Document ");
  if (candidate == npos) return CutResult::None;
  xml::XmlTree tree;
  if (!parse(text, tree, "CMA STP Document", log)) return CutResult::Refused;
  const std::vector<uint32_t> documents = elementsNamed(tree, "Document");
  if (documents.size() != 1)
    return refuse(log, "CMA STP Document: " + std::to_string(documents.size()) +
                           " elements named Document; the signed one must be the only one.");
  const xml::XmlNode& document = *tree.nodeAt(documents.front());
  // The end tag the text shows first must be the element's own (a self-closed one has none).
  const bool selfClosed = text.compare(document.end - 2, 2, "/>") == 0;
  const size_t endTag = findInMarkup(text, "</Document>", candidate);
  if (document.start != candidate || (!selfClosed && (endTag == npos || document.end != endTag + 11)) ||
      !prefixOf(tree.tagOf(document)).empty() || !tree.findAttribute(document, "xmlns"))
    return refuse(log,
                  "CMA STP Document: the Document element is not the unprefixed element declaring its own "
                  "namespace that the text delimits.");
  span = {document.start, document.end};
  return CutResult::Found;
}

bool dodaElementText(const ClsXml* signature, StringBuffer& out, size_t& offset, LogBase& log) {
  const xml::XmlTree* tree = signature ? signature->tree() : nullptr;
  if (!tree || !signature->node()) {
    log.LogError("doda element: no signature selected.");
    return false;
  }
  const std::string_view text = tree->text();
  const uint32_t sigIndex = tree->indexOf(*signature->node());
  const std::vector<uint32_t> dodas = elementsNamed(*tree, "doda");
  const size_t candidate = findInMarkup(text, "<doda>");
  const size_t endTag = candidate == npos ? npos : findInMarkup(text, "</doda>", candidate);
  const xml::XmlNode* doda = dodas.size() == 1 ? tree->nodeAt(dodas.front()) : nullptr;
  if (!doda || doda->start != candidate || endTag == npos || doda->end != endTag + 7 ||
      !isAncestorOrSelf(*tree, dodas.front(), sigIndex) || tree->tagOf(*doda) != "doda") {
    log.LogError(("doda element: " + std::to_string(dodas.size()) +
                  " elements named doda; the signed one must be the only one, written <doda>, around the signature.")
                     .c_str());
    return false;
  }
  out.clear();
  out.append(text.substr(doda->start, doda->end - doda->start));
  offset = doda->start;
  return true;
}

CutResult siiDteSpan(std::string_view text, std::string_view id, ElementSpan& span, LogBase& log) {
  const size_t candidate = findInMarkup(text, "ID=\"" + std::string(id) + "\"");
  if (id.empty() || candidate == npos) return CutResult::None;
  xml::XmlTree tree;
  if (!parse(text, tree, "SII DTE", log)) return CutResult::Refused;
  const std::vector<uint32_t>& carriers = tree.elementsWithId(id);
  const xml::XmlNode* documento = carriers.size() == 1 ? tree.nodeAt(carriers.front()) : nullptr;
  if (!documento || candidate < documento->start || candidate >= startTagEnd(text, documento->start))
    return refuse(log, "SII DTE: the ID the text shows is not on the one element carrying it; nothing is cut.");
  const xml::XmlNode* dte = tree.parentOf(*documento);
  if (tree.tagOf(*documento) != "Documento" || !dte || tree.tagOf(*dte) != "DTE" || dte->start == 0 ||
      tree.child(*dte, 0) != documento || tree.namespaceOfElement(*dte) != tree.namespaceOfElement(*documento) ||
      text.substr(startTagEnd(text, dte->start), documento->start - startTagEnd(text, dte->start)).find('<') != npos)
    return CutResult::None;
  // The end tag the text shows first must be the DTE's own.
  const size_t endTag = findInMarkup(text, "</DTE>", dte->start);
  if (endTag == npos || endTag + 6 != dte->end)
    return refuse(log, "SII DTE: the first </DTE> the text shows does not end the DTE element; nothing is cut.");
  span = {dte->start, dte->end};
  return CutResult::Found;
}

CutResult soapNextActorSpans(std::string_view text, std::vector<ElementSpan>& spans, LogBase& log) {
  spans.clear();
  std::vector<size_t> candidates;
  for (const std::string_view actor : kNextActors) {
    const std::string needle = "actor=\"" + std::string(actor) + "\"";
    for (size_t at = findInMarkup(text, needle); at != npos; at = findInMarkup(text, needle, at + 1))
      candidates.push_back(at);
  }
  if (candidates.empty()) return CutResult::None;

  xml::XmlTree tree;
  if (!parse(text, tree, "SOAP next-actor blocks", log)) return CutResult::Refused;
  size_t candidatesInTags = 0;   // text found inside a start tag (not in character data)
  size_t matchedCandidates = 0;  // ... inside the start tag of an addressed element
  bool unwrittenActors = false;  // an addressed element whose actor the text search does not show
  uint32_t outermostEnd = 0;     // subtree end of the last element cut: its descendants go with it
  std::string value;
  for (uint32_t i = 0; i < tree.nodeCount(); ++i) {
    const xml::XmlNode& node = *tree.nodeAt(i);
    const size_t tagEnd = startTagEnd(text, node.start);
    size_t inTag = 0;
    for (const size_t c : candidates)
      if (c > node.start && c < tagEnd) ++inTag;
    candidatesInTags += inTag;
    bool addressed = false;
    for (uint32_t a = 0; a < node.numAttributes && !addressed; ++a) {
      const xml::XmlTreeAttribute& attr = *tree.attribute(node, a);
      const std::string_view qname = tree.attributeName(attr);
      std::string ns;
      value.clear();
      if (localName(qname) != "actor" || prefixOf(qname).empty() || !tree.namespaceOf(node, prefixOf(qname), ns) ||
          ns != kSoapEnvelopeNamespace || !tree.attributeValue(attr, value))
        continue;
      for (const std::string_view actor : kNextActors) addressed = addressed || value == actor;
    }
    if (!addressed) continue;
    if (inTag == 0) unwrittenActors = true;
    matchedCandidates += inTag;
    if (i >= outermostEnd) {
      spans.push_back({node.start, node.end});
      outermostEnd = node.subtreeEnd;
    }
  }
  if (candidatesInTags == 0 && spans.empty()) return CutResult::None;
  if (matchedCandidates != candidatesInTags || unwrittenActors || spans.empty())
    return refuse(log,
                  "SOAP next-actor blocks: an actor attribute the text shows is not a SOAP actor on an element "
                  "(or the reverse); nothing is cut.");
  return CutResult::Found;
}

bool zatcaInvoiceChainIsFixed(ClsXml* reference, LogBase& log) {
  static constexpr const char* kXPath = "http://www.w3.org/TR/1999/REC-xpath-19991116";
  static constexpr std::pair<const char*, const char*> kChain[] = {
      {kXPath, "not(//ancestor-or-self::ext:UBLExtensions)"},
      {kXPath, "not(//ancestor-or-self::cac:Signature)"},
      {kXPath, "not(//ancestor-or-self::cac:AdditionalDocumentReference[cbc:ID='QR'])"},
      {"http://www.w3.org/2006/12/xml-c14n11", nullptr},
  };
  constexpr int kLength = static_cast<int>(sizeof(kChain) / sizeof(kChain[0]));
  StringBuffer uri;
  bool fixed = reference && reference->getAttrValue("URI", uri) && uri.isEmpty();
  RcPtr<ClsXml> transforms(fixed ? reference->getChildWithTagUtf8("*:Transforms") : nullptr);
  fixed = transforms && transforms->get_NumChildren() == kLength;
  StringBuffer algorithm, xpath;
  for (int i = 0; fixed && i < kLength; ++i) {
    RcPtr<ClsXml> transform(transforms->GetChild(i));
    algorithm.clear();
    xpath.clear();
    fixed = transform && transform->getAttrValue("Algorithm", algorithm) && algorithm.equals(kChain[i].first);
    if (fixed && kChain[i].second) {
      fixed = transform->getChildContentUtf8("*:XPath", xpath, false);
      xpath.trim2();
      fixed = fixed && xpath.equals(kChain[i].second);
    } else if (fixed) {
      fixed = transform->get_NumChildren() == 0;
    }
  }
  if (!fixed)
    log.LogError(
        "ZATCA invoice: the signature value does not cover the invoice reference's transforms, which must "
        "be the whole document under exactly the ZATCA chain; this reference's are not.");
  return fixed;
}

}  // namespace dsig_family
