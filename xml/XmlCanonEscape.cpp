#include "xml/XmlCanonEscape.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace xml {

namespace {

// Byte classes: 0 = copied as is; otherwise the index of the replacement in kEntities.
struct EscapeTable {
  unsigned char cls[256] = {};
  constexpr EscapeTable(bool attribute) {
    cls[static_cast<unsigned char>('&')] = 1;
    cls[static_cast<unsigned char>('<')] = 2;
    cls[static_cast<unsigned char>('\r')] = 3;
    if (attribute) {
      cls[static_cast<unsigned char>('"')] = 4;
      cls[static_cast<unsigned char>('\t')] = 5;
      cls[static_cast<unsigned char>('\n')] = 6;
    } else {
      cls[static_cast<unsigned char>('>')] = 7;
    }
  }
};
constexpr EscapeTable kTextTable(false);
constexpr EscapeTable kAttributeTable(true);
constexpr std::string_view kEntities[] = {"", "&amp;", "&lt;", "&#xD;", "&quot;", "&#x9;", "&#xA;", "&gt;"};

#if defined(__SSE2__)
// SSE2 tests of 16 bytes at once for the bytes each table marks: bit i of the mask is
// set when byte i is marked.
struct TextSpecials {
  const __m128i amp = _mm_set1_epi8('&'), lt = _mm_set1_epi8('<'), gt = _mm_set1_epi8('>'), cr = _mm_set1_epi8('\r');
  int mask(__m128i b) const {
    return _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(b, amp), _mm_cmpeq_epi8(b, lt)),
                                          _mm_or_si128(_mm_cmpeq_epi8(b, gt), _mm_cmpeq_epi8(b, cr))));
  }
};
struct AttributeSpecials {
  const __m128i amp = _mm_set1_epi8('&'), lt = _mm_set1_epi8('<'), quot = _mm_set1_epi8('"'), tab = _mm_set1_epi8('\t'),
                lf = _mm_set1_epi8('\n'), cr = _mm_set1_epi8('\r');
  int mask(__m128i b) const {
    const __m128i x = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(b, amp), _mm_cmpeq_epi8(b, lt)),
                                   _mm_or_si128(_mm_cmpeq_epi8(b, quot), _mm_cmpeq_epi8(b, tab)));
    return _mm_movemask_epi8(_mm_or_si128(x, _mm_or_si128(_mm_cmpeq_epi8(b, lf), _mm_cmpeq_epi8(b, cr))));
  }
};
#else
struct TextSpecials {};
struct AttributeSpecials {};
#endif

// The first byte at or after p that the table marks, or end. Long runs of ordinary
// bytes are skipped 16 at a time.
template <typename Specials>
const unsigned char* findMarked(const unsigned char* p, const unsigned char* const end, const EscapeTable& table) {
#if defined(__SSE2__)
  const Specials specials;
  while (end - p >= 16) {
    const int m = specials.mask(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    if (m != 0) return p + __builtin_ctz(static_cast<unsigned>(m));
    p += 16;
  }
#endif
  while (p < end && table.cls[*p] == 0) ++p;
  return p;
}

// Appends text, replacing the bytes the table marks. Runs of ordinary bytes are copied in
// one piece, which keeps large documents fast.
template <typename Specials>
void appendReplacing(std::string& out, std::string_view text, const EscapeTable& table) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = p + text.size();
  while (p < end) {
    const unsigned char* run = p;
    p = findMarked<Specials>(p, end, table);
    out.append(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
    if (p == end) break;
    out.append(kEntities[table.cls[*p]]);
    ++p;
  }
}

}  // namespace

void appendEscapedText(std::string& out, std::string_view text) {
  appendReplacing<TextSpecials>(out, text, kTextTable);
}

void appendEscapedAttribute(std::string& out, std::string_view value) {
  appendReplacing<AttributeSpecials>(out, value, kAttributeTable);
}

bool attributeNeedsEscaping(std::string_view value) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(value.data());
  const unsigned char* const end = p + value.size();
  return findMarked<AttributeSpecials>(p, end, kAttributeTable) != end;
}

void appendNormalizedLineEnds(std::string& out, std::string_view text) {
  size_t pos = 0;
  while (pos < text.size()) {
    const void* hit = std::memchr(text.data() + pos, '\r', text.size() - pos);
    if (hit == nullptr) break;
    const size_t cr = static_cast<size_t>(static_cast<const char*>(hit) - text.data());
    out.append(text.data() + pos, cr - pos);
    out.push_back('\n');
    pos = cr + 1;
    if (pos < text.size() && text[pos] == '\n') ++pos;
  }
  out.append(text.data() + pos, text.size() - pos);
}

namespace {

// The length of "amp;", "lt;" or "gt;" at the start of rest, else 0.
size_t selfCanonicalReference(std::string_view rest) {
  if (rest.compare(0, 4, "amp;") == 0) return 4;
  if (rest.compare(0, 3, "lt;") == 0 || rest.compare(0, 3, "gt;") == 0) return 3;
  return 0;
}

}  // namespace

bool isCanonicalTextAsWritten(std::string_view raw) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(raw.data());
  const unsigned char* const end = p + raw.size();
  while ((p = findMarked<TextSpecials>(p, end, kTextTable)) != end) {
    if (*p != '&') return false;
    const size_t length = selfCanonicalReference(
        std::string_view(reinterpret_cast<const char*>(p + 1), static_cast<size_t>(end - p - 1)));
    if (length == 0) return false;
    p += 1 + length;
  }
  return true;
}

bool appendEscapedRawText(std::string& out, std::string_view raw, bool ampersandIsReference) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(raw.data());
  const unsigned char* const end = p + raw.size();
  while (p < end) {
    const unsigned char* run = p;
    p = findMarked<TextSpecials>(p, end, kTextTable);
    out.append(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
    if (p == end) break;
    const unsigned char c = *p++;
    if (c == '\r') {
      out.push_back('\n');
      if (p < end && *p == '\n') ++p;
    } else if (c == '&' && ampersandIsReference) {
      // &amp; &lt; and &gt; stand for the characters that canonical text writes as exactly
      // these references; any other reference must be expanded first.
      const std::string_view rest(reinterpret_cast<const char*>(p), static_cast<size_t>(end - p));
      const size_t length = selfCanonicalReference(rest);
      if (length == 0) return false;
      out.push_back('&');
      out.append(rest.data(), length);
      p += length;
    } else {
      out.append(kEntities[kTextTable.cls[c]]);
    }
  }
  return true;
}

}  // namespace xml
