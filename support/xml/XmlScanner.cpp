// The XML scanner: one forward pass over the text, token by token, with exact byte
// spans. Text runs are crossed 16 bytes at a time and other searches go through memchr, so
// that long runs are crossed at memory speed; nothing is allocated per token except growth
// of the token's reused attribute vector.
#include "support/xml/XmlScanner.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace xml {

namespace {

constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
// Up to this many attributes duplicates are found by comparing with the earlier ones;
// beyond it a hash set keeps the check linear.
constexpr size_t kLinearDuplicateCheck = 8;

size_t findByte(std::string_view s, char c, size_t from) {
  if (from >= s.size()) return std::string_view::npos;
  const void* hit = std::memchr(s.data() + from, c, s.size() - from);
  return hit ? static_cast<size_t>(static_cast<const char*>(hit) - s.data()) : std::string_view::npos;
}

// The first '<' at or after from (or the end of s), noting whether a '&' comes before it:
// one pass instead of a search for each.
size_t findTextEnd(std::string_view s, size_t from, bool& hasAmp) {
  const char* const p = s.data();
  const size_t n = s.size();
  size_t i = from;
  bool amp = false;
#if defined(__SSE2__)
  const __m128i lt = _mm_set1_epi8('<');
  const __m128i ampersand = _mm_set1_epi8('&');
  while (i + 16 <= n) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    const unsigned ltMask = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, lt)));
    const unsigned ampMask = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, ampersand)));
    if (ltMask != 0) {
      const unsigned at = static_cast<unsigned>(__builtin_ctz(ltMask));
      hasAmp = amp || (ampMask & ((1u << at) - 1)) != 0;
      return i + at;
    }
    amp |= ampMask != 0;
    i += 16;
  }
#endif
  for (; i < n && p[i] != '<'; ++i) amp |= p[i] == '&';
  hasAmp = amp;
  return i;
}

bool isPredefinedEntity(std::string_view name, char* value) {
  char v = 0;
  if (name == "lt") v = '<';
  else if (name == "gt") v = '>';
  else if (name == "amp") v = '&';
  else if (name == "apos") v = '\'';
  else if (name == "quot") v = '"';
  if (v && value) *value = v;
  return v != 0;
}

// Values of the XML declaration: version "1.n", an encoding name, standalone yes/no.
bool validDeclarationValue(size_t which, std::string_view v) {
  auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (which == 0) {
    if (v.size() < 3 || v[0] != '1' || v[1] != '.') return false;
    for (size_t i = 2; i < v.size(); ++i)
      if (!isDigit(v[i])) return false;
    return true;
  }
  if (which == 1) {
    if (v.empty() || !isAlpha(v[0])) return false;
    for (char c : v)
      if (!isAlpha(c) && !isDigit(c) && c != '.' && c != '_' && c != '-') return false;
    return true;
  }
  return v == "yes" || v == "no";
}

std::string quoteName(std::string_view name) { return "'" + std::string(name) + "'"; }

// A parsed reference at raw[at] == '&': either a character (cp set) or an entity name.
struct Reference {
  size_t length = 0;  // through the ';'
  bool isChar = false;
  uint32_t codePoint = 0;
  std::string_view name;
};

// False when the text at raw[at] is not a well-formed reference.
bool parseReference(std::string_view raw, size_t at, Reference& ref) {
  size_t p = at + 1;
  if (p < raw.size() && raw[p] == '#') {
    const size_t bodyStart = p + 1;
    size_t q = bodyStart;
    while (q < raw.size() && q - bodyStart < 12 && raw[q] != ';') ++q;
    if (q >= raw.size() || raw[q] != ';') return false;
    if (!decodeCharRef(raw.substr(bodyStart, q - bodyStart), ref.codePoint)) return false;
    ref.isChar = true;
    ref.length = q + 1 - at;
    return true;
  }
  const size_t nameStart = p;
  if (p < raw.size() && isXmlNameStartByte(raw[p]))
    while (p < raw.size() && isXmlNameByte(raw[p]) && p - nameStart <= kMaxNameLength) ++p;
  if (p == nameStart || p >= raw.size() || raw[p] != ';') return false;
  ref.isChar = false;
  ref.name = raw.substr(nameStart, p - nameStart);
  ref.length = p + 1 - at;
  return true;
}

