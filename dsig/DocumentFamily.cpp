// Document-family detection: sets the flags that the transforms, the reference digests
// and the signature check consult, from markers in the loaded text.
#include <string.h>  // memmem

#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Byte pairs that anchor the marker search. Each is rare in XML text and in base64, and
// most markers hold one: the text is scanned once for these pairs and the markers are
// compared only where one stands. anchorPairLanes tests exactly these pairs.
constexpr char kAnchorPairs[][2] = {{'.', 'c'}, {'.', 'p'}, {'.', 'i'}, {'.', 'm'},
                                    {'n', ':'}, {'<', 'd'}, {'<', 'S'}, {'K', '-'}};

#if defined(__SSE2__)
// The lanes of `here` where the byte and the one after it (the same lane of `next`) form
// one of kAnchorPairs; pairs sharing a first byte share its comparison.
inline __m128i anchorPairLanes(__m128i here, __m128i next) {
  const auto is = [](__m128i v, char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
  const auto either = [](__m128i a, __m128i b) { return _mm_or_si128(a, b); };
  const __m128i dot = _mm_and_si128(is(here, '.'),
                                    either(either(is(next, 'c'), is(next, 'p')), either(is(next, 'i'), is(next, 'm'))));
  const __m128i colon = _mm_and_si128(is(here, 'n'), is(next, ':'));
  const __m128i tag = _mm_and_si128(is(here, '<'), either(is(next, 'd'), is(next, 'S')));
  const __m128i dash = _mm_and_si128(is(here, 'K'), is(next, '-'));
  return either(either(dot, colon), either(tag, dash));
}
#endif

// Which markers occur in the text, found in one pass over it.
struct MarkersPresent {
  bool present[kNumMarkers] = {};

  explicit MarkersPresent(std::string_view text) {
    for (size_t m = 0; m < kNumMarkers; ++m) {
      m_markers[m] = markerText(m);
      m_anchor[m] = std::string_view::npos;
      for (size_t i = 0; i + 1 < m_markers[m].size() && m_anchor[m] == std::string_view::npos; ++i)
        for (const auto& pair : kAnchorPairs)
          if (m_markers[m][i] == pair[0] && m_markers[m][i + 1] == pair[1]) m_anchor[m] = i;
      // A marker without an anchor pair is looked for on its own.
      if (m_anchor[m] == std::string_view::npos) {
        present[m] = memmem(text.data(), text.size(), m_markers[m].data(), m_markers[m].size()) != nullptr;
        continue;
      }
      ++m_missing;
      m_isPairStart[static_cast<unsigned char>(m_markers[m][m_anchor[m]])] = true;
    }
    scan(text);
  }
  bool operator[](size_t m) const { return present[m]; }
  bool any(size_t first, size_t end) const {
    for (size_t m = first; m < end; ++m)
      if (present[m]) return true;
    return false;
  }

 private:
  std::string_view m_markers[kNumMarkers];
  size_t m_anchor[kNumMarkers];  // offset of the anchor pair in the marker; npos for none
  size_t m_missing = 0;          // anchored markers not found yet
  bool m_isPairStart[256] = {};

  void scan(std::string_view text) {
    const char* const p = text.data();
    const size_t n = text.size();
    size_t i = 0;
#if defined(__SSE2__)
    // 16 positions at a time: a lane is set where the byte and the next form an anchor pair.
    while (m_missing > 0 && i + 17 <= n) {
      const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i + 1));
      const __m128i hits = anchorPairLanes(here, next);
      for (unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hits)); mask != 0; mask &= mask - 1)
        checkAt(text, i + static_cast<size_t>(__builtin_ctz(mask)));
      i += 16;
    }
#endif
    for (; m_missing > 0 && i + 1 < n; ++i)
      if (m_isPairStart[static_cast<unsigned char>(p[i])]) checkAt(text, i);
  }

  // Compares, at pos, each missing marker whose anchor pair stands there.
  void checkAt(std::string_view text, size_t pos) {
    for (size_t m = 0; m < kNumMarkers; ++m) {
      const size_t anchor = m_anchor[m];
      if (present[m] || anchor == std::string_view::npos || pos < anchor) continue;
      const std::string_view marker = m_markers[m];
      if (text[pos] != marker[anchor] || text[pos + 1] != marker[anchor + 1]) continue;
      const size_t start = pos - anchor;
      if (start + marker.size() > text.size() || text.compare(start, marker.size(), marker) != 0) continue;
      present[m] = true;
      --m_missing;
    }
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

void _clsXmlDSigBase::setAttrSortBugEmulation(bool on) { m_dupAttrSortBug = on; }

void _clsXmlDSigBase::adoptZatcaRules() {
  m_noSortBugRetry = true;
  m_isZatca = true;
}
