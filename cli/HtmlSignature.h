// One signature of a file's report as HTML: the verdict banner, signer and trust,
// algorithms and times, the references with their digests, warnings and the log.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace cli::html {

// The verdict in plain words for the banner ("valid", "invalid", "indeterminate").
std::string verdictOf(const nlohmann::ordered_json& sig);

// The holder's "warnings" ({"code", "text"} each) as a list; nothing when there are none.
void appendWarnings(std::string& out, const nlohmann::ordered_json& holder);

// anchor is the element id of the article; firstTint is the running number (tint) of the
// signature's first reference in the file, as the source view numbers them.
void appendSignature(std::string& out, const nlohmann::ordered_json& sig, const std::string& anchor, int firstTint);

}  // namespace cli::html