// Appends literal text. Line ends are normalised only in text straight from the
// document (entity replacement text was normalised when the DTD was read); in
// attribute values every TAB, CR and LF then becomes a space.
void appendLiteral(std::string& out, std::string_view s, bool attribute, bool fromDocument) {
  if (!attribute) {
    if (fromDocument) appendNormalisedLineEnds(out, s);
    else out.append(s.data(), s.size());
    return;
  }
  for (size_t i = 0; i < s.size(); ++i) {
    const char c = s[i];
    if (c == '\r') {
      out.push_back(' ');
      if (fromDocument && i + 1 < s.size() && s[i + 1] == '\n') ++i;
    } else if (c == '\n' || c == '\t') {
      out.push_back(' ');
    } else {
      out.push_back(c);
    }
  }
}

// Reference expansion shared by the scanner and the tree. `limit` bounds out's size
// while entity text is being appended (the expansion cap).
bool expandRefs(const XmlDtd& dtd, std::string_view raw, std::string& out, bool attribute, int level, size_t limit,
                std::string& error) {
  size_t i = 0;
  while (i < raw.size()) {
    const size_t amp = findByte(raw, '&', i);
    const size_t literalEnd = amp == std::string_view::npos ? raw.size() : amp;
    appendLiteral(out, raw.substr(i, literalEnd - i), attribute, level == 0);
    if (out.size() > limit) {
      error = "entity expansion exceeds the limit of " + std::to_string(kMaxEntityExpansionBytes) +
              " bytes (kMaxEntityExpansionBytes)";
      return false;
    }
    if (amp == std::string_view::npos) break;
    Reference ref;
    if (!parseReference(raw, amp, ref)) {
      error = "'&' must start a reference; write &amp; for a literal '&'";
      return false;
    }
    char predefined = 0;
    if (ref.isChar) {
      // A character reference keeps its character, white space included, except in
      // entity text inside an attribute value, where white space becomes a space.
      if (attribute && level > 0 && (ref.codePoint == 0x9 || ref.codePoint == 0xA || ref.codePoint == 0xD))
        out.push_back(' ');
      else appendUtf8(out, ref.codePoint);
    } else if (isPredefinedEntity(ref.name, &predefined)) {
      out.push_back(predefined);
    } else {
      const XmlEntity* entity = dtd.findEntity(ref.name);
      if (!entity) {
        error = "undefined entity " + quoteName(ref.name);
        return false;
      }
      if (entity->external) {
        error = "External entity " + quoteName(ref.name) + " is not loaded";
        return false;
      }
      if (entity->value.find('<') != std::string::npos) {
        error = "Entity " + quoteName(ref.name) + " contains markup, which is not supported";
        return false;
      }
      if (level + 1 > kMaxEntityNesting) {
        error = "entities nested deeper than the limit of " + std::to_string(kMaxEntityNesting) +
                " (kMaxEntityNesting)";
        return false;
      }
      if (!expandRefs(dtd, entity->value, out, attribute, level + 1, limit, error)) return false;
    }
    i = amp + ref.length;
  }
  return true;
}

// Attribute values of non-CDATA type: leading and trailing spaces dropped, inner runs
// of spaces collapsed to one. Works on out from `from` on.
void collapseSpaces(std::string& out, size_t from) {
  size_t w = from;
  bool pendingSpace = false;
  for (size_t r = from; r < out.size(); ++r) {
    if (out[r] == ' ') {
      pendingSpace = w > from;
      continue;
    }
    if (pendingSpace) out[w++] = ' ';
    pendingSpace = false;
    out[w++] = out[r];
  }
  out.resize(w);
}

bool expandWithLimit(const XmlDtd& dtd, std::string_view raw, std::string& out, bool attribute, std::string& error) {
  const size_t limit = out.size() + raw.size() + kMaxEntityExpansionBytes;
  return expandRefs(dtd, raw, out, attribute, 0, limit, error);
}

}  // namespace

