// xmldsig refs: checks the digest of every reference of a signature, without verifying the
// signature value, and prints for each its URI, result, calculated and stored digests and
// the failure reason. `xmldsig verify --references-only` runs the same code.
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/DocumentJson.h"
#include "cli/InputFile.h"
#include "cli/VerifierSetup.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsBinData.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace cli {

namespace {

const OptionSpec kOptDump{"dump",
                          '\0',
                          true,
                          false,
                          "DIR",
                          "Write the bytes each reference digested to DIR/STEM.sigN.refM.bin and the canonical "
                          "SignedInfo to DIR/STEM.sigN.signedinfo.bin (STEM: the file name without its extension)."};

const char* reasonText(int reason) {
  switch (reason) {
    case 0: return "valid";
    case 1: return "digest mismatch";
    case 2: return "external data missing or unreadable";
    case 3: return "no such reference";
    case 4: return "unknown algorithm";
    case 5: return "canonicalization failed";
    default: return "failed before a reason was known";
  }
}

struct ReferenceResult {
  int index = 0;
  std::string uri;
  bool external = false;
  bool valid = false;
  bool skipped = false;  // external data missing and --ignore-external given
  int reason = 0;
  std::string calculated;
  std::string stored;
};

struct FileResult {
  std::string file;
  bool loaded = false;
  std::string error;
  int signature = 0;
  std::string signatureId;
  std::vector<ReferenceResult> references;
  std::string log;
  std::string dumpError;  // the first file --dump could not write

  bool allValid() const {
    for (const ReferenceResult& r : references)
      if (!r.valid && !r.skipped) return false;
    return loaded;
  }
};

// The name a dumped file starts with: the input's file name without directory and extension.
std::string fileStem(const std::string& file) {
  if (file == "-") return "stdin";
  std::string name = file.substr(file.find_last_of('/') + 1);
  const size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

bool writeBytes(const std::string& path, const DataBuffer& bytes, std::string& error) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.getData2()), static_cast<std::streamsize>(bytes.getSize()));
  if (out.flush()) return true;
  if (error.empty()) error = "cannot write " + path;
  return false;
}

FileResult checkFile(const std::string& file, const VerifyRequest& req, const std::string& dumpDir) {
  FileResult res;
  res.file = file;
  const bool withLog = req.log;
  std::string bytes;
  if (!readInput(file, bytes, res.error)) return res;
  std::unique_ptr<ClsXmlDSig> dsig = loadVerifier(req, file, std::move(bytes), res.error, &res.log);
  if (!dsig || !selectSignature(*dsig, req, req.selector, res.error)) return res;
  res.loaded = true;
  res.signature = dsig->get_Selector();
  StringBuffer id;
  LogNull quiet;
  if (dsig->selectedSignatureId(id, quiet)) res.signatureId = id.getString();

  // External data is set before any reference is checked: it is kept per signature.
  applyRefData(*dsig, req);

  // The canonical SignedInfo comes from a verification of the signature value alone,
  // made before the references so that their results are the ones the loop leaves.
  const std::string dumpStem = dumpDir.empty()
                                   ? std::string()
                                   : dumpDir + "/" + fileStem(file) + ".sig" + std::to_string(res.signature);
  RcPtr<ClsBinData> dumped(ClsBinData::createNewCls());
  if (!dumpDir.empty()) {
    dsig->put_KeepDigestedBytes(true);
    dsig->VerifySignature(false);
    if (dsig->GetCanonicalSignedInfo(*dumped)) writeBytes(dumpStem + ".signedinfo.bin", dumped->getDb(), res.dumpError);
  }

  const int count = dsig->get_NumReferences();
  for (int i = 0; i < count; ++i) {
    ReferenceResult r;
    r.index = i;
    XString uri;
    dsig->ReferenceUri(i, uri);
    r.uri = uri.getUtf8();
    r.external = dsig->IsReferenceExternal(i);
    r.valid = dsig->VerifyReferenceDigest(i);
    r.reason = dsig->get_RefFailReason();
    if (withLog) res.log += logForStderr(*dsig, file + " reference " + std::to_string(i));
    if (const ::ReferenceResult* result = dsig->referenceResult(i)) {
      r.calculated = result->calculatedDigest;
      r.stored = result->storedDigest;
      r.skipped = !r.valid && r.external && req.ignoreExternal && result->externalDataMissing;
    }
    if (!dumpDir.empty() && dsig->GetDigestedBytes(i, *dumped))
      writeBytes(dumpStem + ".ref" + std::to_string(i) + ".bin", dumped->getDb(), res.dumpError);
    res.references.push_back(r);
  }
  return res;
}

nlohmann::ordered_json toJson(const FileResult& f) {
  if (!f.loaded) return errorJson(f.file, f.error);
  nlohmann::ordered_json j;
  j["file"] = f.file;
  j["loaded"] = f.loaded;
  j["signature"] = f.signature;
  j["signatureId"] = f.signatureId;
  j["valid"] = f.allValid();
  nlohmann::ordered_json refs = nlohmann::ordered_json::array();
  for (const ReferenceResult& r : f.references) {
    refs.push_back({{"index", r.index},
                    {"uri", r.uri},
                    {"external", r.external},
                    {"valid", r.valid},
                    {"skipped", r.skipped},
                    {"refFailReason", r.reason},
                    {"reason", reasonText(r.reason)},
                    {"calculatedDigest", r.calculated},
                    {"storedDigest", r.stored}});
  }
  j["references"] = refs;
  return j;
}

