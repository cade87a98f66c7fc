#include "dsig/transform/MarkupSearch.h"

namespace markupsearch {
namespace {

bool startsAt(std::string_view s, size_t at, std::string_view what) { return s.compare(at, what.size(), what) == 0; }

// Offset just past the end of what opens at `at` (end of the text when it never closes).
size_t pastDelimited(std::string_view xml, size_t at, std::string_view open, std::string_view close) {
  const size_t end = xml.find(close, at + open.size());
  return end == npos ? xml.size() : end + close.size();
}

// Offset just past a document type declaration: quoted literals, comments and PIs inside the
// internal subset may hold '>' or ']'.
size_t pastDoctype(std::string_view xml, size_t at) {
  int brackets = 0;
  for (size_t i = at + 2; i < xml.size(); ++i) {
    const char c = xml[i];
    if (c == '"' || c == '\'') {
      const size_t q = xml.find(c, i + 1);
      if (q == npos) return xml.size();
      i = q;
    } else if (startsAt(xml, i, "<!--")) {
      i = pastDelimited(xml, i, "<!--", "-->") - 1;
    } else if (startsAt(xml, i, "<?")) {
      i = pastDelimited(xml, i, "<?", "?>") - 1;
    } else if (c == '[') {
      ++brackets;
    } else if (c == ']') {
      --brackets;
    } else if (c == '>' && brackets <= 0) {
      return i + 1;
    }
  }
  return xml.size();
}

}  // namespace

size_t findInMarkup(std::string_view xml, std::string_view needle, size_t from) {
  if (needle.empty()) return npos;
  size_t i = 0;
  while (i < xml.size()) {
    if (xml[i] == '<') {
      size_t skipTo = 0;
      if (startsAt(xml, i, "<!--")) skipTo = pastDelimited(xml, i, "<!--", "-->");
      else if (startsAt(xml, i, "<![CDATA[")) skipTo = pastDelimited(xml, i, "<![CDATA[", "]]>");
      else if (startsAt(xml, i, "<?")) skipTo = pastDelimited(xml, i, "<?", "?>");
      else if (startsAt(xml, i, "<!DOCTYPE")) skipTo = pastDoctype(xml, i);
      if (skipTo != 0) {
        i = skipTo;
        continue;
      }
    }
    if (i >= from && startsAt(xml, i, needle)) return i;
    ++i;
  }
  return npos;
}

}  // namespace markupsearch