bool expandText(const XmlDtd& dtd, std::string_view raw, std::string& out, std::string* error) {
  std::string err;
  const size_t before = out.size();
  if (expandWithLimit(dtd, raw, out, false, err)) return true;
  out.resize(before);
  if (error) *error = err;
  return false;
}

bool expandAttributeValue(const XmlDtd& dtd, std::string_view raw, std::string& out, bool nonCdata,
                          std::string* error) {
  std::string err;
  const size_t before = out.size();
  if (!expandWithLimit(dtd, raw, out, true, err)) {
    out.resize(before);
    if (error) *error = err;
    return false;
  }
  if (nonCdata) collapseSpaces(out, before);
  return true;
}

XmlScanner::XmlScanner(std::string_view text) : m_text(text) {
  if (m_text.substr(0, kUtf8Bom.size()) == kUtf8Bom) m_bodyStart = m_pos = kUtf8Bom.size();
  // NUL is not an XML character anywhere. Code that reads the text as a C string would
  // stop there and see another document than the one verified, so it is refused up front.
  if (const void* nul = std::memchr(m_text.data(), '\0', m_text.size()))
    fail(static_cast<size_t>(static_cast<const char*>(nul) - m_text.data()), "a NUL character is not allowed in XML");
}

bool XmlScanner::fail(size_t offset, const std::string& what) {
  if (!m_error.empty()) return false;
  size_t line = 0, column = 0;
  lineAndColumn(offset, line, column);
  m_error = "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + what;
  m_errorOffset = offset;
  return false;
}

void XmlScanner::lineAndColumn(size_t offset, size_t& line, size_t& column) const {
  if (offset > m_text.size()) offset = m_text.size();
  line = 1;
  size_t lineStart = 0;
  const char* base = m_text.data();
  size_t p = 0;
  while (p < offset) {
    const void* nl = std::memchr(base + p, '\n', offset - p);
    if (!nl) break;
    p = static_cast<size_t>(static_cast<const char*>(nl) - base) + 1;
    ++line;
    lineStart = p;
  }
  column = offset - lineStart + 1;
}

bool XmlScanner::next(XmlToken& tok) {
  if (!m_error.empty()) return false;
  tok.name = {};
  tok.content = {};
  tok.selfClosing = false;
  tok.attributes.clear();
  if (m_pos >= m_text.size()) {
    if (!m_open.empty())
      return fail(m_text.size(),
                  "unexpected end of document: element <" + std::string(m_open.back()) + "> is not closed");
    if (!m_rootSeen) return fail(m_text.size(), "no document element");
    return false;
  }
  tok.start = m_pos;
  tok.depth = m_open.size();
  if (m_text[m_pos] == '<') return scanMarkup(tok);
  return scanText(tok);
}

bool XmlScanner::scanText(XmlToken& tok) {
  bool hasAmp = false;
  const size_t end = findTextEnd(m_text, m_pos, hasAmp);
  const std::string_view raw = m_text.substr(m_pos, end - m_pos);
  tok.type = XmlTokenType::Text;
  tok.end = end;
  tok.content = raw;
  if (m_open.empty()) {
    for (size_t i = 0; i < raw.size(); ++i)
      if (!isXmlSpace(raw[i]))
        return fail(m_pos + i, m_rootSeen ? "text after the document element" : "text before the document element");
  } else if (hasAmp) {
    if (!checkReferences(raw, m_pos)) return false;
  }
  m_pos = end;
  return true;
}

// End of the name that starts at `from` (== from when no name starts there).
size_t XmlScanner::scanName(size_t from) const {
  size_t q = from;
  if (q < m_text.size() && isXmlNameStartByte(m_text[q]))
    while (q < m_text.size() && isXmlNameByte(m_text[q])) ++q;
  return q;
}

bool XmlScanner::scanMarkup(XmlToken& tok) {
  const size_t p = m_pos;
  if (p + 1 >= m_text.size()) return fail(p, "unexpected end of document after '<'");
  const char c = m_text[p + 1];
  if (c == '/') return scanEndTag(tok);
  if (c == '?') return scanPI(tok);
  if (c == '!') {
    if (m_text.compare(p, 4, "<!--") == 0) return scanComment(tok);
    if (m_text.compare(p, 9, "<![CDATA[") == 0) return scanCData(tok);
    if (m_text.compare(p, 9, "<!DOCTYPE") == 0) return scanDoctype(tok);
    return fail(p, "unrecognised markup after '<!'");
  }
  return scanStartTag(tok);
}

