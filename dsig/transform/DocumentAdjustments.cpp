// Family adjustments for signers that digest something other than what a literal reading of
// XML-Signature gives: the Chilean SII DTE cut out of its envelope, ebXML header blocks
// addressed to the next message handler, the SWIFT Alliance LAU block. Each cut is located on
// the parsed text (dsig/family/FamilyCuts.h); a refusal fails the reference with its reason.
#include <string>
#include <vector>

#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/_clsXmlDSigBase.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/reference/DSigReference.h"
#include "support/LogBase.h"

bool _clsXmlDSigBase::preprocessXmlToTransform(const StringBuffer& fragmentId, DSigReference& /*ref*/,
                                               StringBuffer& xml, LogBase& log) {
  LogContextExitor ctx(log, "preprocessXmlToTransform");
  if (family().extractsSiiDte()) {
    std::string line = "Preprocessing for ";
    line += dsig_family::kChileSiiDomain;
    log.LogInfo(line.c_str());
    return extract_sii_cl_dte(xml, fragmentId.getString(), true, log);
  }
  return true;
}

void _clsXmlDSigBase::noteFamilyRefusal(const std::string& why, LogBase& log) {
  log.LogError(("Family cut refused: " + why + ".").c_str());
  m_familyRefusal = why;
}

bool _clsXmlDSigBase::extract_sii_cl_dte(StringBuffer& xml, const char* id, bool keepCopy, LogBase& log) {
  LogContextExitor ctx(log, "extract_sii_cl_dte");
  dsig_family::ElementSpan dte;
  const dsig_family::CutResult found = dsig_family::siiDteSpan(xml.view(), id ? id : "", dte, log);
  if (found == dsig_family::CutResult::Refused) {
    noteFamilyRefusal("the DTE element to read the reference in is not where the text shows it", log);
    return false;
  }
  if (found == dsig_family::CutResult::None) return true;
  m_siiDteOffset = static_cast<int32_t>(dte.start);
  // The signer's DTE text includes the one character after its end tag (normally the line
  // break); when the end tag ends the text there is none to take.
  const size_t end = dte.end < xml.getSize() ? dte.end + 1 : xml.getSize();
  StringBuffer dteText(xml.substr(dte.start, end - dte.start));
  if (keepCopy) m_siiDteXml.setString(dteText);
  xml.takeSb(dteText);
  return true;
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
  if (found == dsig_family::CutResult::Refused) {
    noteFamilyRefusal("the SWIFT LAU block is not the one LAU element the text shows", log);
    return false;
  }
  if (found == dsig_family::CutResult::Found) {
    log.LogInfo("Adjusting XML to canonicalized by removing <LAU ... </LAU>");
    xml.removeChunk(lau.start, lau.end - lau.start);
  }
  return true;
}
