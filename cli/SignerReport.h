// The signer of one verified signature as `xmldsig verify` reports it (the key that
// verified, its certificate, the chain check), and the signer requirements of a request
// (pinned signers, trust anchors, CRLs, validation time) given to a verifier.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/Args.h"
#include "cli/VerifyRequest.h"

class ClsXmlDSig;

namespace cli {

extern const OptionSpec kOptSigner;
extern const OptionSpec kOptTrust;
extern const OptionSpec kOptCrl;
extern const OptionSpec kOptAt;

struct SignerReport {
  std::string source;  // "" when no key verified
  bool hasCert = false;
  std::string subject, issuer, serial, notBefore, notAfter, sha256;
  bool trustChecked = false;
  bool trusted = false;
  std::vector<std::string> chain;
  std::string validationTime, validationTimeSource, trustError;
};

// Pins the --signer keys and loads the --trust anchors and --crl lists into the verifier,
// and sets the --at time. False with a one-line reason for a file that cannot be read.
bool applySignerPolicy(ClsXmlDSig& dsig, const VerifyRequest& req, std::string& error);
// The signer of the last verification.
SignerReport signerReport(ClsXmlDSig& dsig);
// {"source", certificate fields when there is a certificate}.
nlohmann::ordered_json signerJson(const SignerReport& s);
// {"checked", "trusted", "chain", "validationTime", "validationTimeSource", "error"}.
nlohmann::ordered_json trustJson(const SignerReport& s);

}  // namespace cli
