// The verifier's structured log as a collapsible tree: one <details> per context, one line
// per entry. The branch leading to the error that ended a failed verification is open and
// marked; every other branch starts closed (one holding some other error is marked too).
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace cli::html {

// log is the report's "log" field: {"entries": [...]}, a text when the log did not parse,
// or null. failed opens the failing branch (a valid signature's log stays closed).
void appendLogTree(std::string& out, const nlohmann::ordered_json& log, bool failed);

}  // namespace cli::html
