// Document-family detection: sets the flags that the transforms, the reference digests
// and the signature check consult, from markers in the loaded text.
#include <string.h>  // memmem

#include <string_view>

#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/_clsXmlDSigBase.h"
#include "support/LogBase.h"

namespace {

constexpr const char* kSortBugInfo = "Will duplicate the XML canonicalization attribute sorting bug...";

// Markers of the families signed by software with the attribute-sorting bug.
constexpr const char* kSortBugMarkers[] = {
    dsig_family::kPolandFinanceAppsDomain, dsig_family::kPolandFinanceDomain,
    dsig_family::kPolandZusDomain,         dsig_family::kHl7Urn,
    dsig_family::kItalyHealthRecordDomain, dsig_family::kPolandCrdDomain,
};
constexpr size_t kNumSortBugMarkers = sizeof(kSortBugMarkers) / sizeof(kSortBugMarkers[0]);

// Every marker the detection consults, in one list so that one pass finds them all.
enum Marker : size_t {
  kSiiMarker,
  kSunatMarker,
  kSortBugFirstMarker,
  kCsiozMarker = kSortBugFirstMarker + kNumSortBugMarkers,
  kCmaStpMarker,
  kSiatMarker,
  kDodaMarker,
  kSkXmlTagMarker,
  kSkXmlFormatMarker,
  kNumMarkers
};

const char* markerText(size_t m) {
  using namespace dsig_family;
  if (m >= kSortBugFirstMarker && m < kCsiozMarker) return kSortBugMarkers[m - kSortBugFirstMarker];
  switch (m) {
    case kSiiMarker: return kChileSiiDomain;
    case kSunatMarker: return kSunatPeruUbl;
    case kCsiozMarker: return kPolandCsiozDomain;
    case kCmaStpMarker: return kCmaStpUrn;
    case kSiatMarker: return kMexicoSatSiatDomain;
    case kDodaMarker: return kDodaStartTag;
    case kSkXmlTagMarker: return kSkXmlSignedDocTag;
    default: return kSkXmlFormat;
  }
}

// Which markers occur in the text. The text is searched block by block, each block for
// every marker still missing, so that a large document is read from memory once instead of
// once per marker; consecutive blocks overlap by the longest marker less one byte, so a
// marker that straddles two blocks is still seen.
struct MarkersPresent {
  bool present[kNumMarkers] = {};

  explicit MarkersPresent(std::string_view text) {
    constexpr size_t kBlock = 128 * 1024;
    size_t longest = 0;
    size_t lengths[kNumMarkers];
    for (size_t m = 0; m < kNumMarkers; ++m) {
      lengths[m] = strlen(markerText(m));
      if (lengths[m] > longest) longest = lengths[m];
    }
    size_t missing = kNumMarkers;
    for (size_t pos = 0; pos < text.size() && missing > 0; pos += kBlock) {
      const std::string_view block = text.substr(pos, kBlock + longest - 1);
      for (size_t m = 0; m < kNumMarkers; ++m) {
        if (present[m] || !memmem(block.data(), block.size(), markerText(m), lengths[m])) continue;
        present[m] = true;
        --missing;
      }
    }
  }
  bool operator[](size_t m) const { return present[m]; }
  bool any(size_t first, size_t end) const {
    for (size_t m = first; m < end; ++m)
      if (present[m]) return true;
    return false;
  }
};

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
  const MarkersPresent found(text.view());
  if (found[kSiiMarker]) {
    m_isSiiCl = true;
    m_noSortBugRetry = true;
    m_siiDteXml.clear();
  } else if (found[kSunatMarker]) {
    m_specialDocKind = 3;
    m_isSunatPeru = true;
  } else if (found.any(kSortBugFirstMarker, kCsiozMarker)) {
    log.LogInfo(kSortBugInfo);
    m_dupAttrSortBug = true;
  } else if (found[kCsiozMarker]) {
    log.LogInfo(kSortBugInfo);
    m_isCsioz = true;
    m_dupAttrSortBug = true;
  } else if (found[kCmaStpMarker]) {
    m_isCmaStp = true;
  } else if (found[kSiatMarker] && found[kDodaMarker]) {
    m_isDoda = true;
  }

  // Independent of the rules above.
  if (found[kSkXmlTagMarker] && found[kSkXmlFormatMarker]) m_isSkXmlSignedDoc = true;
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
