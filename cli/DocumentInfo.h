// What one document held in memory carries, before anything is verified, as
// `xmldsig info` reports it for each FILE.
#pragma once

#include <string>
#include <vector>

#include "cli/FamilyReport.h"
#include "cli/VerifyRequest.h"

namespace cli {

struct ReferenceInfo {
  std::string uri;
  bool uriPresent = false;
  bool external = false;
  std::string digestMethod;
  std::vector<std::string> transforms;
};

// A certificate the signature carries or references (KeyInfo, tokens, the --cert store).
struct CertificateInfo {
  std::string subject, issuer, notBefore, notAfter;
};

struct SignatureInfo {
  int index = 0;
  std::string id;
  std::string element;  // tag as written, e.g. "ds:Signature"
  std::string c14nMethod;
  std::string prefixList;
  std::string signatureMethod;
  bool hasSignedInfo = false;
  std::vector<ReferenceInfo> references;
  std::vector<CertificateInfo> certificates;
};

struct DocumentInfo {
  std::string name;
  bool loaded = false;
  std::string error;
  FamilyReport family;
  std::vector<std::string> warnings;  // family options given for another family
  std::vector<SignatureInfo> signatures;
  std::string log;      // the verifier's log, with req.log
  std::string logJson;  // the same log as a JSON document, with req.log
};

// Loads the document in bytes (released once loaded) with the request's options and
// verbosity and describes its signatures. Never throws.
DocumentInfo inspectDocument(const VerifyRequest& req, const std::string& name, std::string bytes);

}  // namespace cli
