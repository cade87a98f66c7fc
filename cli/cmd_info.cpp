// xmldsig info: what a document carries, before anything is verified: whether it loads,
// its signatures, and for each the document family, the algorithms and the references.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/CliSupport.h"
#include "cli/Commands.h"
#include "cli/FamilyReport.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

namespace cli {

const CommandSpec& infoSpec() {
  static const CommandSpec spec{
      "info",
      "describe the signatures of XML documents",
      "[--json] [--log] [--verbose] [--option KEYWORD]... [-j N] [-o FILE] FILE...",
      "For each FILE, reports whether it loads as XML (and where it is not well-formed when "
      "it does not), how many XML-Signature elements it carries, and for each signature: its "
      "index (the value to select it by), its Id, the document family the verifier "
      "recognises, the canonicalization method of SignedInfo with its inclusive-namespace "
      "prefix list, the signature method, and every reference with its URI, whether it "
      "points into the document or outside it, its digest method and its transforms.\n\n"
      "Where the family is verified by its own rules only on request (Saudi ZATCA and "
      "Malaysian MyInvois invoices), the option to pass is suggested.\n\n"
      "The bytes of each file are read as they are; the encoding comes from the byte-order "
      "mark or the XML declaration. Nothing is verified: use this command to learn what a "
      "document holds and what it needs.",
      {kOptJson, kOptLog, kOptVerbose, kOptUncommon, kOptJobs, kOptOutput, kOptHelp},
      "0  every FILE was read and loaded\n"
      "2  usage error, or a FILE could not be read or is not well-formed XML"};
  return spec;
}

namespace {

struct ReferenceInfo {
  std::string uri;
  bool uriPresent = false;
  bool external = false;
  std::string digestMethod;
  std::vector<std::string> transforms;
};

struct SignatureInfo {
  int index = 0;
  std::string id;
  std::string element;  // tag as written, e.g. "ds:Signature"
  std::string c14nMethod;
  std::string prefixList;
  std::string signatureMethod;
  bool hasSignedInfo = false;
  std::vector<ReferenceInfo> references;
};

struct FileInfo {
  std::string file;
  bool loaded = false;
  std::string error;
  FamilyReport family;
  std::vector<SignatureInfo> signatures;
  std::string log;  // the verifier's log, for --log
};

std::string attr(ClsXml* node, const char* name) {
  StringBuffer v;
  if (node) node->getAttrValue(name, v);
  return v.getString();
}

ReferenceInfo describeReference(ClsXml* ref) {
  ReferenceInfo r;
  StringBuffer uri;
  r.uriPresent = ref->getAttrValue("URI", uri);
  r.uri = uri.getString();
  // Same-document references are empty or start with '#'; anything else names outside data.
  r.external = !r.uri.empty() && r.uri[0] != '#';
  RcPtr<ClsXml> digest(ref->getChildWithTagUtf8("*:DigestMethod"));
  r.digestMethod = attr(digest.get(), "Algorithm");
  RcPtr<ClsXml> transforms(ref->getChildWithTagUtf8("*:Transforms"));
  if (transforms) {
    LogNull quiet;
    const int n = transforms->numChildrenHavingTagUtf8("*:Transform", quiet);
    for (int i = 0; i < n; ++i) {
      RcPtr<ClsXml> t(transforms->getNthChildWithTagUtf8("*:Transform", i, quiet));
      r.transforms.push_back(attr(t.get(), "Algorithm"));
    }
  }
  return r;
}

SignatureInfo describeSignature(ClsXmlDSig& d, int index) {
  d.put_Selector(index);
  SignatureInfo s;
  s.index = index;
  LogNull quiet;
  StringBuffer a, b;
  if (d.selectedSignatureId(a, quiet)) s.id = a.getString();
  if (ClsXml* sig = d.selectedSignature()) {
    s.element = std::string(sig->tagView());
    RcPtr<ClsXml> signedInfo(sig->getChildWithTagUtf8("*:SignedInfo"));
    s.hasSignedInfo = static_cast<bool>(signedInfo);
  }
  if (d.getCanonicalizationMethod(a, b, quiet)) {
    s.c14nMethod = a.getString();
    s.prefixList = b.getString();
  }
  if (d.getSignatureMethod(a, quiet)) s.signatureMethod = a.getString();
  const int refs = d.numReferences(d.selectedSignature(), quiet);
  for (int i = 0; i < refs; ++i) {
    RcPtr<ClsXml> ref(d.getReference(i, quiet));
    if (ref) s.references.push_back(describeReference(ref.get()));
  }
  return s;
}

FileInfo inspectFile(const std::string& file, const Args& args) {
  FileInfo info;
  info.file = file;
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsBinData> data(ClsBinData::createNewCls());
  if (!dsig || !data) {
    info.error = "out of memory";
    return info;
  }
  // Straight into the byte object: the verifier makes the one UTF-8 copy it keeps.
  if (!readInput(file, data->getDb().bytes(), info.error)) return info;
  configureVerifier(*dsig, args);

  info.loaded = dsig->LoadSignatureBd(*data);
  if (args.has("log")) info.log = logForStderr(*dsig, file);
  if (!info.loaded) {
    info.error = dsig->lastErrorLine();
    if (info.error.empty()) info.error = "not loaded";
    return info;
  }
  info.family = describeFamily(*dsig);
  const int count = dsig->get_NumSignatures();
  for (int i = 0; i < count; ++i) info.signatures.push_back(describeSignature(*dsig, i));
  return info;
}

nlohmann::ordered_json toJson(const FileInfo& f) {
  nlohmann::ordered_json j;
  j["file"] = f.file;
  j["loaded"] = f.loaded;
  if (!f.loaded) {
    j["error"] = f.error;
    j["signatures"] = nlohmann::ordered_json::array();
    return j;
  }
  j["family"] = f.family.family;
  j["suggestedOptions"] = f.family.suggestedOptions;
  nlohmann::ordered_json sigs = nlohmann::ordered_json::array();
  for (const SignatureInfo& s : f.signatures) {
    nlohmann::ordered_json js;
    js["index"] = s.index;
    js["id"] = s.id;
    js["element"] = s.element;
    js["family"] = f.family.family;
    js["suggestedOptions"] = f.family.suggestedOptions;
    js["canonicalizationMethod"] = s.c14nMethod;
    js["inclusiveNamespaces"] = s.prefixList;
    js["signatureMethod"] = s.signatureMethod;
    js["hasSignedInfo"] = s.hasSignedInfo;
    nlohmann::ordered_json refs = nlohmann::ordered_json::array();
    for (size_t i = 0; i < s.references.size(); ++i) {
      const ReferenceInfo& r = s.references[i];
      refs.push_back({{"index", i},
                      {"uri", r.uri},
                      {"uriPresent", r.uriPresent},
                      {"external", r.external},
                      {"digestMethod", r.digestMethod},
                      {"transforms", r.transforms}});
    }
    js["references"] = refs;
    sigs.push_back(js);
  }
  j["signatures"] = sigs;
  return j;
}

std::string orNone(const std::string& s) { return s.empty() ? "(none)" : s; }

std::string toText(const FileInfo& f) {
  std::ostringstream o;
  if (!f.loaded) {
    o << f.file << ": not loaded: " << f.error << "\n";
    return o.str();
  }
  const size_t n = f.signatures.size();
  o << f.file << ": loaded, " << n << (n == 1 ? " signature" : " signatures") << ", family "
    << f.family.family << "\n";
  for (const std::string& opt : f.family.suggestedOptions)
    o << "  suggested option: --option " << opt << "\n";
  for (const SignatureInfo& s : f.signatures) {
    o << "  signature " << s.index << " (" << s.element << ")\n";
    o << "    id:                " << orNone(s.id) << "\n";
    if (!s.hasSignedInfo) {
      o << "    no SignedInfo\n";
      continue;
    }
    o << "    canonicalization:  " << orNone(s.c14nMethod) << "\n";
    if (!s.prefixList.empty()) o << "    inclusive prefixes: " << s.prefixList << "\n";
    o << "    signature method:  " << orNone(s.signatureMethod) << "\n";
    o << "    references:        " << s.references.size() << "\n";
    for (size_t i = 0; i < s.references.size(); ++i) {
      const ReferenceInfo& r = s.references[i];
      o << "    reference " << i << ": ";
      if (!r.uriPresent) o << "no URI";
      else o << "URI \"" << r.uri << "\"";
      o << (r.external ? " (external)" : " (same document)") << "\n";
      o << "      digest method:   " << orNone(r.digestMethod) << "\n";
      for (size_t t = 0; t < r.transforms.size(); ++t)
        o << (t == 0 ? "      transforms:      " : "                       ") << orNone(r.transforms[t]) << "\n";
    }
  }
  return o.str();
}

}  // namespace

int runInfo(const Args& args) {
  if (args.positionals.empty()) return usageError("info", "no FILE given");
  unsigned jobs = 1;
  std::string error;
  if (!jobsFromArgs(args, jobs, error)) return usageError("info", error);
  Output out;
  if (!out.open(args, error)) return usageError("info", error);

  std::vector<FileInfo> results(args.positionals.size());
  bool allLoaded = true;
  runInOrder(
      results.size(), jobs, [&](size_t i) { results[i] = inspectFile(args.positionals[i], args); },
      [&](size_t i) {
        FileInfo& f = results[i];
        if (!f.log.empty()) std::fputs(f.log.c_str(), stderr);
        if (out.json()) out.jsonLine(toJson(f));
        else out.write(toText(f));
        if (!f.loaded) {
          allLoaded = false;
          std::fprintf(stderr, "xmldsig info: %s: %s\n", f.file.c_str(), f.error.c_str());
        }
        f = FileInfo();  // free it once printed
      });
  return allLoaded ? kExitOk : kExitUsage;
}

}  // namespace cli
