// Help texts of the tool, laid out like a manual page.
#pragma once

#include <string>

namespace cli {

constexpr const char* kToolVersion = "0.1.0";

std::string toolHelp();
// Wraps text at 78 columns with every line indented by indent spaces; blank lines in the
// text separate paragraphs.
std::string wrapParagraphs(const std::string& text, size_t indent);

}  // namespace cli
