// xmldsig report: verifies every signature of each FILE and writes one self-contained HTML
// page showing the validation report of all of them.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/HtmlReport.h"
#include "cli/InputFile.h"
#include "cli/SignerReport.h"
#include "cli/ValidationReport.h"
#include "cli/VerifierSetup.h"

namespace cli {

namespace {

// The report of one FILE; one that cannot be read gets a report saying why.
nlohmann::ordered_json reportOf(const std::string& file, const VerifyRequest& req) {
  std::string bytes, error;
  if (readInput(file, bytes, error)) return validationReport(req, file, std::move(bytes));
  DocumentVerdict unread;
  unread.name = file;
  unread.error = error;
  return buildValidationReport(unread, req);
}

// The reports of every FILE in order, with the document text the page shows; status
// becomes the command's exit status (2 when a FILE was not loaded, else 1 when a signature
// is not valid).
std::vector<nlohmann::ordered_json> reportsOf(const std::vector<std::string>& files, VerifyRequest req, unsigned jobs,
                                              int& status) {
  req.report = true;
  req.reportSource = true;
  std::vector<nlohmann::ordered_json> reports(files.size());
  status = kExitOk;
  runInOrder(
      files.size(), jobs, [&](size_t i) { reports[i] = reportOf(files[i], req); },
      [&](size_t i) {
        const nlohmann::ordered_json& r = reports[i];
        if (!r.value("loaded", false)) {
          status = kExitUsage;
          std::fprintf(stderr, "xmldsig report: %s: %s\n", files[i].c_str(), r.value("error", "").c_str());
        }
        for (const nlohmann::ordered_json& s : r.value("signatures", nlohmann::ordered_json::array()))
          if (s.value("verdict", "") != "valid" && status == kExitOk) status = kExitInvalid;
      });
  return reports;
}

}  // namespace

const CommandSpec& reportSpec() {
  static const CommandSpec spec{
      "report",
      "write the validation report of documents as one HTML page",
      "[--selector N | --signature-id ID] [--key [NAME=]FILE]... [--hmac-key TEXT [--hmac-encoding ENC]] [--cert FILE]... "
      "[--cert-dir DIR]... [--signer FILE]... [--trust FILE|DIR]... [--crl FILE]... [--at TIME] "
      "[--ref-data INDEX=FILE]... [--external-dir DIR]... [--ignore-external] [--limit NAME=N]... "
      "[--option KEYWORD]... [--verbose] [-j N] [-o PAGE] FILE...",
      "Verifies every signature of each FILE (or only the one chosen with --selector or --signature-id), "
      "as `xmldsig verify --all` does with the same options, and writes one HTML page (to PAGE with -o, "
      "else to standard output) showing for every file and signature: the verdict, in plain words when "
      "it is not valid; the signer and whether it is trusted or pinned; the algorithms, signing time and "
      "time-stamp; each reference with what it covered, its transforms and its calculated and stored "
      "digests, a digest that differs highlighted; the document's text with what each reference signed "
      "tinted, what its transforms removed struck through and the signature itself marked (a large "
      "document shows its first and last parts); warnings; and the verifier's log as a tree, the branch "
      "that failed open, with a box that filters its lines.\n\n"
      "The page is self-contained: its style and its small script are inline and it loads nothing, so it "
      "opens from a mail attachment with no network. Every text from the documents is shown as text.\n\n"
      "`xmldsig verify --html PAGE` writes the same page while verifying.\n\n"
      "The page is written even when a FILE cannot be read or loaded (the page says why; the exit "
      "status is then 2).",
      {kOptSelector, kOptSignatureId, kOptKey,     kOptHmacKey, kOptHmacEncoding, kOptCert,        kOptCertDir,
       kOptSigner,   kOptTrust,       kOptCrl,     kOptAt,      kOptRefData,      kOptExternalDir, kOptIgnoreExternal,
       kOptLimit,    kOptUncommon,    kOptVerbose, kOptJobs,    kOptOutput,       kOptHelp},
      "0  every signature is valid\n"
      "1  a signature is not valid\n"
      "2  usage error, or a FILE could not be read or loaded (the page is still written)"};
  return spec;
}

int runReport(const Args& args) {
  if (args.positionals.empty()) return usageError("report", "no FILE given");
  if (args.has("selector") && args.has("signature-id"))
    return usageError("report", "give only one of --selector and --signature-id");
  unsigned jobs = 1;
  std::string error;
  VerifyRequest req;
  if (!jobsFromArgs(args, jobs, error) || !verifyRequestFromArgs(args, req, error)) return usageError("report", error);
  req.all = !args.has("selector") && !args.has("signature-id");
  Output out;
  if (!out.open(args, error)) return usageError("report", error);
  int status = kExitOk;
  out.write(renderHtmlReport(reportsOf(args.positionals, req, jobs, status)));
  if (!out.commit(error)) return usageError("report", error);
  return status;
}

}  // namespace cli
