// xmldsig timestamp: adds a XAdES signature time-stamp from an RFC 3161 authority to a
// signature, or checks the one a signature carries.
#include <memory>
#include <string>
#include <utility>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/DocumentJson.h"
#include "cli/InputFile.h"
#include "cli/VerifierSetup.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsJsonObject.h"
#include "support/ClsStringBuilder.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace cli {

namespace {

const OptionSpec kOptTsa{"tsa", '\0', true, false, "URL", "add: the time-stamp authority's URL (required)."};
const OptionSpec kOptHash{
    "hash", '\0', true, false, "ALG", "add: the digest the authority stamps: sha256 (default), sha1, sha384, sha512."};
const OptionSpec kOptTsaUser{"tsa-user", '\0', true, false, "NAME", "add: user name for the authority (HTTP basic)."};
const OptionSpec kOptTsaPassword{"tsa-password", '\0', true, false, "TEXT", "add: password for the authority."};
const OptionSpec kOptNoTsaCert{
    "no-tsa-cert", '\0', false, false, "", "add: do not ask the authority to include its certificate in the token."};

int add(const std::string& file, const Args& args) {
  if (!args.has("tsa")) return usageError("timestamp", "add needs --tsa URL");
  std::string error;
  VerifyRequest req;
  if (!verifyRequestFromArgs(args, req, error)) return usageError("timestamp", error);
  Output out;
  if (!out.open(args, error)) return usageError("timestamp", error);
  std::string bytes;
  if (!readInput(file, bytes, error)) return usageError("timestamp", error);
  std::unique_ptr<ClsXmlDSig> dsig = loadVerifier(req, file, std::move(bytes), error);
  if (!dsig || !selectSignature(*dsig, req, req.selector, error)) return usageError("timestamp", file + ": " + error);

  RcPtr<ClsJsonObject> options(ClsJsonObject::createNewCls());
  RcPtr<ClsStringBuilder> result(ClsStringBuilder::createNewCls());
  if (!options || !result) return usageError("timestamp", "out of memory");
  options->UpdateString("tsaUrl", args.value("tsa").c_str());
  options->UpdateString("hashAlgorithm", args.value("hash", "sha256").c_str());
  options->UpdateBool("requestTsaCert", !args.has("no-tsa-cert"));
  if (args.has("tsa-user")) options->UpdateString("tsaUsername", args.value("tsa-user").c_str());
  if (args.has("tsa-password")) options->UpdateString("tsaPassword", args.value("tsa-password").c_str());

  const bool ok = dsig->AddEncapsulatedTimeStamp(*options, *result);
  if (args.has("log")) std::fputs(logForStderr(*dsig, file).c_str(), stderr);
  if (!ok) {
    std::fprintf(stderr, "xmldsig timestamp: %s: %s\n", file.c_str(), dsig->lastErrorLine().c_str());
    return kExitInvalid;
  }
  // The document always comes back; an authority that could not be reached leaves the
  // token empty, which the user must hear about. Such a document goes to standard output
  // only: a file named by -o (the input itself, when stamping in place) is left as it was.
  if (dsig->lastErrorText().find("timestampTokenSize") == std::string::npos) {
    const std::string target = args.value("output", "-");
    std::fprintf(stderr, "xmldsig timestamp: %s: no token was obtained (%s); %s\n", file.c_str(),
                 dsig->lastErrorLine().c_str(),
                 target == "-" ? "the time-stamp element is empty" : (target + " left unchanged").c_str());
    out.write(result->getXString().getUtf8());
    return kExitInvalid;  // not committed
  }
  out.write(result->getXString().getUtf8());
  return finishOutput(out, "timestamp", kExitOk);
}

int check(const std::string& file, const Args& args) {
  std::string error;
  VerifyRequest req;
  if (!verifyRequestFromArgs(args, req, error)) return usageError("timestamp", error);
  Output out;
  if (!out.open(args, error)) return usageError("timestamp", error);
  std::string bytes;
  std::unique_ptr<ClsXmlDSig> dsig;
  if (!readInput(file, bytes, error) || !(dsig = loadVerifier(req, file, std::move(bytes), error)) ||
      !selectSignature(*dsig, req, req.selector, error)) {
    // The same error object as every other command's JSON output.
    if (out.json()) out.jsonLine(errorJson(file, error));
    std::fprintf(stderr, "xmldsig timestamp: %s: %s\n", file.c_str(), error.c_str());
    return finishOutput(out, "timestamp", kExitUsage);
  }
  const int index = dsig->get_Selector();

  bool valid = false;
  std::string verdict;
  if (!dsig->HasEncapsulatedTimeStamp()) {
    verdict = "no time-stamp";
  } else {
    // The time-stamp is checked together with the signature value it covers.
    dsig->put_UncommonOptions(XString("VerifyEncapsulatedTimeStamp"));
    valid = dsig->VerifySignature(false);
    verdict = valid ? "time-stamp valid" : "INVALID (" + dsig->lastErrorLine() + ")";
  }
  if (args.has("log")) std::fputs(logForStderr(*dsig, file).c_str(), stderr);
  if (out.json()) {
    nlohmann::ordered_json j;
    j["file"] = file;
    j["signature"] = index;
    j["hasTimeStamp"] = verdict != "no time-stamp";
    j["valid"] = valid;
    if (!valid) j["reason"] = verdict;
    out.jsonLine(j);
  } else {
    out.write(file + "#" + std::to_string(index) + ": " + verdict + "\n");
  }
  return finishOutput(out, "timestamp", valid ? kExitOk : kExitInvalid);
}

}  // namespace