bool XmlScanner::scanPI(XmlToken& tok) {
  const size_t p = m_pos;
  const size_t nameStart = p + 2;
  size_t q = scanName(nameStart);
  if (q == nameStart) return fail(p, "processing instruction without a target");
  const std::string_view target = m_text.substr(nameStart, q - nameStart);
  const size_t close = m_text.find("?>", q);
  if (close == std::string_view::npos) return fail(p, "unterminated processing instruction");
  if (q < close && !isXmlSpace(m_text[q]))
    return fail(q, "invalid character in the target of a processing instruction");
  const bool isDecl = target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
                      (target[2] | 0x20) == 'l';
  if (isDecl) {
    if (p != m_bodyStart) return fail(p, "the XML declaration is allowed only at the very start of the document");
    if (!checkXmlDeclaration(q, m_text.substr(q, close - q))) return false;
    tok.type = XmlTokenType::XmlDecl;
    tok.content = m_text.substr(q, close - q);
  } else {
    tok.type = XmlTokenType::PI;
    tok.name = target;
    while (q < close && isXmlSpace(m_text[q])) ++q;
    tok.content = m_text.substr(q, close - q);
  }
  tok.end = close + 2;
  m_pos = tok.end;
  return true;
}

// version, then optionally encoding and standalone, each as name="value" after white
// space; nothing else.
bool XmlScanner::checkXmlDeclaration(size_t at, std::string_view body) {
  static constexpr std::string_view kNames[] = {"version", "encoding", "standalone"};
  size_t i = 0;
  size_t expected = 0;  // index into kNames of the earliest name still allowed
  while (true) {
    const size_t spaceStart = i;
    while (i < body.size() && isXmlSpace(body[i])) ++i;
    if (i >= body.size()) break;
    if (i == spaceStart) return fail(at + i, "white space expected in the XML declaration");
    const size_t nameStart = i;
    while (i < body.size() && isXmlNameByte(body[i])) ++i;
    const std::string_view name = body.substr(nameStart, i - nameStart);
    size_t which = expected;
    while (which < 3 && kNames[which] != name) ++which;
    if (which == 3 || (expected == 0 && which != 0))
      return fail(at + nameStart, expected == 0 ? "the XML declaration must start with version"
                                                : "unexpected text in the XML declaration");
    expected = which + 1;
    while (i < body.size() && isXmlSpace(body[i])) ++i;
    if (i >= body.size() || body[i] != '=') return fail(at + i, "'=' expected in the XML declaration");
    ++i;
    while (i < body.size() && isXmlSpace(body[i])) ++i;
    if (i >= body.size() || (body[i] != '"' && body[i] != '\''))
      return fail(at + i, "quoted value expected in the XML declaration");
    const size_t close = body.find(body[i], i + 1);
    if (close == std::string_view::npos) return fail(at + i, "unterminated value in the XML declaration");
    const std::string_view value = body.substr(i + 1, close - i - 1);
    if (!validDeclarationValue(which, value))
      return fail(at + i, "invalid " + std::string(name) + " in the XML declaration");
    i = close + 1;
  }
  if (expected == 0) return fail(at, "the XML declaration must start with version");
  return true;
}

bool XmlScanner::scanComment(XmlToken& tok) {
  const size_t p = m_pos;
  const size_t bodyStart = p + 4;
  const size_t dashes = m_text.find("--", bodyStart);
  if (dashes == std::string_view::npos) return fail(p, "unterminated comment");
  if (dashes + 2 >= m_text.size() || m_text[dashes + 2] != '>')
    return fail(dashes, "'--' is not allowed inside a comment");
  tok.type = XmlTokenType::Comment;
  tok.content = m_text.substr(bodyStart, dashes - bodyStart);
  tok.end = dashes + 3;
  m_pos = tok.end;
  return true;
}

