// Everything a command line can ask of the verifier for one document, as plain data, so
// that the per-document work can run without a command line (the Python module builds
// one of these itself). Each option is one row of a table in VerifyRequest.cpp.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/Args.h"

namespace cli {

struct VerifyRequest {
  // Which signature: signatureId when not empty, else selector; every one with all.
  int selector = 0;
  std::string signatureId;
  bool all = false;
  bool noReferences = false;  // check the signature value only

  // Keys and certificates tried after the ones the signature's KeyInfo yields.
  std::string keyFile;
  // Keys by name (--key NAME=FILE): tried for a signature whose KeyInfo has that KeyName.
  std::vector<std::pair<std::string, std::string>> namedKeys;
  std::string hmacKey;
  bool hasHmacKey = false;  // an empty secret is still a secret
  std::string hmacEncoding = "ascii";
  std::vector<std::string> certFiles;
  std::vector<std::string> certDirs;

  // What the signer must be: pinned keys, trust anchors with CRLs and a validation time.
  std::vector<std::string> signerFiles;
  std::vector<std::string> trustPaths;
  std::vector<std::string> crlFiles;
  std::string validationTime;  // ISO 8601 UTC, as given

  // External data: by reference index, and directories searched by file name.
  std::map<int, std::string> refData;
  std::vector<std::string> externalDirs;
  bool ignoreExternal = false;

  // Work limits (--limit NAME=N); 0 keeps the verifier's default.
  int maxReferences = 0;
  int maxTransforms = 0;
  long long maxCanonicalBytes = 0;

  std::vector<std::string> options;  // uncommon-option keywords, as given
  bool verbose = false;
  bool log = false;  // keep the verifier's log of each document
  // Gather what the validation report adds (cli/ValidationReport.h), and with reportSource
  // the document text too.
  bool report = false;
  bool reportSource = false;
};

// Fills the request from the options the command accepted. False with a one-line reason
// for a value that does not parse.
bool verifyRequestFromArgs(const Args& args, VerifyRequest& out, std::string& error);

}  // namespace cli
