// Parsing of a document's internal DTD subset. Only what the verifier needs is kept:
// general entities (internal ones with their replacement text, external ones flagged),
// parameter entities (recorded, never expanded) and attribute-list declarations.
// ELEMENT and NOTATION declarations, comments and processing instructions are skipped.
#include "support/xml/XmlDtd.h"

#include <cstring>

namespace xml {

bool decodeCharRef(std::string_view body, uint32_t& codePoint) {
  if (body.empty()) return false;
  uint32_t cp = 0;
  size_t i = 0;
  const bool hex = body[0] == 'x';
  if (hex) i = 1;
  if (i >= body.size()) return false;
  for (; i < body.size(); ++i) {
    const char c = body[i];
    uint32_t d;
    if (c >= '0' && c <= '9') {
      d = static_cast<uint32_t>(c - '0');
    } else if (hex && c >= 'a' && c <= 'f') {
      d = static_cast<uint32_t>(c - 'a' + 10);
    } else if (hex && c >= 'A' && c <= 'F') {
      d = static_cast<uint32_t>(c - 'A' + 10);
    } else {
      return false;
    }
    cp = cp * (hex ? 16u : 10u) + d;
    if (cp > 0x10FFFF) return false;
  }
  // The XML Char production: TAB, LF, CR and everything from space up, minus the
  // surrogates and U+FFFE/U+FFFF.
  const bool ok = cp == 0x9 || cp == 0xA || cp == 0xD || (cp >= 0x20 && cp <= 0xD7FF) ||
                  (cp >= 0xE000 && cp <= 0xFFFD) || cp >= 0x10000;
  if (!ok) return false;
  codePoint = cp;
  return true;
}

void appendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// One pass over the subset text; declarations are read in order and the first
// declaration of an entity or attribute is binding, as in XML.
class XmlSubsetParser {
 public:
  XmlSubsetParser(XmlDtd& dtd, std::string_view s, std::string& error) : m_dtd(dtd), m_s(s), m_error(error) {}

  bool run() {
    while (true) {
      skipSpace();
      if (m_p >= m_s.size()) return true;
      const size_t at = m_p;
      bool ok;
      if (startsWith("<!ENTITY")) {
        ok = entityDecl();
      } else if (startsWith("<!ATTLIST")) {
        ok = attlistDecl();
      } else if (startsWith("<!ELEMENT")) {
        ok = skipDeclaration(9);
      } else if (startsWith("<!NOTATION")) {
        ok = skipDeclaration(10);
      } else if (startsWith("<!--")) {
        ok = skipPast(4, "-->", "unterminated comment in the DTD");
      } else if (startsWith("<?")) {
        ok = skipPast(2, "?>", "unterminated processing instruction in the DTD");
      } else if (m_s[m_p] == '%') {
        ok = parameterReference();
      } else {
        ok = fail(at, "unexpected text in the DTD internal subset");
      }
      if (!ok) return false;
    }
  }

