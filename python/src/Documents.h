// Verifying and describing documents for Python through the command line's per-document
// functions, so that every result is the object `xmldsig verify --json` / `info --json`
// prints for the same document and options.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/VerifyRequest.h"

namespace pyxmldsig {

// Command-line options by long name; a flag has no values.
using OptionValues = std::map<std::string, std::vector<std::string>>;

// The request those options make. False with a one-line reason for a value that does not
// parse or a key, HMAC secret or certificate that cannot be loaded: a mistake of the
// caller, found once instead of once per document.
bool requestFromOptions(const OptionValues& options, cli::VerifyRequest& req, std::string& error);

// A document: the bytes given, or the file at `name` when there are none.
struct Document {
  std::string name;  // the path, or "-" for bytes held in memory
  bool inMemory = false;
  std::string bytes;
};

// The JSON objects of one document; `loaded` is false when the only object is the
// {"file", "error"} of a document that was not read, not loaded or lacks the signature.
struct VerifyOutcome {
  bool loaded = false;
  std::string error;
  std::vector<nlohmann::ordered_json> objects;
};
VerifyOutcome verifyOne(const cli::VerifyRequest& req, Document doc);

struct InfoOutcome {
  bool loaded = false;
  std::string error;
  nlohmann::ordered_json object;
};
InfoOutcome describeOne(const cli::VerifyRequest& req, Document doc);

// One result line as the tool writes it (without the newline) and what it says.
enum class LineStatus { Valid = 0, Invalid = 1, NotVerified = 2 };
struct ResultLine {
  std::string text;
  LineStatus status;
};
// Every result line of each file in turn, as `xmldsig verify --json FILE...` prints them.
std::vector<ResultLine> verifyFiles(const cli::VerifyRequest& req, const std::vector<std::string>& paths);

}  // namespace pyxmldsig
