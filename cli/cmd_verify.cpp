// xmldsig verify: verifies signatures end to end (every reference digest and the
// signature value) and prints one verdict per signature, as text or JSON lines.
#include <string>
#include <utility>
#include <vector>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/DocumentJson.h"
#include "cli/DocumentVerify.h"
#include "cli/InputFile.h"
#include "cli/VerifierSetup.h"

namespace cli {

namespace {

const OptionSpec kOptAll{"all", '\0', false, false, "", "Verify every signature of each file, one result each."};
const OptionSpec kOptNoReferences{"no-references", '\0', false, false, "",
                                  "Check only the signature value over SignedInfo, not the reference digests."};
const OptionSpec kOptReferencesOnly{"references-only", '\0', false, false, "",
                                    "Check only the reference digests and print each one (as `xmldsig refs`)."};
const OptionSpec kOptKey{"key", '\0', true, false, "FILE",
                         "A public key or certificate (PEM or DER) to verify with, after the keys the "
                         "signature's KeyInfo yields."};
const OptionSpec kOptHmacKey{"hmac-key", '\0', true, false, "TEXT", "The secret of an HMAC signature."};
const OptionSpec kOptHmacEncoding{"hmac-encoding", '\0', true, false, "ENC",
                                  "How --hmac-key is written: ascii (default), hex, base64, ..."};
const OptionSpec kOptCert{"cert", '\0', true, true, "FILE",
                          "A certificate (PEM or DER) for the store that KeyInfo references are looked up in; "
                          "may be repeated."};
const OptionSpec kOptCertDir{"cert-dir", '\0', true, true, "DIR",
                             "Every certificate file of DIR for the store; may be repeated."};

// Reads one FILE and verifies it; a file that cannot be read gets its error as its verdict.
DocumentVerdict verifyInput(const std::string& file, const VerifyRequest& req) {
  std::string bytes, error;
  if (!readInput(file, bytes, error)) {
    DocumentVerdict unread;
    unread.name = file;
    unread.error = error;
    return unread;
  }
  return verifyDocument(req, file, std::move(bytes));
}

std::string label(const DocumentVerdict& f, const SignatureVerdict& s, bool numbered) {
  return numbered ? f.name + "#" + std::to_string(s.index) : f.name;
}

}  // namespace

const CommandSpec& verifySpec() {
  static const CommandSpec spec{
      "verify",
      "verify XML signatures (reference digests and signature value)",
      "[--selector N | --signature-id ID | --all] [--no-references | --references-only] [--key FILE] "
      "[--hmac-key TEXT [--hmac-encoding ENC]] [--cert FILE]... [--cert-dir DIR]... [--ref-data INDEX=FILE]... "
      "[--external-dir DIR]... [--ignore-external] [--option KEYWORD]... [--json] [--log] [--verbose] [-j N] "
      "[-o FILE] FILE...",
      "For each FILE (\"-\" reads standard input), verifies one signature (the first, or the one "
      "chosen with --selector or --signature-id), or every signature with --all: the digest of every "
      "Reference, then the signature value over the canonical SignedInfo with the keys the signature's "
      "KeyInfo yields (key values, embedded certificates, certificates referenced by issuer and serial, "
      "subject or key identifier and found among --cert/--cert-dir, WS-Security token references), then "
      "the key given with --key, or the HMAC secret of --hmac-key.\n\n"
      "Prints one line per signature: \"FILE: valid\" or \"FILE: INVALID (reason)\", where the reason is "
      "the last error the verifier logged (FILE#N when the file has several signatures or with --all). "
      "With --json, one object per line: {\"file\", \"signature\", \"id\", \"valid\", \"refFailReason\", "
      "\"reason\" (when invalid), \"log\" (with --log)}, or {\"file\", \"error\"} for a file that did not "
      "load.\n\n"
      "The verifier does not decide whether the signer is trusted: a valid signature means the signed "
      "data is intact and was signed with one of the keys tried (see --log --verbose). --key and --cert "
      "add keys to try; they do not restrict which keys count, so compare the signer with the one you "
      "expect.\n\n"
      "Document families: Saudi ZATCA invoices need --option ZATCA and Malaysian MyInvois documents "
      "--option MYINVOIS; the other families (Chilean SII, Mexican DODA, Polish and Italian health "
      "documents, HL7, SK-XML, SWIFT SAA, ebXML, EBICS, CMA STP) are recognised from the document.",
      {kOptSelector, kOptSignatureId, kOptAll, kOptNoReferences, kOptReferencesOnly, kOptKey, kOptHmacKey,
       kOptHmacEncoding, kOptCert, kOptCertDir, kOptRefData, kOptExternalDir, kOptIgnoreExternal, kOptUncommon,
       kOptJson, kOptLog, kOptVerbose, kOptJobs, kOptOutput, kOptHelp},
      "0  every verified signature is valid\n"
      "1  a signature is not valid\n"
      "2  usage error, or a FILE could not be read, loaded, or has no such signature"};
  return spec;
}

int runVerify(const Args& args) {
  if (args.has("references-only")) return runReferences(args);
  if (args.positionals.empty()) return usageError("verify", "no FILE given");
  if ((args.has("selector") ? 1 : 0) + (args.has("signature-id") ? 1 : 0) + (args.has("all") ? 1 : 0) > 1)
    return usageError("verify", "give only one of --selector, --signature-id and --all");
  unsigned jobs = 1;
  std::string error;
  VerifyRequest req;
  if (!jobsFromArgs(args, jobs, error) || !verifyRequestFromArgs(args, req, error))
    return usageError("verify", error);
  Output out;
  if (!out.open(args, error)) return usageError("verify", error);

  std::vector<DocumentVerdict> results(args.positionals.size());
  bool anyUnloaded = false, anyInvalid = false;
  runInOrder(
      results.size(), jobs, [&](size_t i) { results[i] = verifyInput(args.positionals[i], req); },
      [&](size_t i) {
        DocumentVerdict& f = results[i];
        if (!f.log.empty()) std::fputs(f.log.c_str(), stderr);
        for (const std::string& w : f.warnings)
          std::fprintf(stderr, "xmldsig verify: %s: warning: %s\n", f.name.c_str(), w.c_str());
        if (!f.loaded) {
          anyUnloaded = true;
          std::fprintf(stderr, "xmldsig verify: %s: %s\n", f.name.c_str(), f.error.c_str());
        }
        for (const SignatureVerdict& s : f.signatures) {
          if (!s.log.empty()) std::fputs(s.log.c_str(), stderr);
          if (!s.valid) anyInvalid = true;
        }
        if (out.json()) {
          for (const nlohmann::ordered_json& j : verdictJson(f, req)) out.jsonLine(j);
        } else {
          // Every FILE gets a line of its own, also one that could not be read or loaded.
          if (!f.loaded) out.write(f.name + ": ERROR (" + f.error + ")\n");
          const bool numbered = f.numbered(req);
          for (const SignatureVerdict& s : f.signatures) out.write(label(f, s, numbered) + ": " + verdictText(s) + "\n");
        }
        f = DocumentVerdict();
      });
  return finishOutput(out, "verify", anyUnloaded ? kExitUsage : anyInvalid ? kExitInvalid : kExitOk);
}

}  // namespace cli
