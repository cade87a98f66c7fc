// xmldsig verify: verifies signatures end to end (every reference digest and the
// signature value) and prints one verdict per signature, as text or JSON lines.
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/VerifierSetup.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "dsig/ClsXmlDSig.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

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

struct SignatureResult {
  int index = 0;
  std::string id;
  bool valid = false;
  int refFailReason = 0;
  std::string reason;  // the last error line of the log when invalid
  std::string log;
};

struct FileResult {
  std::string file;
  bool loaded = false;
  std::string error;
  int numSignatures = 0;
  std::vector<SignatureResult> signatures;
  std::string log;  // the log of a failed load
};

// Keys and certificates the caller supplies, loaded for one verifier.
bool supplyKeys(ClsXmlDSig& dsig, const Args& args, std::string& error) {
  if (args.has("key")) {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (!key || !key->LoadFromFile(XString(args.value("key").c_str()))) {
      error = "cannot load the key or certificate '" + args.value("key") + "'";
      return false;
    }
    dsig.SetPublicKey(*key);
  }
  if (args.has("hmac-key")) {
    XString secret(args.value("hmac-key").c_str());
    XString encoding(args.value("hmac-encoding", "ascii").c_str());
    if (!dsig.SetHmacKey(secret, encoding)) {
      error = "the HMAC key is not valid " + args.value("hmac-encoding", "ascii") + " text";
      return false;
    }
  }
  if (args.has("cert") || args.has("cert-dir")) {
    RcPtr<ClsXmlCertVault> vault(ClsXmlCertVault::createNewCls());
    if (!vault) {
      error = "out of memory";
      return false;
    }
    for (const std::string& f : args.values("cert"))
      if (!vault->AddCertFile(XString(f.c_str()))) {
        error = "cannot load the certificate '" + f + "'";
        return false;
      }
    for (const std::string& d : args.values("cert-dir"))
      if (!vault->AddCertDir(XString(d.c_str()))) {
        error = "cannot load certificates from '" + d + "'";
        return false;
      }
    dsig.UseCertVault(*vault);
  }
  return true;
}

FileResult verifyFile(const std::string& file, const Args& args, int selector,
                      const std::map<int, std::string>& refData) {
  FileResult res;
  res.file = file;
  std::unique_ptr<ClsXmlDSig> dsig = loadVerifier(file, args, res.error, &res.log);
  if (!dsig) return res;
  res.numSignatures = dsig->get_NumSignatures();
  std::vector<int> indexes;
  if (args.has("all")) {
    for (int i = 0; i < res.numSignatures; ++i) indexes.push_back(i);
  } else {
    indexes.push_back(selector);
  }
  if (indexes.empty()) {
    res.error = "no signature found";
    return res;
  }
  const bool withLog = args.has("log");
  for (int index : indexes) {
    if (!selectSignature(*dsig, args, index, res.error)) return res;
    // Keys and external data belong to the selected signature: supply them after selecting.
    applyRefData(*dsig, refData);
    if (!supplyKeys(*dsig, args, res.error)) return res;
    SignatureResult s;
    s.index = dsig->get_Selector();
    StringBuffer id;
    LogNull quiet;
    if (dsig->selectedSignatureId(id, quiet)) s.id = id.getString();
    s.valid = dsig->VerifySignature(!args.has("no-references"));
    s.refFailReason = dsig->get_RefFailReason();
    if (!s.valid) {
      s.reason = dsig->lastErrorLine();
      if (s.reason.empty()) s.reason = "the signature is not valid";
    }
    if (withLog) s.log = logForStderr(*dsig, file + "#" + std::to_string(s.index));
    res.signatures.push_back(std::move(s));
  }
  res.loaded = true;
  return res;
}

std::string label(const FileResult& f, const SignatureResult& s, bool numbered) {
  return numbered ? f.file + "#" + std::to_string(s.index) : f.file;
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
  int selector = 0;
  std::map<int, std::string> refData;
  if (!jobsFromArgs(args, jobs, error) || !parseSelector(args, selector, error) ||
      !parseRefData(args, refData, error))
    return usageError("verify", error);
  Output out;
  if (!out.open(args, error)) return usageError("verify", error);

  std::vector<FileResult> results(args.positionals.size());
  bool anyUnloaded = false, anyInvalid = false;
  runInOrder(
      results.size(), jobs,
      [&](size_t i) { results[i] = verifyFile(args.positionals[i], args, selector, refData); },
      [&](size_t i) {
        FileResult& f = results[i];
        if (!f.log.empty()) std::fputs(f.log.c_str(), stderr);
        if (!f.loaded) {
          anyUnloaded = true;
          if (out.json()) {
            nlohmann::ordered_json j;
            j["file"] = f.file;
            j["error"] = f.error;
            out.jsonLine(j);
          }
          std::fprintf(stderr, "xmldsig verify: %s: %s\n", f.file.c_str(), f.error.c_str());
        }
        const bool numbered = args.has("all") || f.numSignatures > 1;
        for (const SignatureResult& s : f.signatures) {
          if (!s.log.empty()) std::fputs(s.log.c_str(), stderr);
          if (!s.valid) anyInvalid = true;
          if (out.json()) {
            nlohmann::ordered_json j;
            j["file"] = f.file;
            j["signature"] = s.index;
            j["id"] = s.id;
            j["valid"] = s.valid;
            j["refFailReason"] = s.refFailReason;
            if (!s.valid) j["reason"] = s.reason;
            if (args.has("log")) j["log"] = s.log;
            out.jsonLine(j);
          } else {
            out.write(label(f, s, numbered) + (s.valid ? ": valid\n" : ": INVALID (" + s.reason + ")\n"));
          }
        }
        f = FileResult();
      });
  if (anyUnloaded) return kExitUsage;
  return anyInvalid ? kExitInvalid : kExitOk;
}

}  // namespace cli