const CommandSpec& timestampSpec() {
  static const CommandSpec spec{
      "timestamp",
      "add or check a XAdES signature time-stamp",
      "add FILE --tsa URL [--hash ALG] [--tsa-user NAME --tsa-password TEXT] [--no-tsa-cert] "
      "[--selector N | --signature-id ID] [-o OUT] [--log]\n"
      "       xmldsig timestamp check FILE [--selector N | --signature-id ID] [--json] [--log]",
      "add: asks the time-stamp authority at URL for an RFC 3161 token over the exclusive canonical "
      "SignatureValue of the signature (the first, or the one chosen) and writes the document with a "
      "xades:SignatureTimeStamp holding the token, placed in the signature's existing XAdES "
      "properties or in new ones (a new Object when the signature has none). The signature's "
      "SignatureValue must carry an Id. When the authority cannot be reached the document is still "
      "written to standard output, with an empty token, and the exit status is 1; a file named by -o "
      "(the input itself, to stamp in place) is then left as it was.\n\n"
      "check: tells whether the signature carries an encapsulated time-stamp and verifies it: the "
      "token's CMS signature with the certificate the token carries, and that the token stamps the "
      "canonical SignatureValue; the signature value itself is verified too. Trust in the "
      "authority's certificate is not decided.",
      {kOptTsa, kOptHash, kOptTsaUser, kOptTsaPassword, kOptNoTsaCert, kOptSelector, kOptSignatureId, kOptJson, kOptLog,
       kOptVerbose, kOptUncommon, kOptOutput, kOptHelp},
      "0  add: the time-stamp was added; check: the time-stamp is valid\n"
      "1  add: no token was obtained or the signature cannot take one; check: no time-stamp, or it is "
      "not valid\n"
      "2  usage error, or FILE could not be read or loaded"};
  return spec;
}

int runTimestamp(const Args& args) {
  if (args.positionals.size() != 2 || (args.positionals[0] != "add" && args.positionals[0] != "check"))
    return usageError("timestamp", "expected 'timestamp add FILE --tsa URL' or 'timestamp check FILE'");
  return args.positionals[0] == "add" ? add(args.positionals[1], args) : check(args.positionals[1], args);
}

}  // namespace cli
