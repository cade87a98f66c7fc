// What the scanner keeps of a document's internal DTD subset: general entities (for
// expansion) and attribute declarations (defaults and types, which canonicalization
// needs). External entities are recorded as such and never fetched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace xml {

// Bounds on entity expansion (billion laughs and quadratic blow-up end with an error).
constexpr size_t kMaxEntityExpansionBytes = 32u * 1024u * 1024u;  // total expanded per document
constexpr int kMaxEntityNesting = 16;                             // entity within entity

struct XmlEntity {
  std::string value;      // replacement text (literal value, parameter refs not expanded)
  bool external = false;  // SYSTEM or PUBLIC: never read
};

struct XmlAttDecl {
  std::string element;
  std::string attribute;
  std::string type;          // "CDATA", "ID", "NMTOKENS", ... or an enumeration "(a|b)"
  std::string defaultValue;  // raw default literal, when one is declared
  bool hasDefault = false;   // declared with a literal default (not #REQUIRED / #IMPLIED)
  bool isCdata() const { return type == "CDATA"; }
};

class XmlDtd {
 public:
  // Parses an internal subset; false with a message on a malformed declaration.
  // Entity values are stored as replacement text: line ends normalised and character
  // references expanded, entity references left for expansion at use.
  bool parseInternalSubset(std::string_view subset, std::string& error);
  // Offset within the subset of the last parse error.
  size_t errorOffset() const { return m_errorOffset; }

  const XmlEntity* findEntity(std::string_view name) const;
  // Parameter entities are recorded but never expanded.
  const XmlEntity* findParameterEntity(std::string_view name) const;
  // Declarations for the attributes of one element (empty when none).
  const std::vector<XmlAttDecl>* attributesOf(std::string_view element) const;
  // Declared type of an attribute, or "" when undeclared.
  std::string_view attributeType(std::string_view element, std::string_view attribute) const;
  bool empty() const { return m_entities.empty() && m_attlists.empty(); }

 private:
  friend class XmlSubsetParser;
  std::map<std::string, XmlEntity, std::less<>> m_entities;
  std::map<std::string, XmlEntity, std::less<>> m_parameterEntities;
  std::map<std::string, std::vector<XmlAttDecl>, std::less<>> m_attlists;
  size_t m_errorOffset = 0;
};

// Byte classes shared by the scanner and the DTD parser. Names are any run of ASCII
// letters, digits, '-', '.', '_', ':' and non-ASCII bytes (UTF-8 names are common; the
// Unicode name classes are not checked).
namespace detail {
// One lookup per byte: names are scanned in every tag of every document.
struct NameByteClasses {
  bool nameByte[256] = {};
  bool nameStartByte[256] = {};
  constexpr NameByteClasses() {
    for (int c = 0; c < 256; ++c) {
      const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      const bool digit = c >= '0' && c <= '9';
      nameByte[c] = c >= 0x80 || letter || digit || c == '-' || c == '.' || c == '_' || c == ':';
      nameStartByte[c] = nameByte[c] && !digit && c != '-' && c != '.';
    }
  }
};
inline constexpr NameByteClasses kNameByteClasses{};
}  // namespace detail

inline bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
inline bool isXmlNameByte(char ch) { return detail::kNameByteClasses.nameByte[static_cast<unsigned char>(ch)]; }

// First byte of a name: not a digit, '-' or '.'.
inline bool isXmlNameStartByte(char ch) {
  return detail::kNameByteClasses.nameStartByte[static_cast<unsigned char>(ch)];
}

// The body of a character reference (what stands between "&#" and ";", e.g. "x41" or
// "65") as a code point; false when malformed or not an XML character.
bool decodeCharRef(std::string_view body, uint32_t& codePoint);
void appendUtf8(std::string& out, uint32_t codePoint);
inline size_t utf8Length(uint32_t cp) { return cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4; }

}  // namespace xml

// The DTD context the signature locators carry.
using _btXmlDtd = xml::XmlDtd;
