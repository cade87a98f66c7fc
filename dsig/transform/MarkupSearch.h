// Text search limited to markup, for the text cuts of document conventions: a tag written in a
// comment, a CDATA section, a processing instruction or the document type declaration is not
// an element, so it must not open or close a cut (otherwise anything between two commented
// tags would drop out of the digest while an application still reads it).
#pragma once
#include <cstddef>
#include <string_view>

namespace markupsearch {

constexpr size_t npos = std::string_view::npos;

// First occurrence of `needle` at or after `from` that lies outside comments, CDATA sections,
// processing instructions and the document type declaration; npos when there is none.
size_t findInMarkup(std::string_view xml, std::string_view needle, size_t from = 0);

}  // namespace markupsearch
