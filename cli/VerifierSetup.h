// Setting up a verifier from the command line: the options that choose a signature and
// supply external data, keys and certificates, and loading one input file.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "cli/Args.h"

class ClsXmlDSig;

namespace cli {

extern const OptionSpec kOptSelector;
extern const OptionSpec kOptSignatureId;
extern const OptionSpec kOptRefData;
extern const OptionSpec kOptExternalDir;
extern const OptionSpec kOptIgnoreExternal;

// "INDEX=FILE" pairs of --ref-data; false with a one-line reason for a malformed one.
bool parseRefData(const Args& args, std::map<int, std::string>& out, std::string& error);
// --selector (0 when absent); false with a reason for a value that is not an index.
bool parseSelector(const Args& args, int& selector, std::string& error);

// Reads the file ("-" = standard input), makes a verifier configured by the shared options
// (--verbose, --option, --external-dir, --ignore-external) and loads the bytes in whatever
// encoding they are. Null with a one-line reason in error when the file cannot be read or
// does not load (the verifier's located parser message).
std::unique_ptr<ClsXmlDSig> loadVerifier(const std::string& file, const Args& args, std::string& error,
                                         std::string* logOut = nullptr);

// Selects the signature: by --signature-id when given, else by index. False with a reason.
bool selectSignature(ClsXmlDSig& dsig, const Args& args, int index, std::string& error);

// Gives the external data of --ref-data to the selected signature.
void applyRefData(ClsXmlDSig& dsig, const std::map<int, std::string>& refData);

}  // namespace cli
