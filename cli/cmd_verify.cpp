// xmldsig verify: verifies signatures end to end (every reference digest and the
// signature value) and prints one verdict per signature, as text or JSON lines.
#include <string>
#include <utility>
#include <vector>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/DocumentJson.h"
#include "cli/DocumentVerify.h"
#include "cli/HtmlReport.h"
#include "cli/InputFile.h"
#include "cli/ValidationReport.h"
#include "cli/VerifierSetup.h"

namespace cli {

namespace {

const OptionSpec kOptAll{"all", '\0', false, false, "", "Verify every signature of each file, one result each."};
const OptionSpec kOptNoReferences{
    "no-references", '\0', false,
    false,           "",   "Check only the signature value over SignedInfo, not the reference digests."};
const OptionSpec kOptReferencesOnly{"references-only",
                                    '\0',
                                    false,
                                    false,
                                    "",
                                    "Check only the reference digests and print each one (as `xmldsig refs`)."};
const OptionSpec kOptHtml{"html",
                          '\0',
                          true,
                          false,
                          "PAGE",
                          "Also write the validation report of every file as one HTML page to PAGE (as "
                          "`xmldsig report` does); written even when a FILE cannot be read."};
const OptionSpec kOptReport{"report",
                            '\0',
                            false,
                            false,
                            "",
                            "Print the validation report of each file instead: one JSON object per line, "
                            "shaped as docs/report.schema.json describes."};

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
      "[--hmac-key TEXT [--hmac-encoding ENC]] [--cert FILE]... [--cert-dir DIR]... [--signer FILE]... "
      "[--trust FILE|DIR]... [--crl FILE]... [--at TIME] [--ref-data INDEX=FILE]... "
      "[--external-dir DIR]... [--ignore-external] [--limit NAME=N]... [--option KEYWORD]... [--json | --report] [--html PAGE] [--log] [--verbose] [-j N] "
      "[-o FILE] FILE...",
      "For each FILE (\"-\" reads standard input), verifies one signature (the first, or the one "
      "chosen with --selector or --signature-id), or every signature with --all: the digest of every "
      "Reference, then the signature value over the canonical SignedInfo with the keys the signature's "
      "KeyInfo yields (key values, embedded certificates, certificates referenced by issuer and serial, "
      "subject or key identifier and found among --cert/--cert-dir, WS-Security token references), then "
      "the key given with --key, or the HMAC secret of --hmac-key.\n\n"
      "Prints one line per signature: \"FILE: valid\" (followed by \", signer SUBJECT\" when the key that "
      "verified has a certificate) or \"FILE: INVALID (reason)\" (FILE#N when the file "
      "has several signatures or with --all). The reason names the cause: a digest mismatch (which "
      "reference), external data missing (which URI, and how to supply it), no key found, the wrong key, "
      "an unsupported algorithm (which URI). A FILE that cannot be read or is not well-formed XML (the "
      "line and column are given), a directory among the files, gets \"FILE: ERROR (reason)\"; the "
      "other files are still verified, and the exit status is 2.\n\n"
      "\"valid\" means every reference digest and the signature value were checked. When less was "
      "checked the line says so: \"valid (signature value only; references not checked)\" with "
      "--no-references, \"valid (reference digests not enforced; ...)\" with --option "
      "AllowXmlDigestError (naming the references that do not match), \"valid (reference N not "
      "checked: no external data)\" with --ignore-external.\n\n"
      "With --report, one validation report per FILE and line instead: the verdict of each signature with "
      "an indication (TOTAL_PASSED, TOTAL_FAILED, INDETERMINATE) and sub-indication (HASH_FAILURE, "
      "SIG_CRYPTO_FAILURE, NO_SIGNING_CERTIFICATE_FOUND, SIGNED_DATA_NOT_FOUND, ...), its algorithms, signer "
      "and trust, each reference with its digests and what it covered, signing time and time-stamp, "
      "warnings (SHA-1 or MD5, an RSA key under 2048 bits, a family option for another family) and the "
      "verifier's log; docs/report.schema.json gives its shape.\n\n"
      "With --json, one object per line: {\"file\", \"signature\", \"id\", \"valid\", "
      "\"referencesChecked\" (false with --no-references), \"referenceDigestsEnforced\" (false with "
      "AllowXmlDigestError), \"refFailReason\" (of the last reference checked), \"failure\" and "
      "\"reason\" (when invalid; failure is digest-mismatch, external-data-missing, no-key, wrong-key, "
      "unsupported-algorithm, untrusted-signer, signer-not-pinned or other), \"references\" (each {\"index\", \"uri\", \"external\", "
      "\"status\"}, status being valid, digest-mismatch, digest-mismatch-not-enforced, "
      "external-data-missing, skipped-no-external-data, not-checked, ...), \"warnings\", \"signer\": {\"source\", \"subject\", \"issuer\", \"serial\", "
      "\"notBefore\", \"notAfter\", \"sha256\"} (certificate fields when the key has a certificate), "
      "\"trust\": {\"checked\", \"trusted\", \"chain\", \"validationTime\", \"validationTimeSource\", "
      "\"error\"}, \"log\" (with "
      "--log: the verifier's structured log)}, or {\"file\", \"error\"} for a file that could not be "
      "read or loaded.\n\n"
      "Option keywords match in any case; an unknown one is a usage error. A family option (ZATCA, "
      "MYINVOIS) given for a document recognised as another family makes its signature fail; a "
      "warning says so on standard error and in \"warnings\".\n\n"
      "With -o FILE the output is written to a temporary file beside FILE and renamed over it once "
      "every input was read; FILE may be one of the inputs. When the command fails (exit status 2) "
      "FILE is left as it was.\n\n"
      "Who signed: without --signer or --trust, a valid signature means the signed data is intact and was "
      "signed with one of the keys tried; the signer is reported, not judged (--key and --cert add keys to "
      "try, they do not restrict). --signer pins the signer: only those keys are tried, and a signature made "
      "with any other key is invalid. --trust requires the signer's certificate to chain to an anchor "
      "(intermediates from KeyInfo, --cert and --cert-dir), every certificate valid at the validation time "
      "(--at, else the time of a verified signature time-stamp, else now), the signer's key usage allowing "
      "signatures, and none revoked by a --crl.\n\n"
      "Document families: Saudi ZATCA invoices need --option ZATCA and Malaysian MyInvois documents "
      "--option MYINVOIS; the other families (Chilean SII, Mexican DODA, Polish and Italian health "
      "documents, HL7, SK-XML, SWIFT SAA, ebXML, EBICS, CMA STP) are recognised from the document.",
      {kOptSelector,
       kOptSignatureId,
       kOptAll,
       kOptNoReferences,
       kOptReferencesOnly,
       kOptKey,
       kOptHmacKey,
       kOptHmacEncoding,
       kOptCert,
       kOptCertDir,
       kOptSigner,
       kOptTrust,
       kOptCrl,
       kOptAt,
       kOptRefData,
       kOptExternalDir,
       kOptIgnoreExternal,
       kOptLimit,
       kOptUncommon,
       kOptJson,
       kOptReport,
       kOptHtml,
       kOptLog,
       kOptVerbose,
       kOptJobs,
       kOptOutput,
       kOptHelp},
      "0  every verified signature is valid\n"
      "1  a signature is not valid\n"
      "2  usage error (an unknown option or --option keyword), or a FILE could not be read (a directory, "
      "a missing file), loaded, or has no such signature"};
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
  if (args.has("json") && args.has("report")) return usageError("verify", "give only one of --json and --report");
  if (!jobsFromArgs(args, jobs, error) || !verifyRequestFromArgs(args, req, error)) return usageError("verify", error);
  const bool html = args.has("html");
  if (html) req.report = req.reportSource = true;  // the page is drawn from the reports
  Output out, page;
  if (!out.open(args, error) || (html && !page.openPath(args.value("html"), error))) return usageError("verify", error);
  std::vector<nlohmann::ordered_json> pageReports;

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
        if (html) pageReports.push_back(buildValidationReport(f, req));
        if (args.has("report")) {
          nlohmann::ordered_json report = buildValidationReport(f, req);
          report.erase("source");  // the page's; --report prints none
          out.jsonLine(report);
        } else if (out.json()) {
          for (const nlohmann::ordered_json& j : verdictJson(f, req)) out.jsonLine(j);
        } else {
          // Every FILE gets a line of its own, also one that could not be read or loaded.
          if (!f.loaded) out.write(f.name + ": ERROR (" + f.error + ")\n");
          const bool numbered = f.numbered(req);
          for (const SignatureVerdict& s : f.signatures) {
            const std::string signer = s.valid && !s.signer.subject.empty() ? ", signer " + s.signer.subject : "";
            out.write(label(f, s, numbered) + ": " + verdictText(s) + signer + "\n");
          }
        }
        f = DocumentVerdict();
      });
  if (html) {
    page.write(renderHtmlReport(pageReports));
    if (!page.commit(error)) return usageError("verify", error);
  }
  return finishOutput(out, "verify", anyUnloaded ? kExitUsage : anyInvalid ? kExitInvalid : kExitOk);
}

}  // namespace cli
