// The JSON objects `xmldsig verify --json` and `xmldsig info --json` print for one
// document, one per line. Other programs (the Python module) call these functions on
// bytes they hold to get exactly the objects the command line prints.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/DocumentInfo.h"
#include "cli/DocumentVerify.h"
#include "cli/VerifyRequest.h"

namespace cli {

// The object every command prints for a FILE it could not read or load: {"file", "error"}.
nlohmann::ordered_json errorJson(const std::string& name, const std::string& error);

// The objects of one verified document, in the order they are printed.
std::vector<nlohmann::ordered_json> verdictJson(const DocumentVerdict& verdict, const VerifyRequest& req);
nlohmann::ordered_json infoJson(const DocumentInfo& info);

// Verifies / describes the document in bytes and returns its JSON objects.
std::vector<nlohmann::ordered_json> verifyDocumentJson(const VerifyRequest& req, const std::string& name,
                                                       std::string bytes);
nlohmann::ordered_json infoDocumentJson(const VerifyRequest& req, const std::string& name, std::string bytes);

}  // namespace cli
