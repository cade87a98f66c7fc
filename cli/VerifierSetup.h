// Setting up a verifier for one document from a request: the options that choose a
// signature and supply external data, keys and certificates, and loading the bytes.
#pragma once

#include <memory>
#include <string>

#include "cli/Args.h"
#include "cli/VerifyRequest.h"

class ClsXmlDSig;

namespace cli {

extern const OptionSpec kOptSelector;
extern const OptionSpec kOptSignatureId;
extern const OptionSpec kOptRefData;
extern const OptionSpec kOptExternalDir;
extern const OptionSpec kOptIgnoreExternal;
extern const OptionSpec kOptLimit;
// The keys and certificates a verification may use (verify, report, signed).
extern const OptionSpec kOptKey;
extern const OptionSpec kOptHmacKey;
extern const OptionSpec kOptHmacEncoding;
extern const OptionSpec kOptCert;
extern const OptionSpec kOptCertDir;

// Applies the settings every command shares to a verifier: verbose logging and the
// uncommon-option keywords.
void configureVerifier(ClsXmlDSig& dsig, const VerifyRequest& req);

// Makes a verifier configured by the request (options, external directories) and loads
// the bytes in whatever encoding they are; bytes is released once copied. Null with a
// one-line reason in error when the document does not load (the verifier's located parser
// message); with req.log the verifier's log is appended to logOut, headed by name.
std::unique_ptr<ClsXmlDSig> loadVerifier(const VerifyRequest& req, const std::string& name, std::string bytes,
                                         std::string& error, std::string* logOut = nullptr);

// Selects the signature: by req.signatureId when given, else by index. False with a reason.
bool selectSignature(ClsXmlDSig& dsig, const VerifyRequest& req, int index, std::string& error);

// Gives the external data of the request to the selected signature.
void applyRefData(ClsXmlDSig& dsig, const VerifyRequest& req);

// Loads the request's key, HMAC secret and certificates into the verifier for the selected
// signature. False with a one-line reason when one cannot be loaded.
bool supplyKeys(ClsXmlDSig& dsig, const VerifyRequest& req, std::string& error);

// The verifier's log of the last call, headed by the document's name, for standard error.
std::string logForStderr(ClsXmlDSig& dsig, const std::string& name);

}  // namespace cli
