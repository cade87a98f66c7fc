// The character-level rules of canonical XML output: escaping of text and attribute
// values, and line-end normalisation of the sections the scanner hands over raw
// (comments, processing instructions, CDATA).
#pragma once

#include <string>
#include <string_view>

namespace xml {

// Text node: & < > and CR become &amp; &lt; &gt; &#xD;.
void appendEscapedText(std::string& out, std::string_view text);
// Attribute value: & < " TAB LF CR become &amp; &lt; &quot; &#x9; &#xA; &#xD;.
void appendEscapedAttribute(std::string& out, std::string_view value);
// Whether appendEscapedAttribute would change value.
bool attributeNeedsEscaping(std::string_view value);
// Copies text with CRLF and lone CR turned into LF.
void appendNormalizedLineEnds(std::string& out, std::string_view text);
// Character data as written in the document (a CDATA body, or text without references):
// line ends normalised, then escaped as text, in one pass. When ampersandIsReference is
// set, "&amp;", "&lt;" and "&gt;" are copied (they are their own canonical form) and any
// other reference stops it with false (the text then needs reference expansion first; what
// was appended so far is for the caller to drop).
bool appendEscapedRawText(std::string& out, std::string_view raw, bool ampersandIsReference);
// Whether text content, as written (references unexpanded), is its own canonical form: no
// CR, no '>', and no reference but &amp; &lt; &gt;.
bool isCanonicalTextAsWritten(std::string_view raw);

}  // namespace xml
