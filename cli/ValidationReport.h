// The validation report of one document (`xmldsig verify --report`): everything the
// verification found out, per signature, as one JSON object whose shape is fixed by
// docs/report.schema.json: verdict and indication, algorithms, signer and trust, each
// reference with what it covered and its digests, signing time and time-stamp, warnings
// and the verifier's log. The HTML page is drawn from this object alone.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "cli/DocumentVerify.h"
#include "cli/VerifyRequest.h"

class ClsXmlDSig;

namespace cli {

// What the report needs from the verifier beyond the verdict, read while the verifier
// still holds the document: called by verifyDocument when req.report is set, right after
// each signature was verified and once per document.
nlohmann::ordered_json signatureReportDetails(ClsXmlDSig& dsig, const SignatureVerdict& verdict);
nlohmann::ordered_json documentReportDetails(ClsXmlDSig& dsig, const VerifyRequest& req);

// The report of a document verified with req.report set.
nlohmann::ordered_json buildValidationReport(const DocumentVerdict& verdict, const VerifyRequest& req);

// Verifies the document in bytes for its report (req.report is implied).
nlohmann::ordered_json validationReport(VerifyRequest req, const std::string& name, std::string bytes);

// The indication and sub-indication of a verdict ("TOTAL_PASSED" and "" when it passed).
struct Indication {
  std::string indication;
  std::string subIndication;
};
Indication indicationOf(const SignatureVerdict& verdict);

}  // namespace cli