bool XmlScanner::scanCData(XmlToken& tok) {
  const size_t p = m_pos;
  if (m_open.empty()) return fail(p, "CDATA section outside the document element");
  const size_t bodyStart = p + 9;
  const size_t close = m_text.find("]]>", bodyStart);
  if (close == std::string_view::npos) return fail(p, "unterminated CDATA section");
  tok.type = XmlTokenType::CData;
  tok.content = m_text.substr(bodyStart, close - bodyStart);
  tok.end = close + 3;
  m_pos = tok.end;
  return true;
}

bool XmlScanner::scanDoctype(XmlToken& tok) {
  const size_t p = m_pos;
  if (m_rootSeen) return fail(p, "DOCTYPE must come before the document element");
  if (m_doctypeSeen) return fail(p, "only one DOCTYPE is allowed");
  m_doctypeSeen = true;
  const size_t n = m_text.size();
  size_t q = p + 9;
  if (q >= n || !isXmlSpace(m_text[q])) return fail(q, "white space expected after <!DOCTYPE");
  while (q < n && isXmlSpace(m_text[q])) ++q;
  const size_t nameStart = q;
  q = scanName(q);
  if (q == nameStart) return fail(q, "DOCTYPE without a document element name");
  tok.name = m_text.substr(nameStart, q - nameStart);
  // External identifier: its literals are skipped, nothing is ever fetched.
  while (q < n && m_text[q] != '[' && m_text[q] != '>') {
    const char c = m_text[q];
    if (c == '"' || c == '\'') {
      const size_t close = findByte(m_text, c, q + 1);
      if (close == std::string_view::npos) return fail(q, "unterminated literal in DOCTYPE");
      q = close + 1;
    } else {
      ++q;
    }
  }
  size_t subsetStart = q, subsetEnd = q;
  if (q < n && m_text[q] == '[') {
    subsetStart = ++q;
    // Find the ']' that closes the subset: quoted literals, comments and processing
    // instructions may contain ']' and '>'.
    while (true) {
      if (q >= n) return fail(p, "unterminated DOCTYPE internal subset");
      const char c = m_text[q];
      if (c == ']') break;
      if (c == '"' || c == '\'') {
        const size_t close = findByte(m_text, c, q + 1);
        if (close == std::string_view::npos) return fail(q, "unterminated literal in the DTD");
        q = close + 1;
      } else if (m_text.compare(q, 4, "<!--") == 0) {
        const size_t close = m_text.find("-->", q + 4);
        if (close == std::string_view::npos) return fail(q, "unterminated comment in the DTD");
        q = close + 3;
      } else if (m_text.compare(q, 2, "<?") == 0) {
        const size_t close = m_text.find("?>", q + 2);
        if (close == std::string_view::npos) return fail(q, "unterminated processing instruction in the DTD");
        q = close + 2;
      } else {
        ++q;
      }
    }
    subsetEnd = q++;
    while (q < n && isXmlSpace(m_text[q])) ++q;
  }
  if (q >= n || m_text[q] != '>') return fail(q, "'>' expected at the end of the DOCTYPE");
  tok.type = XmlTokenType::Doctype;
  tok.content = m_text.substr(subsetStart, subsetEnd - subsetStart);
  tok.end = q + 1;
  std::string dtdError;
  if (!m_dtd.parseInternalSubset(tok.content, dtdError)) return fail(subsetStart + m_dtd.errorOffset(), dtdError);
  m_pos = tok.end;
  return true;
}

bool XmlScanner::scanEndTag(XmlToken& tok) {
  const size_t p = m_pos;
  const size_t n = m_text.size();
  // Normally the end tag names the open element: compare with it instead of scanning a name.
  size_t q = p + 2;
  const std::string_view expected = m_open.empty() ? std::string_view() : m_open.back();
  if (!expected.empty() && n - q > expected.size() && m_text.compare(q, expected.size(), expected) == 0 &&
      !isXmlNameByte(m_text[q + expected.size()]))
    q += expected.size();
  else q = scanName(p + 2);
  if (q == p + 2) return fail(p, "end tag without a name");
  const std::string_view name = m_text.substr(p + 2, q - p - 2);
  while (q < n && isXmlSpace(m_text[q])) ++q;
  if (q >= n || m_text[q] != '>') return fail(q, "'>' expected at the end of end tag </" + std::string(name) + ">");
  if (m_open.empty()) return fail(p, "end tag </" + std::string(name) + "> has no matching start tag");
  if (m_open.back() != name)
    return fail(p,
                "end tag </" + std::string(name) + "> does not match start tag <" + std::string(m_open.back()) + ">");
  tok.type = XmlTokenType::EndTag;
  tok.name = name;
  tok.depth = m_open.size();
  tok.end = q + 1;
  m_open.pop_back();
  if (m_open.empty()) m_rootClosed = true;
  m_pos = tok.end;
  return true;
}

