// xmldsig info: what a document carries, before anything is verified: whether it loads,
// its signatures, and for each the document family, the algorithms and the references.
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/AlgorithmNames.h"
#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/DocumentInfo.h"
#include "cli/DocumentJson.h"
#include "cli/InputFile.h"

namespace cli {

const CommandSpec& infoSpec() {
  static const CommandSpec spec{"info",
                                "describe the signatures of XML documents",
                                "[--json] [--log] [--verbose] [--option KEYWORD]... [-j N] [-o FILE] FILE...",
                                "For each FILE, reports whether it loads as XML (and where it is not well-formed when "
                                "it does not), how many XML-Signature elements it carries, and for each signature: its "
                                "index (the value to select it by), its Id, the document family the verifier "
                                "recognises, the canonicalization method of SignedInfo with its inclusive-namespace "
                                "prefix list, the signature method, and every reference with its URI, whether it "
                                "points into the document or outside it, its digest method and its transforms.\n\n"
                                "Where the family is verified by its own rules only on request (Saudi ZATCA and "
                                "Malaysian MyInvois invoices), the option to pass is suggested. The family is the "
                                "document's own: a family option given for a document of another family is reported "
                                "as a warning (\"warnings\" in JSON).\n\n"
                                "With --json, one object per FILE; a FILE that cannot be read or loaded gives "
                                "{\"file\", \"error\"}, and --log adds the verifier's structured log as \"log\".\n\n"
                                "The bytes of each file are read as they are; the encoding comes from the byte-order "
                                "mark or the XML declaration. Nothing is verified: use this command to learn what a "
                                "document holds and what it needs.",
                                {kOptJson, kOptLog, kOptVerbose, kOptUncommon, kOptJobs, kOptOutput, kOptHelp},
                                "0  every FILE was read and loaded\n"
                                "2  usage error, or a FILE could not be read or is not well-formed XML"};
  return spec;
}

namespace {

// Reads one FILE and describes it; a file that cannot be read gets its error as its report.
DocumentInfo inspectInput(const std::string& file, const VerifyRequest& req) {
  std::string bytes, error;
  if (!readInput(file, bytes, error)) {
    DocumentInfo unread;
    unread.name = file;
    unread.error = error;
    return unread;
  }
  return inspectDocument(req, file, std::move(bytes));
}

std::string orNone(const std::string& s) { return s.empty() ? "(none)" : s; }

// "URI (name)": the name the verifier gives the algorithm, or "unsupported".
std::string named(const std::string& uri, const std::string& name) {
  return uri.empty() ? orNone(uri) : uri + " (" + name + ")";
}

std::string toText(const DocumentInfo& f) {
  std::ostringstream o;
  if (!f.loaded) {
    o << f.name << ": not loaded: " << f.error << "\n";
    return o.str();
  }
  const size_t n = f.signatures.size();
  o << f.name << ": loaded, " << n << (n == 1 ? " signature" : " signatures") << ", family " << f.family.family << "\n";
  for (const std::string& w : f.warnings) o << "  warning: " << w << "\n";
  for (const std::string& opt : f.family.suggestedOptions) o << "  suggested option: --option " << opt << "\n";
  for (const SignatureInfo& s : f.signatures) {
    o << "  signature " << s.index << " (" << s.element << ")\n";
    o << "    id:                " << orNone(s.id) << "\n";
    if (!s.hasSignedInfo) {
      o << "    no SignedInfo\n";
      continue;
    }
    o << "    canonicalization:  " << named(s.c14nMethod, transformName(s.c14nMethod)) << "\n";
    if (!s.prefixList.empty()) o << "    inclusive prefixes: " << s.prefixList << "\n";
    o << "    signature method:  " << named(s.signatureMethod, signatureMethodName(s.signatureMethod)) << "\n";
    o << "    references:        " << s.references.size() << "\n";
    for (size_t i = 0; i < s.references.size(); ++i) {
      const ReferenceInfo& r = s.references[i];
      o << "    reference " << i << ": ";
      if (!r.uriPresent) o << "no URI";
      else o << "URI \"" << r.uri << "\"";
      o << (r.external ? " (external)" : " (same document)") << "\n";
      o << "      digest method:   " << named(r.digestMethod, digestMethodName(r.digestMethod)) << "\n";
      for (size_t t = 0; t < r.transforms.size(); ++t)
        o << (t == 0 ? "      transforms:      " : "                       ")
          << named(r.transforms[t], transformName(r.transforms[t])) << "\n";
    }
    for (const CertificateInfo& c : s.certificates) {
      o << "    certificate:       " << c.subject << "\n";
      o << "      issuer:          " << c.issuer << "\n";
      o << "      valid:           " << c.notBefore << " to " << c.notAfter << "\n";
    }
  }
  return o.str();
}

}  // namespace

int runInfo(const Args& args) {
  if (args.positionals.empty()) return usageError("info", "no FILE given");
  unsigned jobs = 1;
  std::string error;
  VerifyRequest req;
  if (!jobsFromArgs(args, jobs, error) || !verifyRequestFromArgs(args, req, error)) return usageError("info", error);
  Output out;
  if (!out.open(args, error)) return usageError("info", error);

  std::vector<DocumentInfo> results(args.positionals.size());
  bool allLoaded = true;
  runInOrder(
      results.size(), jobs, [&](size_t i) { results[i] = inspectInput(args.positionals[i], req); },
      [&](size_t i) {
        DocumentInfo& f = results[i];
        if (!f.log.empty()) std::fputs(f.log.c_str(), stderr);
        if (out.json()) out.jsonLine(infoJson(f));
        else out.write(toText(f));
        if (!f.loaded) {
          allLoaded = false;
          std::fprintf(stderr, "xmldsig info: %s: %s\n", f.name.c_str(), f.error.c_str());
        }
        f = DocumentInfo();  // free it once printed
      });
  return finishOutput(out, "info", allLoaded ? kExitOk : kExitUsage);
}

}  // namespace cli
