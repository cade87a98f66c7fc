#include "xml/XmlCanonEscape.h"

#include <cstring>

namespace xml {

namespace {

// Appends text, replacing each byte for which replacement() is non-null. Runs of
// ordinary bytes are copied in one piece, which keeps large documents fast.
template <typename Replacement>
void appendReplacing(std::string& out, std::string_view text, Replacement replacement) {
  const char* p = text.data();
  const char* const end = p + text.size();
  const char* run = p;
  for (; p < end; ++p) {
    const char* rep = replacement(*p);
    if (rep == nullptr) continue;
    out.append(run, static_cast<size_t>(p - run));
    out.append(rep);
    run = p + 1;
  }
  out.append(run, static_cast<size_t>(end - run));
}

const char* textReplacement(char c) {
  switch (c) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '\r': return "&#xD;";
    default: return nullptr;
  }
}

const char* attributeReplacement(char c) {
  switch (c) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '"': return "&quot;";
    case '\t': return "&#x9;";
    case '\n': return "&#xA;";
    case '\r': return "&#xD;";
    default: return nullptr;
  }
}

}  // namespace

void appendEscapedText(std::string& out, std::string_view text) {
  appendReplacing(out, text, textReplacement);
}

void appendEscapedAttribute(std::string& out, std::string_view value) {
  appendReplacing(out, value, attributeReplacement);
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

void appendEscapedTextNormalizingLineEnds(std::string& out, std::string_view text) {
  size_t pos = 0;
  while (pos < text.size()) {
    const void* hit = std::memchr(text.data() + pos, '\r', text.size() - pos);
    if (hit == nullptr) break;
    const size_t cr = static_cast<size_t>(static_cast<const char*>(hit) - text.data());
    appendEscapedText(out, text.substr(pos, cr - pos));
    out.push_back('\n');
    pos = cr + 1;
    if (pos < text.size() && text[pos] == '\n') ++pos;
  }
  appendEscapedText(out, text.substr(pos));
}

}  // namespace xml
