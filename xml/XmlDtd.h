// What the scanner keeps of a document's internal DTD subset: general entities (for
// expansion) and attribute declarations (defaults and types, which canonicalization
// needs). External entities are recorded as such and never fetched.
#pragma once

#include <cstddef>
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
  bool parseInternalSubset(std::string_view subset, std::string& error);

  const XmlEntity* findEntity(std::string_view name) const;
  // Declarations for the attributes of one element (empty when none).
  const std::vector<XmlAttDecl>* attributesOf(std::string_view element) const;
  // Declared type of an attribute, or "" when undeclared.
  std::string_view attributeType(std::string_view element, std::string_view attribute) const;
  bool empty() const { return m_entities.empty() && m_attlists.empty(); }

 private:
  std::map<std::string, XmlEntity, std::less<>> m_entities;
  std::map<std::string, std::vector<XmlAttDecl>, std::less<>> m_attlists;
};

}  // namespace xml

// The DTD context the signature locators carry.
using _btXmlDtd = xml::XmlDtd;