bool XmlScanner::isAttributeSpecified(const XmlToken& tok, std::string_view qname) const {
  if (tok.attributes.size() > kLinearDuplicateCheck) return m_attributeNames.count(qname) != 0;
  for (const XmlAttribute& a : tok.attributes)
    if (a.qname == qname) return true;
  return false;
}

bool XmlScanner::scanStartTag(XmlToken& tok) {
  const size_t p = m_pos;
  const size_t n = m_text.size();
  size_t q = scanName(p + 1);
  if (q == p + 1) return fail(p, "'<' must start a tag; write &lt; for a literal '<'");
  const std::string_view name = m_text.substr(p + 1, q - p - 1);
  if (name.size() > kMaxNameLength)
    return fail(p + 1,
                "element name longer than the limit of " + std::to_string(kMaxNameLength) + " bytes (kMaxNameLength)");
  if (m_rootClosed) return fail(p, "only one document element is allowed; <" + std::string(name) + "> follows it");
  if (m_open.size() >= kMaxElementDepth)
    return fail(p,
                "elements nested deeper than the limit of " + std::to_string(kMaxElementDepth) + " (kMaxElementDepth)");
  tok.type = XmlTokenType::StartTag;
  tok.name = name;
  // Built only for messages: no allocation on the normal path.
  auto tagText = [name] { return "<" + std::string(name) + ">"; };
  bool usingNameSet = false;
  while (true) {
    const size_t beforeSpace = q;
    while (q < n && isXmlSpace(m_text[q])) ++q;
    if (q >= n) return fail(p, "unterminated start tag " + tagText());
    const char c = m_text[q];
    if (c == '>') {
      tok.end = q + 1;
      break;
    }
    if (c == '/') {
      if (q + 1 >= n || m_text[q + 1] != '>') return fail(q, "'>' expected after '/' in start tag " + tagText());
      tok.selfClosing = true;
      tok.end = q + 2;
      break;
    }
    if (q == beforeSpace) return fail(q, "white space expected before an attribute in start tag " + tagText());
    const size_t attrStart = q;
    q = scanName(q);
    if (q == attrStart) return fail(q, "unexpected character '" + std::string(1, c) + "' in start tag " + tagText());
    const std::string_view qname = m_text.substr(attrStart, q - attrStart);
    if (qname.size() > kMaxNameLength)
      return fail(attrStart, "attribute name longer than the limit of " + std::to_string(kMaxNameLength) +
                                 " bytes (kMaxNameLength)");
    while (q < n && isXmlSpace(m_text[q])) ++q;
    if (q >= n || m_text[q] != '=') return fail(q, "'=' expected after attribute " + quoteName(qname));
    ++q;
    while (q < n && isXmlSpace(m_text[q])) ++q;
    if (q >= n || (m_text[q] != '"' && m_text[q] != '\''))
      return fail(q, "the value of attribute " + quoteName(qname) + " must be quoted");
    const char quote = m_text[q];
    // One pass to the closing quote that also notes the first '<' and any '&': values are
    // short, and three library searches cost more than the bytes.
    size_t close = q + 1;
    size_t firstLt = std::string_view::npos;
    bool hasAmp = false;
    for (; close < n; ++close) {
      const char ch = m_text[close];
      if (ch == quote) break;
      if (ch == '<' && firstLt == std::string_view::npos) firstLt = close;
      hasAmp |= ch == '&';
    }
    if (close >= n) return fail(q, "unterminated value of attribute " + quoteName(qname));
    const std::string_view raw = m_text.substr(q + 1, close - q - 1);
    if (firstLt != std::string_view::npos)
      return fail(firstLt, "'<' is not allowed in the value of attribute " + quoteName(qname));
    if (hasAmp && !checkReferences(raw, q + 1)) return false;
    if (tok.attributes.size() >= kMaxAttributesPerElement)
      return fail(attrStart, "more attributes than the limit of " + std::to_string(kMaxAttributesPerElement) +
                                 " (kMaxAttributesPerElement) in start tag " + tagText());
    if (isAttributeSpecified(tok, qname))
      return fail(attrStart, "duplicate attribute " + quoteName(qname) + " in start tag " + tagText());
    XmlAttribute attr;
    attr.qname = qname;
    attr.rawValue = raw;
    attr.start = attrStart;
    attr.end = close + 1;
    attr.quote = quote;
    tok.attributes.push_back(attr);
    if (tok.attributes.size() > kLinearDuplicateCheck) {
      if (!usingNameSet) {
        m_attributeNames.clear();
        for (const XmlAttribute& a : tok.attributes) m_attributeNames.insert(a.qname);
        usingNameSet = true;
      } else {
        m_attributeNames.insert(qname);
      }
    }
    q = close + 1;
  }
  if (!m_dtd.empty() && !addDefaultAttributes(tok)) return false;
  tok.depth = m_open.size() + 1;
  m_rootSeen = true;
  if (tok.selfClosing) {
    if (m_open.empty()) m_rootClosed = true;
  } else {
    m_open.push_back(name);
  }
  m_pos = tok.end;
  return true;
}

