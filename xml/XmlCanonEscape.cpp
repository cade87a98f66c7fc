#include "xml/XmlCanonEscape.h"

#include <cstring>

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

// Appends text, replacing the bytes the table marks. Runs of ordinary bytes are copied in
// one piece, which keeps large documents fast.
void appendReplacing(std::string& out, std::string_view text, const EscapeTable& table) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = p + text.size();
  while (p < end) {
    const unsigned char* run = p;
    while (p < end && table.cls[*p] == 0) ++p;
    out.append(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
    if (p == end) break;
    out.append(kEntities[table.cls[*p]]);
    ++p;
  }
}

}  // namespace

void appendEscapedText(std::string& out, std::string_view text) { appendReplacing(out, text, kTextTable); }

void appendEscapedAttribute(std::string& out, std::string_view value) {
  appendReplacing(out, value, kAttributeTable);
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

bool appendEscapedRawText(std::string& out, std::string_view raw, bool ampersandIsReference) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(raw.data());
  const unsigned char* const end = p + raw.size();
  while (p < end) {
    const unsigned char* run = p;
    while (p < end && kTextTable.cls[*p] == 0) ++p;
    out.append(reinterpret_cast<const char*>(run), static_cast<size_t>(p - run));
    if (p == end) break;
    const unsigned char c = *p++;
    if (c == '\r') {
      out.push_back('\n');
      if (p < end && *p == '\n') ++p;
    } else if (c == '&' && ampersandIsReference) {
      return false;
    } else {
      out.append(kEntities[kTextTable.cls[c]]);
    }
  }
  return true;
}

}  // namespace xml
