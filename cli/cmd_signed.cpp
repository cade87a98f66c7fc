// xmldsig signed: prints what a verified signature covers, as the bytes each reference
// digested, so that an application reads only signed content and never an unsigned copy
// beside it.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/InputFile.h"
#include "cli/SignerReport.h"
#include "cli/VerifierSetup.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace cli {

namespace {

const OptionSpec kOptReference{"reference",
                               '\0',
                               true,
                               false,
                               "N",
                               "Print only the bytes reference N digested, with no heading (external "
                               "references too)."};

struct SignedReference {
  int index = 0;
  std::string uri;
  bool external = false;
  std::string status;
};

SignedReference referenceOf(ClsXmlDSig& d, int index) {
  SignedReference r;
  r.index = index;
  XString json;
  if (!d.GetReferenceResultJson(index, json)) return r;
  const nlohmann::json j = nlohmann::json::parse(json.getUtf8(), nullptr, false);
  if (j.is_discarded()) return r;
  r.uri = j.value("uri", std::string());
  r.external = j.value("external", false);
  r.status = j.value("status", std::string());
  return r;
}

// A heading an XML reader of the output skips: a comment naming the reference, with what
// was left out and why. "--" may not appear inside a comment, so a URI has it escaped.
std::string heading(const SignedReference& r, const std::string& note) {
  std::string uri = r.uri;
  for (size_t at = uri.find("--"); at != std::string::npos; at = uri.find("--")) uri.replace(at, 2, "-%2D");
  return "<!-- xmldsig signed: reference " + std::to_string(r.index) + " URI=\"" + uri + "\"" +
         (note.empty() ? "" : ": " + note) + " -->\n";
}

int fail(const std::string& file, const std::string& why, int status) {
  std::fprintf(stderr, "xmldsig signed: %s: %s\n", file.c_str(), why.c_str());
  return status;
}

}  // namespace

const CommandSpec& signedSpec() {
  static const CommandSpec spec{
      "signed",
      "print what a signature covers, once it verifies",
      "[--selector N | --signature-id ID] [--reference N] [--key [NAME=]FILE] [--hmac-key TEXT [--hmac-encoding ENC]] "
      "[--cert FILE]... [--cert-dir DIR]... [--signer FILE]... [--trust FILE|DIR]... [--crl FILE]... [--at TIME] "
      "[--ref-data INDEX=FILE]... [--external-dir DIR]... [--ignore-external] [--limit NAME=N]... "
      "[--option KEYWORD]... [--log] [-o FILE] FILE",
      "Verifies one signature of FILE as `xmldsig verify` does (the same options choose the signature, "
      "keys, signer requirements and external data) and, when it is valid, prints what it covers: for "
      "each same-document reference in reference order, the exact bytes the reference digested (after "
      "its transforms: the canonical form of the element or document it names, less what the transforms "
      "removed, such as the signature itself), preceded by a comment line naming the reference. An "
      "external reference gets only its comment line; --reference N prints the bytes of that one "
      "reference alone, without comment, external data included.\n\n"
      "Nothing is printed for a signature that is not valid, nor for a reference whose digest was not "
      "checked and matched (--option AllowXmlDigestError, --ignore-external): an application that "
      "reads this output reads only what the signer signed.",
      {kOptSelector,       kOptSignatureId, kOptReference, kOptKey, kOptHmacKey, kOptHmacEncoding, kOptCert,
       kOptCertDir,        kOptSigner,      kOptTrust,     kOptCrl, kOptAt,      kOptRefData,      kOptExternalDir,
       kOptIgnoreExternal, kOptLimit,       kOptUncommon,  kOptLog, kOptVerbose, kOptOutput,       kOptHelp},
      "0  the signature is valid and its covered bytes were printed\n"
      "1  the signature is not valid, or the reference asked for was not checked\n"
      "2  usage error, or FILE could not be read or loaded, or has no such signature or reference"};
  return spec;
}

int runSigned(const Args& args) {
  if (args.positionals.size() != 1) return usageError("signed", "give one FILE");
  if (args.has("selector") && args.has("signature-id"))
    return usageError("signed", "give only one of --selector and --signature-id");
  std::string error;
  VerifyRequest req;
  if (!verifyRequestFromArgs(args, req, error)) return usageError("signed", error);
  long only = -1;
  if (args.has("reference")) {
    const std::string text = args.value("reference");
    char* end = nullptr;
    only = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || only < 0)
      return usageError("signed", "--reference expects an index, not '" + text + "'");
  }
  Output out;
  if (!out.open(args, error)) return usageError("signed", error);
  const std::string& file = args.positionals[0];
  std::string bytes;
  if (!readInput(file, bytes, error)) return fail(file, error, kExitUsage);
  std::unique_ptr<ClsXmlDSig> dsig = loadVerifier(req, file, std::move(bytes), error);
  if (!dsig || !applySignerPolicy(*dsig, req, error) || !selectSignature(*dsig, req, req.selector, error))
    return fail(file, error, kExitUsage);
  applyRefData(*dsig, req);
  if (!supplyKeys(*dsig, req, error)) return fail(file, error, kExitUsage);
  const int count = dsig->get_NumReferences();
  if (only >= count) return fail(file, "the signature has no reference " + std::to_string(only), kExitUsage);

  dsig->put_KeepDigestedBytes(true);
  const bool valid = dsig->VerifySignature(true);
  if (req.log) std::fputs(logForStderr(*dsig, file).c_str(), stderr);
  if (!valid) {
    XString why;
    dsig->get_FailureText(why);
    return fail(file, "not valid, nothing printed (" + std::string(why.getUtf8()) + ")", kExitInvalid);
  }
  for (int i = 0; i < count; ++i) {
    if (only >= 0 && i != only) continue;
    const SignedReference r = referenceOf(*dsig, i);
    // Only bytes whose digest matched are signed content.
    if (r.status != "valid") {
      if (only >= 0)
        return fail(file, "reference " + std::to_string(i) + " did not verify (" + r.status + ")", kExitInvalid);
      out.write(heading(r, r.status + ", not printed"));
      continue;
    }
    if (only < 0) {
      if (r.external) {
        out.write(heading(r, "external data, not printed (--reference " + std::to_string(i) + " prints it)"));
        continue;
      }
      out.write(heading(r, ""));
    }
    RcPtr<ClsBinData> digested(ClsBinData::createNewCls());
    if (!digested || !dsig->GetDigestedBytes(i, *digested))
      return fail(file, "the bytes of reference " + std::to_string(i) + " were not kept", kExitInvalid);
    const DataBuffer& data = digested->getDb();
    out.write(std::string(reinterpret_cast<const char*>(data.getData2()), data.getSize()));
    if (only < 0) out.write("\n");
  }
  return finishOutput(out, "signed", kExitOk);
}

}  // namespace cli
