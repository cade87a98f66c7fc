// The one XML scanner of the project. It walks UTF-8 XML text token by token and
// reports every token with its exact byte span, so that the element tree, the
// canonicalizer and the text locators of signatures all see the same document.
//
// It checks well-formedness as it goes (tag nesting, attribute syntax, duplicate
// attributes, references) and stops at the first error with a located message.
// It never recurses, never fetches anything external, and bounds every resource a
// hostile document could inflate (see the limits below).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "support/xml/XmlDtd.h"

namespace xml {

// Limits. Each failure names the limit in its message.
constexpr size_t kMaxElementDepth = 5000;           // nesting of elements
constexpr size_t kMaxAttributesPerElement = 50000;  // attributes on one start tag
constexpr size_t kMaxNameLength = 50000;            // bytes in one element or attribute name

enum class XmlTokenType {
  XmlDecl,   // <?xml ... ?>            content = the text between "<?xml" and "?>"
  Doctype,   // <!DOCTYPE ...>          content = the internal subset (between [ and ]), may be empty
  StartTag,  // <a ...> or <a .../>     name, attributes, selfClosing
  EndTag,    // </a>                    name (never reported for a self-closing start tag)
  Text,      // character data          content = raw text, references not expanded
  CData,     // <![CDATA[...]]>         content = the section's body
  Comment,   // <!--...-->              content = the comment's body
  PI,        // <?target data?>         name = target, content = data (leading blanks skipped)
};

struct XmlAttribute {
  std::string_view qname;     // as written, e.g. "wsu:Id"
  std::string_view rawValue;  // between the quotes, references not expanded
  size_t start = 0;           // offset of the name in the text
  size_t end = 0;             // offset just past the closing quote
  char quote = '"';
  bool defaulted = false;  // supplied by a DTD ATTLIST default (rawValue points into the DTD)
};

struct XmlToken {
  XmlTokenType type = XmlTokenType::Text;
  size_t start = 0;  // offset of the first byte of the token
  size_t end = 0;    // offset just past its last byte
  std::string_view name;
  std::string_view content;
  bool selfClosing = false;
  // Element depth: for StartTag/EndTag the depth of that element (document element = 1);
  // for other tokens the depth of the element that contains them (0 outside the root).
  size_t depth = 0;
  std::vector<XmlAttribute> attributes;  // StartTag only (DTD defaults appended, flagged)
};

class XmlScanner {
 public:
  // The text must outlive the scanner and the tokens it reports.
  explicit XmlScanner(std::string_view text);

  // Reads the next token into tok. Returns false at the end of the document (after the
  // document element closed and the trailing misc was read) or on an error; check
  // hasError(). Reaching the end without a document element is an error.
  bool next(XmlToken& tok);

  bool hasError() const { return !m_error.empty(); }
  // "line L, column C: what is wrong" (1-based; columns count bytes).
  const std::string& errorMessage() const { return m_error; }
  size_t errorOffset() const { return m_errorOffset; }

  // The document's internal DTD subset as parsed so far (entities, attribute defaults).
  const XmlDtd& dtd() const { return m_dtd; }

  // Expands character and entity references in raw character data and normalises line
  // ends (CRLF and lone CR to LF), appending to out. False (with an error message here)
  // for an undefined entity or an expansion beyond the limits.
  bool decodeText(std::string_view raw, std::string& out);
  // Attribute-value normalisation: references expanded, each literal TAB/CR/LF (after
  // line-end normalisation) becomes a space; for attributes the DTD declares with a
  // non-CDATA type leading/trailing spaces are dropped and inner runs collapsed.
  bool decodeAttributeValue(std::string_view raw, std::string& out, bool nonCdata = false);

  // 1-based line and column of an offset (for messages of the scanner's users).
  void lineAndColumn(size_t offset, size_t& line, size_t& column) const;
  std::string_view text() const { return m_text; }

  // Hands the parsed DTD to a longer-lived owner (the element tree). Views of defaulted
  // attribute values stay valid: moving the DTD keeps its entries in place.
  XmlDtd releaseDtd() { return std::move(m_dtd); }

 private:
  bool fail(size_t offset, const std::string& what);
  bool scanMarkup(XmlToken& tok);
  bool scanStartTag(XmlToken& tok);
  bool scanEndTag(XmlToken& tok);
  bool scanText(XmlToken& tok);
  bool scanDoctype(XmlToken& tok);
  bool checkReferences(std::string_view raw, size_t offset);
  bool expand(std::string_view raw, std::string& out, bool attribute, int level);
  // With oneLocation every problem is reported at offset (references in a DTD default).
  bool checkReferences(std::string_view raw, size_t offset, bool oneLocation);
  size_t scanName(size_t from) const;
  bool checkXmlDeclaration(size_t at, std::string_view body);
  bool scanPI(XmlToken& tok);
  bool scanComment(XmlToken& tok);
  bool scanCData(XmlToken& tok);
  bool addDefaultAttributes(XmlToken& tok);
  bool isAttributeSpecified(const XmlToken& tok, std::string_view qname) const;
  bool checkEntity(std::string_view name, size_t offset, int level, size_t& expandedLength);

  std::string_view m_text;
  size_t m_pos = 0;
  std::vector<std::string_view> m_open;  // names of the open elements
  bool m_rootSeen = false;
  bool m_rootClosed = false;
  bool m_pendingEnd = false;  // a self-closing tag's implied end has been consumed
  std::string m_error;
  size_t m_errorOffset = 0;
  XmlDtd m_dtd;
  size_t m_expandedBytes = 0;
  size_t m_bodyStart = 0;  // 3 after a UTF-8 byte-order mark, else 0
  bool m_doctypeSeen = false;
  // Expanded length of each entity referenced so far (memo for the expansion bound).
  std::unordered_map<const XmlEntity*, size_t> m_entityLength;
  // Attribute names of the current start tag once it has many (duplicate detection).
  std::unordered_set<std::string_view> m_attributeNames;
};

// Reference expansion with a given DTD, for owners of parsed text that outlive the
// scanner (the element tree). Same rules as XmlScanner::decodeText and
// decodeAttributeValue; on failure *error (when given) says why, without a location.
bool expandText(const XmlDtd& dtd, std::string_view raw, std::string& out, std::string* error);
bool expandAttributeValue(const XmlDtd& dtd, std::string_view raw, std::string& out, bool nonCdata, std::string* error);

// Helpers for names.
inline std::string_view prefixOf(std::string_view qname) {
  size_t c = qname.find(':');
  return c == std::string_view::npos ? std::string_view() : qname.substr(0, c);
}
inline std::string_view localNameOf(std::string_view qname) {
  size_t c = qname.find(':');
  return c == std::string_view::npos ? qname : qname.substr(c + 1);
}

// Appends s with its line ends normalised (CRLF and lone CR to LF), as the parser reads all
// text of a document, CDATA included.
void appendNormalisedLineEnds(std::string& out, std::string_view s);

}  // namespace xml