// Attributes that the DTD declares with a default and the tag leaves out are appended,
// flagged, with their value pointing into the DTD. Their span is empty, placed at the
// tag's closing '>' (or "/>").
bool XmlScanner::addDefaultAttributes(XmlToken& tok) {
  const std::vector<XmlAttDecl>* decls = m_dtd.attributesOf(tok.name);
  if (!decls) return true;
  const size_t closeAt = tok.end - (tok.selfClosing ? 2 : 1);
  const size_t specified = tok.attributes.size();
  for (const XmlAttDecl& d : *decls) {
    if (!d.hasDefault) continue;
    bool present = false;
    if (specified > kLinearDuplicateCheck) {
      present = m_attributeNames.count(d.attribute) != 0;
    } else {
      for (size_t i = 0; i < specified && !present; ++i) present = tok.attributes[i].qname == d.attribute;
    }
    if (present) continue;
    // References in the default are checked as if written in the tag (located there).
    if (d.defaultValue.find('&') != std::string::npos && !checkReferences(d.defaultValue, tok.start, true))
      return false;
    if (tok.attributes.size() >= kMaxAttributesPerElement)
      return fail(tok.start, "more attributes than the limit of " + std::to_string(kMaxAttributesPerElement) +
                                 " (kMaxAttributesPerElement) in start tag <" + std::string(tok.name) + ">");
    XmlAttribute attr;
    attr.qname = d.attribute;
    attr.rawValue = d.defaultValue;
    attr.start = attr.end = closeAt;
    attr.defaulted = true;
    tok.attributes.push_back(attr);
  }
  return true;
}

// Checks every reference in raw (located at offset in the text): well-formed,
// defined, internal, free of markup, within the nesting and expansion bounds. The
// expanded size of each entity is computed once and added up per reference, so a
// billion-laughs document fails here without expanding anything.
bool XmlScanner::checkReferences(std::string_view raw, size_t offset) { return checkReferences(raw, offset, false); }

bool XmlScanner::checkReferences(std::string_view raw, size_t offset, bool oneLocation) {
  const size_t base = offset;
  size_t i = 0;
  while (true) {
    const size_t amp = findByte(raw, '&', i);
    if (amp == std::string_view::npos) return true;
    offset = oneLocation ? base : base + amp;
    Reference ref;
    if (!parseReference(raw, amp, ref)) {
      if (amp + 1 < raw.size() && raw[amp + 1] == '#') return fail(offset, "invalid character reference");
      return fail(offset, "'&' must start a reference; write &amp; for a literal '&'");
    }
    if (!ref.isChar && !isPredefinedEntity(ref.name, nullptr)) {
      size_t length = 0;
      if (!checkEntity(ref.name, offset, 1, length)) return false;
      m_expandedBytes += length;
      if (m_expandedBytes > kMaxEntityExpansionBytes)
        return fail(offset, "entity expansion exceeds the limit of " + std::to_string(kMaxEntityExpansionBytes) +
                                " bytes (kMaxEntityExpansionBytes)");
    }
    i = amp + ref.length;
  }
}

