// Document-family detection: sets the flags that the transforms, the reference digests
// and the signature check consult, from markers in the loaded text.
#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/_clsXmlDSigBase.h"
#include "support/LogBase.h"

namespace {

constexpr const char* kSortBugInfo = "Will duplicate the XML canonicalization attribute sorting bug...";

// Markers of the families signed by software with the attribute-sorting bug, in the
// order they are tested.
constexpr const char* kSortBugMarkers[] = {
    dsig_family::kPolandFinanceAppsDomain, dsig_family::kPolandFinanceDomain,
    dsig_family::kPolandZusDomain,         dsig_family::kHl7Urn,
    dsig_family::kItalyHealthRecordDomain, dsig_family::kPolandCrdDomain,
};

bool containsAny(const StringBuffer& text, const char* const* markers, size_t count) {
  for (size_t i = 0; i < count; ++i)
    if (text.containsSubstring(markers[i])) return true;
  return false;
}

}  // namespace

void _clsXmlDSigBase::detectSpecial(const StringBuffer& text, LogBase& log) {
  using namespace dsig_family;

  // The ZATCA and MyInvois modes come from the caller's options, not from the text, and
  // the document kind and DTE offset belong to later steps: they are left as they are.
  m_isDoda = false;
  m_isCsioz = false;
  m_isSiiCl = false;
  m_isSunatPeru = false;
  m_dupAttrSortBug = false;
  m_noSortBugRetry = false;
  m_isSkXmlSignedDoc = false;
  m_isCmaStp = false;

  // First matching rule wins.
  if (text.containsSubstring(kChileSiiDomain)) {
    m_isSiiCl = true;
    m_noSortBugRetry = true;
    m_siiDteXml.clear();
  } else if (text.containsSubstring(kSunatPeruUbl)) {
    m_specialDocKind = 3;
    m_isSunatPeru = true;
  } else if (containsAny(text, kSortBugMarkers, sizeof(kSortBugMarkers) / sizeof(kSortBugMarkers[0]))) {
    log.LogInfo(kSortBugInfo);
    m_dupAttrSortBug = true;
  } else if (text.containsSubstring(kPolandCsiozDomain)) {
    log.LogInfo(kSortBugInfo);
    m_isCsioz = true;
    m_dupAttrSortBug = true;
  } else if (text.containsSubstring(kCmaStpUrn)) {
    m_isCmaStp = true;
  } else if (text.containsSubstring(kMexicoSatSiatDomain) && text.containsSubstring(kDodaStartTag)) {
    m_isDoda = true;
  }

  // Independent of the rules above.
  if (text.containsSubstring(kSkXmlSignedDocTag) && text.containsSubstring(kSkXmlFormat))
    m_isSkXmlSignedDoc = true;
}

void _clsXmlDSigBase::checkSetZatca(LogBase& log) {
  m_isZatca = log.hasUncommonOption("ZATCA", true);
  if (m_isZatca) {
    m_noSortBugRetry = true;
    log.LogInfo("Will validate according to ZATCA rules...");
  }
}

void _clsXmlDSigBase::checkSetMyInvois(LogBase& log) {
  m_isMyInvois = log.hasUncommonOption("MYINVOIS", true);
  if (m_isMyInvois) {
    m_noSortBugRetry = true;
    log.LogInfo("Will validate according to MyInvois rules...");
  }
}