std::string toText(const FileResult& f) {
  std::ostringstream o;
  if (!f.loaded) {
    o << f.file << ": " << f.error << "\n";
    return o.str();
  }
  o << f.file << ": signature " << f.signature;
  if (!f.signatureId.empty()) o << " (Id \"" << f.signatureId << "\")";
  const size_t n = f.references.size();
  o << ", " << n << (n == 1 ? " reference" : " references") << ": " << (f.allValid() ? "all valid" : "NOT all valid")
    << "\n";
  for (const ReferenceResult& r : f.references) {
    o << "  reference " << r.index << ": URI \"" << r.uri << "\"" << (r.external ? " (external)" : "") << ": ";
    if (r.valid) o << "valid\n";
    else if (r.skipped) o << "skipped (no external data)\n";
    else o << "INVALID, RefFailReason " << r.reason << " (" << reasonText(r.reason) << ")\n";
    if (!r.calculated.empty()) o << "    calculated: " << r.calculated << "\n";
    if (!r.stored.empty()) o << "    stored:     " << r.stored << "\n";
  }
  return o.str();
}

}  // namespace

const CommandSpec& refsSpec() {
  static const CommandSpec spec{
      "refs",
      "check the reference digests of signatures",
      "[--selector N | --signature-id ID] [--ref-data INDEX=FILE]... [--external-dir DIR]... "
      "[--ignore-external] [--limit NAME=N]... [--option KEYWORD]... [--dump DIR] [--json] [--log] [--verbose] [-j N] "
      "[-o FILE] FILE...",
      "For each FILE, checks the digest of every Reference of one signature (the first, or "
      "the one chosen with --selector or --signature-id) exactly as signature verification "
      "does, with the same document-family rules and retries, but does not verify the "
      "signature value. For each reference it prints its index, URI, the result, the "
      "calculated and the stored digest, and on failure the RefFailReason: 1 digest "
      "mismatch, 2 external data missing or unreadable, 3 no such reference, 4 unknown "
      "algorithm (a digest method URI that is not known exactly), 5 "
      "canonicalization failed, 99 failed before a reason was known (an unsupported "
      "transform, a file that cannot be opened).\n\n"
      "References that point outside the document need their data: give it with --ref-data "
      "INDEX=FILE, or name directories to look in for a file of the URI's name with "
      "--external-dir.\n\n"
      "With --dump DIR it also writes, for the signature checked, the exact bytes each "
      "reference digested (after its transforms) to DIR/STEM.sigN.refM.bin and the canonical "
      "SignedInfo to DIR/STEM.sigN.signedinfo.bin, where STEM is the file name without its "
      "extension, N the signature's index and M the reference's: hashing a .bin file with the "
      "reference's digest method gives the digest the reference was checked against.",
      {kOptSelector, kOptSignatureId, kOptRefData, kOptExternalDir, kOptIgnoreExternal, kOptLimit, kOptUncommon,
       kOptDump, kOptJson, kOptLog, kOptVerbose, kOptJobs, kOptOutput, kOptHelp},
      "0  every reference of every FILE is valid (or skipped with --ignore-external)\n"
      "1  a reference digest is not valid\n"
      "2  usage error, a FILE could not be read, loaded, or has no such signature, or a --dump "
      "file could not be written"};
  return spec;
}

int runReferences(const Args& args) {
  if (args.positionals.empty()) return usageError("refs", "no FILE given");
  if (args.has("selector") && args.has("signature-id"))
    return usageError("refs", "give either --selector or --signature-id, not both");
  unsigned jobs = 1;
  std::string error;
  VerifyRequest req;
  if (!jobsFromArgs(args, jobs, error) || !verifyRequestFromArgs(args, req, error)) return usageError("refs", error);
  Output out;
  if (!out.open(args, error)) return usageError("refs", error);
  const std::string dumpDir = args.value("dump");
  struct stat st {};
  if (args.has("dump") && (dumpDir.empty() || stat(dumpDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)))
    return usageError("refs", "--dump needs an existing directory, not '" + dumpDir + "'");

  std::vector<FileResult> results(args.positionals.size());
  bool anyUnloaded = false, anyInvalid = false;
  runInOrder(
      results.size(), jobs, [&](size_t i) { results[i] = checkFile(args.positionals[i], req, dumpDir); },
      [&](size_t i) {
        FileResult& f = results[i];
        if (!f.log.empty()) std::fputs(f.log.c_str(), stderr);
        if (out.json()) out.jsonLine(toJson(f));
        else out.write(toText(f));
        if (!f.dumpError.empty()) {
          anyUnloaded = true;
          std::fprintf(stderr, "xmldsig refs: %s: %s\n", f.file.c_str(), f.dumpError.c_str());
        }
        if (!f.loaded) {
          anyUnloaded = true;
          std::fprintf(stderr, "xmldsig refs: %s: %s\n", f.file.c_str(), f.error.c_str());
        } else if (!f.allValid()) {
          anyInvalid = true;
        }
        f = FileResult();
      });
  return finishOutput(out, "refs", anyUnloaded ? kExitUsage : anyInvalid ? kExitInvalid : kExitOk);
}

}  // namespace cli