// Expanded length of one entity (memoised). Recursion is bounded by kMaxEntityNesting;
// a reference cycle is caught by the in-progress mark.
bool XmlScanner::checkEntity(std::string_view name, size_t offset, int level, size_t& expandedLength) {
  constexpr size_t kInProgress = static_cast<size_t>(-1);
  const XmlEntity* entity = m_dtd.findEntity(name);
  if (!entity) return fail(offset, "undefined entity " + quoteName(name));
  if (entity->external) return fail(offset, "External entity " + quoteName(name) + " is not loaded");
  auto memo = m_entityLength.find(entity);
  if (memo != m_entityLength.end()) {
    if (memo->second == kInProgress) return fail(offset, "entity " + quoteName(name) + " refers to itself");
    expandedLength = memo->second;
    return true;
  }
  if (level > kMaxEntityNesting)
    return fail(offset, "entities nested deeper than the limit of " + std::to_string(kMaxEntityNesting) +
                            " (kMaxEntityNesting)");
  const std::string& value = entity->value;
  if (value.find('<') != std::string::npos)
    return fail(offset, "Entity " + quoteName(name) + " contains markup, which is not supported");
  m_entityLength[entity] = kInProgress;
  size_t total = 0;
  size_t i = 0;
  while (i < value.size()) {
    const size_t amp = findByte(value, '&', i);
    if (amp == std::string_view::npos) {
      total += value.size() - i;
      break;
    }
    total += amp - i;
    Reference ref;
    if (!parseReference(value, amp, ref))
      return fail(offset, "malformed reference in the replacement text of entity " + quoteName(name));
    if (ref.isChar) {
      total += utf8Length(ref.codePoint);
    } else if (isPredefinedEntity(ref.name, nullptr)) {
      total += 1;
    } else {
      size_t inner = 0;
      if (!checkEntity(ref.name, offset, level + 1, inner)) return false;
      total += inner;
    }
    // Saturate: anything past the cap fails at the reference anyway.
    if (total > kMaxEntityExpansionBytes) total = kMaxEntityExpansionBytes + 1;
    i = amp + ref.length;
  }
  m_entityLength[entity] = total;
  expandedLength = total;
  return true;
}

bool XmlScanner::expand(std::string_view raw, std::string& out, bool attribute, int level) {
  const size_t before = out.size();
  const size_t limit = out.size() + raw.size() + kMaxEntityExpansionBytes;
  std::string err;
  if (expandRefs(m_dtd, raw, out, attribute, level, limit, err)) return true;
  out.resize(before);
  // Locate the failure when raw is part of the scanned text.
  const char* base = m_text.data();
  if (raw.data() >= base && raw.data() <= base + m_text.size())
    return fail(static_cast<size_t>(raw.data() - base), err);
  if (m_error.empty()) m_error = err;
  return false;
}

bool XmlScanner::decodeText(std::string_view raw, std::string& out) { return expand(raw, out, false, 0); }

bool XmlScanner::decodeAttributeValue(std::string_view raw, std::string& out, bool nonCdata) {
  const size_t before = out.size();
  if (!expand(raw, out, true, 0)) return false;
  if (nonCdata) collapseSpaces(out, before);
  return true;
}

void appendNormalisedLineEnds(std::string& out, std::string_view s) {
  if (std::memchr(s.data(), '\r', s.size()) == nullptr) {
    out.append(s.data(), s.size());
    return;
  }
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\r') {
      out.push_back('\n');
      if (i + 1 < s.size() && s[i + 1] == '\n') ++i;
    } else {
      out.push_back(s[i]);
    }
  }
}

}  // namespace xml