 private:
  bool fail(size_t at, const std::string& what) {
    m_dtd.m_errorOffset = at;
    m_error = what;
    return false;
  }
  bool startsWith(std::string_view w) const { return m_s.compare(m_p, w.size(), w) == 0; }
  void skipSpace() {
    while (m_p < m_s.size() && isXmlSpace(m_s[m_p])) ++m_p;
  }
  bool requireSpace(const char* where) {
    if (m_p >= m_s.size() || !isXmlSpace(m_s[m_p])) return fail(m_p, std::string("white space expected ") + where);
    skipSpace();
    return true;
  }
  bool name(std::string_view& out, const char* what) {
    const size_t start = m_p;
    if (m_p < m_s.size() && isXmlNameStartByte(m_s[m_p]))
      while (m_p < m_s.size() && isXmlNameByte(m_s[m_p])) ++m_p;
    if (m_p == start) return fail(start, std::string("name expected for ") + what);
    out = m_s.substr(start, m_p - start);
    return true;
  }
  bool quoted(std::string_view& out, const char* what) {
    if (m_p >= m_s.size() || (m_s[m_p] != '"' && m_s[m_p] != '\''))
      return fail(m_p, std::string("quoted ") + what + " expected");
    const size_t close = m_s.find(m_s[m_p], m_p + 1);
    if (close == std::string_view::npos) return fail(m_p, std::string("unterminated ") + what);
    out = m_s.substr(m_p + 1, close - m_p - 1);
    m_p = close + 1;
    return true;
  }
  bool endOfDeclaration(const char* what) {
    skipSpace();
    if (m_p >= m_s.size() || m_s[m_p] != '>')
      return fail(m_p, std::string("'>' expected at the end of the ") + what + " declaration");
    ++m_p;
    return true;
  }
  bool skipPast(size_t markerLen, std::string_view terminator, const char* unterminated) {
    const size_t end = m_s.find(terminator, m_p + markerLen);
    if (end == std::string_view::npos) return fail(m_p, unterminated);
    m_p = end + terminator.size();
    return true;
  }
  // ELEMENT and NOTATION: skipped up to their '>', honouring quoted literals.
  bool skipDeclaration(size_t keywordLen) {
    const size_t start = m_p;
    m_p += keywordLen;
    while (m_p < m_s.size()) {
      const char c = m_s[m_p];
      if (c == '>') {
        ++m_p;
        return true;
      }
      if (c == '"' || c == '\'') {
        const size_t close = m_s.find(c, m_p + 1);
        if (close == std::string_view::npos) break;
        m_p = close + 1;
      } else {
        ++m_p;
      }
    }
    return fail(start, "unterminated declaration in the DTD");
  }
  bool parameterReference() {
    const size_t at = m_p;
    ++m_p;
    std::string_view n;
    if (!name(n, "a parameter-entity reference")) return false;
    if (m_p >= m_s.size() || m_s[m_p] != ';') return fail(m_p, "';' expected after %" + std::string(n));
    ++m_p;
    return refuseExternalParameterEntity(n, at);  // internal ones are never expanded
  }
  // An external parameter entity would bring declarations (attribute defaults, entities)
  // that change how the document reads to any processor that loads it; this one never
  // loads anything, so a document that refers to one is not read at all.
  bool refuseExternalParameterEntity(std::string_view entityName, size_t at) {
    const XmlEntity* entity = m_dtd.findParameterEntity(entityName);
    if (!entity || !entity->external) return true;
    return fail(at, "reference to the external parameter entity %" + std::string(entityName) +
                        "; (external entities are never loaded)");
  }
  bool externalId(bool& found) {
    found = false;
    std::string_view literal;
    if (startsWith("SYSTEM")) {
      m_p += 6;
      found = true;
      return requireSpace("after SYSTEM") && quoted(literal, "system literal");
    }
    if (startsWith("PUBLIC")) {
      m_p += 6;
      found = true;
      return requireSpace("after PUBLIC") && quoted(literal, "public identifier") &&
             requireSpace("after the public identifier") && quoted(literal, "system literal");
    }
    return true;
  }

  bool entityDecl() {
    m_p += 8;
    if (!requireSpace("after <!ENTITY")) return false;
    bool parameter = false;
    if (m_p < m_s.size() && m_s[m_p] == '%') {
      parameter = true;
      ++m_p;
      if (!requireSpace("after '%' in an entity declaration")) return false;
    }
    std::string_view entityName;
    if (!name(entityName, "an entity declaration")) return false;
    if (!requireSpace("after the entity name")) return false;
    XmlEntity entity;
    bool external = false;
    if (!externalId(external)) return false;
    if (external) {
      entity.external = true;
      skipSpace();
      if (startsWith("NDATA")) {
        m_p += 5;
        std::string_view notation;
        if (!requireSpace("after NDATA") || !name(notation, "NDATA")) return false;
      }
    } else {
      const size_t valueAt = m_p;
      std::string_view literal;
      if (!quoted(literal, "entity value")) return false;
      if (!replacementText(literal, valueAt + 1, entity.value)) return false;
    }
    if (!endOfDeclaration("ENTITY")) return false;
    auto& table = parameter ? m_dtd.m_parameterEntities : m_dtd.m_entities;
    if (table.find(entityName) == table.end()) table.emplace(std::string(entityName), std::move(entity));
    return true;
  }

  // Replacement text of an entity: line ends normalised, character references
  // expanded; entity references are kept for expansion where the entity is used.
  bool replacementText(std::string_view literal, size_t literalAt, std::string& out) {
    out.reserve(literal.size());
    for (size_t i = 0; i < literal.size(); ++i) {
      const char c = literal[i];
      if (c == '\r') {
        out.push_back('\n');
        if (i + 1 < literal.size() && literal[i + 1] == '\n') ++i;
      } else if (c == '%') {
        // Parameter-entity references stay in the text; an external one is refused.
        const size_t semi = literal.find(';', i + 1);
        if (semi != std::string_view::npos &&
            !refuseExternalParameterEntity(literal.substr(i + 1, semi - i - 1), literalAt + i))
          return false;
        out.push_back(c);
      } else if (c == '&' && i + 1 < literal.size() && literal[i + 1] == '#') {
        const size_t semi = literal.find(';', i + 2);
        uint32_t cp = 0;
        if (semi == std::string_view::npos || semi - i > 12 || !decodeCharRef(literal.substr(i + 2, semi - i - 2), cp))
          return fail(literalAt + i, "invalid character reference in an entity value");
        appendUtf8(out, cp);
        i = semi;
      } else {
        out.push_back(c);
      }
    }
    return true;
  }

