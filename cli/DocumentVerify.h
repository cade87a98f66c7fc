// Verifying the signatures of one document held in memory, as `xmldsig verify` does for
// each FILE: the outcome as data, printed as text or JSON by the caller. The outcome says
// what was checked, so that a verdict never claims more than was verified.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/SignerReport.h"
#include "cli/VerifyRequest.h"

namespace cli {

// What happened to one reference of a verified signature.
struct ReferenceOutcome {
  int index = 0;
  std::string uri;
  bool external = false;
  // "valid", "digest-mismatch", "digest-mismatch-not-enforced", "external-data-missing",
  // "skipped-no-external-data", "not-checked", "no-such-reference", "unsupported-algorithm",
  // "canonicalization-failed", "failed".
  std::string status;
};

struct SignatureVerdict {
  int index = 0;
  std::string id;
  bool valid = false;
  int refFailReason = 0;
  bool referencesChecked = true;         // false with noReferences
  bool referenceDigestsEnforced = true;  // false with AllowXmlDigestError
  std::vector<ReferenceOutcome> references;
  // When invalid: the cause as a word ("digest-mismatch", "external-data-missing", "no-key",
  // "wrong-key", "unsupported-algorithm", "other") and one line naming it for the user.
  std::string failure;
  std::string reason;
  std::string log;                       // the verifier's text log, with req.log
  std::string logJson;                   // the same log as a JSON document, with req.log
  SignerReport signer;                   // the key that verified and the trust decision
  nlohmann::ordered_json reportDetails;  // with req.report (cli/ValidationReport.h)
};

struct DocumentVerdict {
  std::string name;
  bool loaded = false;  // read, loaded, and the signatures could be selected
  std::string error;    // when not loaded
  int numSignatures = 0;
  std::vector<std::string> warnings;  // family options given for another family
  std::vector<SignatureVerdict> signatures;
  std::string log;                       // the log of a failed load, with req.log
  nlohmann::ordered_json reportDetails;  // with req.report (cli/ValidationReport.h)

  // Results are labelled FILE#N when the document has several signatures or all are asked for.
  bool numbered(const VerifyRequest& req) const { return req.all || numSignatures > 1; }
};

// Verifies the signature the request selects (or every one with req.all) of the document
// in bytes, which is released once loaded. Never throws.
DocumentVerdict verifyDocument(const VerifyRequest& req, const std::string& name, std::string bytes);

// The text after "FILE: ": "valid", qualified by what was not checked, or "INVALID (reason)".
std::string verdictText(const SignatureVerdict& s);

}  // namespace cli
