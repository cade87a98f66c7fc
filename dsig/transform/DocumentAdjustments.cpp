// Text surgery for document families whose signers digest something other than what a
// literal reading of XML-Signature gives: the Chilean SII DTE cut out of its envelope,
// ebXML header blocks addressed to the next message handler, the SWIFT Alliance LAU
// block, and the ZATCA invoice normalisation.
#include <cstring>
#include <string>
#include <vector>

#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/_clsXmlDSigBase.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/transform/MarkupSearch.h"
#include "support/LogBase.h"

namespace {

using markupsearch::findInMarkup;

bool hasTextAt(const StringBuffer& sb, size_t pos, const char* text) {
  const size_t n = std::strlen(text);
  return pos <= sb.getSize() && sb.getSize() - pos >= n && sb.view().compare(pos, n, text) == 0;
}

// Offset of the nearest '<' at or before `pos`, or npos.
size_t lastOpenAngleAtOrBefore(const StringBuffer& sb, size_t pos) {
  const std::string_view v = sb.view();
  if (v.empty()) return StringBuffer::npos;
  if (pos >= v.size()) pos = v.size() - 1;
  for (size_t i = pos + 1; i-- > 0;)
    if (v[i] == '<') return i;
  return StringBuffer::npos;
}

bool isBlankOrLineEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

bool _clsXmlDSigBase::preprocessXmlToTransform(const StringBuffer& fragmentId, DSigReference& /*ref*/,
                                               StringBuffer& xml, LogBase& log) {
  LogContextExitor ctx(log, "preprocessXmlToTransform");
  if (family().extractsSiiDte()) {
    std::string line = "Preprocessing for ";
    line += dsig_family::kChileSiiDomain;
    log.LogInfo(line.c_str());
    extract_sii_cl_dte(xml, fragmentId.getString(), true, log);
  }
  return true;
}

void _clsXmlDSigBase::extract_sii_cl_dte(StringBuffer& xml, const char* id, bool keepCopy, LogBase& log) {
  LogContextExitor ctx(log, "extract_sii_cl_dte");
  std::string marker = "ID=\"";
  marker += id ? id : "";
  marker += "\"";
  const size_t markerPos = findInMarkup(xml.view(), marker);
  if (markerPos == StringBuffer::npos) return;

  // The referenced Documento must be the first child of a DTE, with nothing but text
  // between the two start tags.
  const size_t documento = lastOpenAngleAtOrBefore(xml, markerPos);
  if (documento == StringBuffer::npos || documento == 0 || !hasTextAt(xml, documento, "<Documento ")) return;
  const size_t dte = lastOpenAngleAtOrBefore(xml, documento - 1);
  if (dte == StringBuffer::npos || dte == 0 || !hasTextAt(xml, dte, "<DTE ")) return;
  m_siiDteOffset = static_cast<int32_t>(dte);

  const size_t close = findInMarkup(xml.view(), "</DTE>", dte);
  if (close == StringBuffer::npos) return;
  // The signer's DTE text includes the one character after its end tag (normally the line
  // break); when the end tag ends the text there is none to take.
  size_t end = close + 6 + 1;
  if (end > xml.getSize()) end = xml.getSize();
  StringBuffer dteText(xml.substr(dte, end - dte));
  if (keepCopy) m_siiDteXml.setString(dteText);
  xml.takeSb(dteText);
}

bool DSigReference::removeEbXmlFragments(StringBuffer& xml, LogBase& log) {
  std::vector<dsig_family::ElementSpan> spans;
  const dsig_family::CutResult found = dsig_family::soapNextActorSpans(xml.view(), spans, log);
  if (found == dsig_family::CutResult::Refused) return false;
  for (size_t i = spans.size(); i-- > 0;) xml.removeChunk(spans[i].start, spans[i].end - spans[i].start);
  return true;
}

bool _clsXmlDSigBase::postProcessTransformedXml(StringBuffer& /*unused*/, DSigReference& /*ref*/, StringBuffer& xml,
                                                LogBase& log) {
  LogContextExitor ctx(log, "postProcessTransformedXml");
  // SWIFT Alliance: the LAU block is added after signing.
  dsig_family::ElementSpan lau;
  const dsig_family::CutResult found = dsig_family::swiftLauSpan(xml.view(), lau, log);
  if (found == dsig_family::CutResult::Refused) return false;
  if (found == dsig_family::CutResult::Found) {
    log.LogInfo("Adjusting XML to canonicalized by removing <LAU ... </LAU>");
    xml.removeChunk(lau.start, lau.end - lau.start);
  }
  return true;
}

bool _clsXmlDSigBase::removeXmlChunk(const char* startTag, const char* endTag, StringBuffer& xml, LogBase& /*log*/) {
  const size_t s = findInMarkup(xml.view(), startTag);
  if (s == StringBuffer::npos) return false;
  const size_t e = findInMarkup(xml.view(), endTag, s);
  if (e == StringBuffer::npos) return false;
  xml.removeChunk(s, e + std::strlen(endTag) - s);
  return true;
}

bool _clsXmlDSigBase::removeXmlChunkContaining(const char* startTag, const char* endTag, const char* mustContain,
                                               StringBuffer& xml, LogBase& /*log*/) {
  const size_t endLen = std::strlen(endTag);
  size_t from = 0;
  for (;;) {
    const size_t s = findInMarkup(xml.view(), startTag, from);
    if (s == StringBuffer::npos) return false;
    const size_t e = findInMarkup(xml.view(), endTag, s);
    if (e == StringBuffer::npos) return false;
    const size_t chunkEnd = e + endLen;
    if (findInMarkup(xml.view().substr(s, chunkEnd - s), mustContain) != StringBuffer::npos) {
      xml.removeChunk(s, chunkEnd - s);
      return true;
    }
    if (chunkEnd <= from) return false;
    from = chunkEnd;
  }
}

bool _clsXmlDSigBase::zatcaTransformInvoice(StringBuffer& xml, LogBase& log) {
  LogContextExitor ctx(log, "zatcaTransformInvoice");
  xml.replaceAllOccurances("\r\n", "\n");
  xml.trim2();

  // The XML declaration and the line ends after it are not part of the invoice hash.
  if (xml.beginsWith("<?") && xml.containsSubstring("?>")) {
    size_t rest = xml.find("?>") + 2;
    while (rest < xml.getSize() && isBlankOrLineEnd(xml.charAt(rest))) ++rest;
    xml.removeChunk(0, rest);
  }

  // The root start tag is hashed on one line with single blanks.
  if (xml.beginsWith("<Invoice") && xml.containsSubstring(">")) {
    const size_t gt = xml.findChar('>');
    StringBuffer rootTag(xml.substr(0, gt + 1));
    rootTag.replaceChar5("\r\n\t\t\t", ' ');
    std::string collapsed;
    collapsed.reserve(rootTag.getSize());
    for (char c : rootTag.view())
      if (c != ' ' || collapsed.empty() || collapsed.back() != ' ') collapsed.push_back(c);
    xml.removeChunk(0, gt + 1);
    xml.insertAt(std::string_view(collapsed), 0);
  }

  xml.removeDelimited("<ext:UBLExtensions>", "</ext:UBLExtensions>", true, true);
  xml.removeDelimitedIfContains("<cac:AdditionalDocumentReference>", "</cac:AdditionalDocumentReference>", "<cbc:ID>QR",
                                true, true);
  xml.removeDelimited("<cac:Signature>", "</cac:Signature>", true, true);
  return true;
}
