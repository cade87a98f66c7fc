// The fixed style sheet and script of the HTML report, inlined into every page so that it
// opens with no network. The script only filters log lines and opens or closes branches:
// everything shown is rendered by the program, never assembled in the browser.
#pragma once

#include <string_view>

namespace cli::html {

std::string_view pageStyle();
std::string_view pageScript();

}  // namespace cli::html