  bool attlistDecl() {
    m_p += 9;
    std::string_view element;
    if (!requireSpace("after <!ATTLIST") || !name(element, "an ATTLIST declaration")) return false;
    while (true) {
      skipSpace();
      if (m_p >= m_s.size()) return fail(m_p, "unterminated ATTLIST declaration");
      if (m_s[m_p] == '>') {
        ++m_p;
        return true;
      }
      XmlAttDecl decl;
      decl.element.assign(element.data(), element.size());
      std::string_view attribute;
      if (!name(attribute, "an attribute in an ATTLIST declaration")) return false;
      decl.attribute.assign(attribute.data(), attribute.size());
      if (!requireSpace("after the attribute name") || !attributeType(decl.type)) return false;
      if (!requireSpace("after the attribute type") || !defaultDecl(decl)) return false;
      addAttDecl(std::move(decl));
    }
  }

  bool enumeration(std::string& out) {
    const size_t close = m_s.find(')', m_p);
    if (close == std::string_view::npos) return fail(m_p, "unterminated enumeration in ATTLIST");
    for (size_t i = m_p; i <= close; ++i)
      if (!isXmlSpace(m_s[i])) out.push_back(m_s[i]);
    m_p = close + 1;
    return true;
  }

  bool attributeType(std::string& type) {
    if (m_p < m_s.size() && m_s[m_p] == '(') return enumeration(type);
    std::string_view keyword;
    if (!name(keyword, "an attribute type")) return false;
    type.assign(keyword.data(), keyword.size());
    if (keyword == "NOTATION") {
      if (!requireSpace("after NOTATION")) return false;
      type.push_back(' ');
      return enumeration(type);
    }
    return true;
  }

  bool defaultDecl(XmlAttDecl& decl) {
    if (m_p < m_s.size() && m_s[m_p] == '#') {
      ++m_p;
      std::string_view keyword;
      if (!name(keyword, "a default declaration")) return false;
      if (keyword == "REQUIRED" || keyword == "IMPLIED") return true;
      if (keyword != "FIXED") return fail(m_p, "#REQUIRED, #IMPLIED or #FIXED expected");
      if (!requireSpace("after #FIXED")) return false;
    }
    const size_t valueAt = m_p;
    std::string_view literal;
    if (!quoted(literal, "attribute default")) return false;
    if (literal.find('<') != std::string_view::npos) return fail(valueAt, "'<' is not allowed in an attribute default");
    decl.defaultValue.assign(literal.data(), literal.size());
    decl.hasDefault = true;
    return true;
  }

  void addAttDecl(XmlAttDecl&& decl) {
    auto it = m_dtd.m_attlists.find(decl.element);
    if (it == m_dtd.m_attlists.end()) it = m_dtd.m_attlists.emplace(decl.element, std::vector<XmlAttDecl>()).first;
    for (const XmlAttDecl& d : it->second)
      if (d.attribute == decl.attribute) return;
    it->second.push_back(std::move(decl));
  }

  XmlDtd& m_dtd;
  std::string_view m_s;
  std::string& m_error;
  size_t m_p = 0;
};

bool XmlDtd::parseInternalSubset(std::string_view subset, std::string& error) {
  m_errorOffset = 0;
  XmlSubsetParser parser(*this, subset, error);
  return parser.run();
}

const XmlEntity* XmlDtd::findEntity(std::string_view name) const {
  auto it = m_entities.find(name);
  return it == m_entities.end() ? nullptr : &it->second;
}

const XmlEntity* XmlDtd::findParameterEntity(std::string_view name) const {
  auto it = m_parameterEntities.find(name);
  return it == m_parameterEntities.end() ? nullptr : &it->second;
}

const std::vector<XmlAttDecl>* XmlDtd::attributesOf(std::string_view element) const {
  auto it = m_attlists.find(element);
  return it == m_attlists.end() ? nullptr : &it->second;
}

std::string_view XmlDtd::attributeType(std::string_view element, std::string_view attribute) const {
  const std::vector<XmlAttDecl>* decls = attributesOf(element);
  if (!decls) return {};
  for (const XmlAttDecl& d : *decls)
    if (d.attribute == attribute) return d.type;
  return {};
}

}  // namespace xml
