// The XPath transform's text patterns: the signature exclusions and document conventions
// that signing software emits are recognised by their text and applied as the cut each
// stands for on the document text (isTextXPathPattern says which). Every other expression
// is evaluated on the document's node-set (NodeSetChain.cpp).
#include <string>

#include "dsig/_clsXmlDSigBase.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/transform/MarkupSearch.h"
#include "support/ClsXml.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
#include "xml/XmlSigLocate.h"

namespace {

constexpr const char kFilter2Uri[] = "http://www.w3.org/2002/06/xmldsig-filter2";
constexpr int kMaxRemovals = 100;

// Removes the first span from `startTag` through the first `endTag` after it; tags inside
// comments, CDATA sections and PIs do not count.
bool removeFirstSpan(StringBuffer& xml, const std::string& startTag, const std::string& endTag) {
  const size_t s = markupsearch::findInMarkup(xml.view(), startTag);
  if (s == StringBuffer::npos) return false;
  const size_t e = markupsearch::findInMarkup(xml.view(), endTag, s);
  if (e == StringBuffer::npos) return false;
  xml.removeChunk(s, e + endTag.size() - s);
  return true;
}

void removeRepeatedly(StringBuffer& xml, const std::string& startTag, const std::string& endTag) {
  for (int i = 0; i < kMaxRemovals && removeFirstSpan(xml, startTag, endTag); ++i) {
  }
}

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

bool _clsXmlDSigBase::transformXPath(ClsXml* transform, StringBuffer& xml, const StringBuffer& algorithm,
                                     const StringBuffer& xpath, LogBase& log) {
  LogContextExitor ctx(log, "transformXPath");
  log.LogDataSb("transformAlgorithm", algorithm);
  log.LogDataSb("xPath", xpath);

  const bool filter2 = algorithm.containsSubstring(kFilter2Uri);
  bool ok = true;

  if (xpath.containsSubstring("Signature") &&
      (xpath.containsSubstring("not(ancestor-or-self") || xpath.containsSubstring("not(//ancestor-or-self"))) {
    log.LogDataLong("commonXPathOption", 1);
    if (!xpath.containsSubstring("cac:Signature")) {
      log.LogInfo("removing all Signatures from the XML to be canonicalized");
      ok = removeAllSignatures(xml, log);
    } else {
      // UBL: the cac:Signature blocks describe the signature and are left out of the digest.
      removeRepeatedly(xml, "<cac:Signature>", "</cac:Signature>");
    }
  } else if (xpath.containsSubstring("ebxml-msg:actor:next")) {
    log.LogDataLong("commonXPathOption", 2);
    ok = DSigReference::removeEbXmlFragments(xml, log);
  } else if (xpath.containsSubstring("ancestor-or-self::sig:UBLDocumentSignatures")) {
    log.LogDataLong("commonXPathOption", 3);
    removeFirstSpan(xml, "<sig:UBLDocumentSignatures>", "</sig:UBLDocumentSignatures>");
    log.LogInfo("Found UBLDocumentSignatures transform.");
  } else if (filter2 && (xpath.containsSubstring("/descendant::ds:Signature") ||
                         xpath.containsSubstring("/descendant::*[name()='ds:Signature']"))) {
    log.LogDataLong("commonXPathOption", 4);
    if (!childFilter(transform, 0, nullptr).equals("subtract")) {
      log.LogDataLong("unhandledXPath", 1);
      ok = false;
    } else {
      removeAllSignatures(xml, log);
    }
  } else if (filter2) {
    log.LogDataLong("commonXPathOption", 5);
    StringBuffer expression;
    const StringBuffer filter = childFilter(transform, 1, &expression);
    if (filter.equals("subtract") && expression.containsSubstring("ancestor::ext:UBLExtensions/ext:UBLExtension")) {
      removeFirstSpan(xml, "<ext:UBLExtensions>", "</ext:UBLExtensions>");
    } else {
      log.LogDataLong("unhandledXPath", 3);
      ok = false;
    }
  } else if (xpath.matches("not(//ancestor-or-self::*[*ID='*'])", true)) {
    // not(//ancestor-or-self::P:E[Q:N='V']): the ZATCA QR code reference.
    log.LogDataLong("commonXPathOption", 6);
    log.LogInfo("Matched not(//ancestor-or-self::*[*ID='*'])");
    ExtPtrArraySb pieces;
    xpath.tokenize(pieces, ":[=]");
    const std::string prefix = pieces.strAt(3);
    const std::string name = pieces.strAt(5);
    const std::string startTag = "<" + prefix + ":" + name + ">";
    const std::string endTag = "</" + prefix + ":" + name + ">";

    StringBuffer mustContain("<_cbc_:_ID_>_QR_</_cbc_:_ID_>");
    mustContain.replaceAllOccurances("_cbc_", pieces.strAt(7));
    if (pieces.getSize() > 11) {
      StringBuffer value(pieces.strAt(11));
      value.removeCharOccurances('\'');
      mustContain.replaceAllOccurances("_QR_", value.getString());
    }
    mustContain.replaceAllOccurances("_ID_", pieces.strAt(9));
    log.LogDataStr("startTag", startTag.c_str());
    log.LogDataStr("endTag", endTag.c_str());
    log.LogDataSb("mustContain", mustContain);

    // The chunk is recognised by the fixed QR literal; the text built from the expression
    // above is only logged.
    for (int i = 0; i < kMaxRemovals; ++i)
      if (!removeXmlChunkContaining(startTag.c_str(), endTag.c_str(), "<cbc:ID>QR</cbc:ID>", xml, log)) break;
  } else if (xpath.matches("not(//ancestor-or-self::*)", true)) {
    // not(//ancestor-or-self::P:E): every element of that name goes.
    log.LogDataLong("commonXPathOption", 7);
    log.LogInfo("Matched not(//ancestor-or-self::*)");
    StringBuffer name(xpath);
    name.replaceFirstOccurance("not(//ancestor-or-self::", "", false);
    name.shorten(1);
    const std::string startTag = std::string("<") + name.getString() + ">";
    const std::string endTag = std::string("</") + name.getString() + ">";
    log.LogDataStr("startTag", startTag.c_str());
    log.LogDataStr("endTag", endTag.c_str());

    bool done = false;
    if (family().keepsFirstUblExtensions() && startTag.find("UBLExtensions") != std::string::npos) {
      // MyInvois keeps its first UBLExtensions block and drops the second.
      using markupsearch::findInMarkup;
      const size_t first = findInMarkup(xml.view(), startTag);
      const size_t second = first == StringBuffer::npos ? StringBuffer::npos
                                                        : findInMarkup(xml.view(), startTag, first + 3);
      const size_t close = second == StringBuffer::npos ? StringBuffer::npos : findInMarkup(xml.view(), endTag, second);
      if (close != StringBuffer::npos) {
        xml.removeChunk(second, close + endTag.size() - second);
        done = true;
      }
    }
    if (!done) removeRepeatedly(xml, startTag, endTag);
  } else {
    log.LogDataLong("unhandledXPath", 2);
    ok = false;
  }

  log.LogDataBool("transformXPathSuccess", ok);
  return ok;
}
