// Verifying the signatures of one document held in memory, as `xmldsig verify` does for
// each FILE: the outcome as data, printed as text or JSON by the caller.
#pragma once

#include <string>
#include <vector>

#include "cli/VerifyRequest.h"

namespace cli {

struct SignatureVerdict {
  int index = 0;
  std::string id;
  bool valid = false;
  int refFailReason = 0;
  std::string reason;  // one line, when invalid
  std::string log;     // the verifier's text log, with req.log
};

struct DocumentVerdict {
  std::string name;
  bool loaded = false;  // read, loaded, and the signatures could be selected
  std::string error;    // when not loaded
  int numSignatures = 0;
  std::vector<SignatureVerdict> signatures;
  std::string log;  // the log of a failed load, with req.log

  // Results are labelled FILE#N when the document has several signatures or all are asked for.
  bool numbered(const VerifyRequest& req) const { return req.all || numSignatures > 1; }
};

// Verifies the signature the request selects (or every one with req.all) of the document
// in bytes, which is released once loaded. Never throws.
DocumentVerdict verifyDocument(const VerifyRequest& req, const std::string& name, std::string bytes);

}  // namespace cli
