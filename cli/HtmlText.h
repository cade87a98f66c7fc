// Small pieces the HTML report is written with: escaping (every text that reaches the page
// goes through it, since the document being reported on is untrusted input) and field
// access that tolerates a report missing a field or holding another type.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace cli::html {

// Appends text with & < > " ' replaced by character references: safe both as element
// content and inside a quoted attribute value.
void appendEscaped(std::string& out, std::string_view text);
std::string escape(std::string_view text);

// The field as text: a string as it is, a number or boolean written out; "" when the
// field is absent, null or a structure.
std::string text(const nlohmann::ordered_json& j, const char* key);
// The field when it is an object (or array), else null.
const nlohmann::ordered_json* object(const nlohmann::ordered_json& j, const char* key);
const nlohmann::ordered_json* array(const nlohmann::ordered_json& j, const char* key);
// The field as an offset; -1 when absent or not a non-negative number.
long long offset(const nlohmann::ordered_json& j, const char* key);
bool flag(const nlohmann::ordered_json& j, const char* key);

// The short name of an algorithm identifier ("rsa-sha256", "xml-exc-c14n", "xpath"): a
// known name, else its fragment, else its last path segment, else the identifier itself.
std::string algorithmName(const std::string& uri);

}  // namespace cli::html
