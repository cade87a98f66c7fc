#include "Documents.h"

#include <memory>
#include <utility>

#include "cli/Args.h"
#include "cli/CliSupport.h"
#include "cli/DocumentJson.h"
#include "cli/InputFile.h"
#include "cli/SignerReport.h"
#include "cli/ValidationReport.h"
#include "cli/VerifierSetup.h"
#include "dsig/ClsXmlDSig.h"

namespace pyxmldsig {

bool requestFromOptions(const OptionValues& options, cli::VerifyRequest& req, std::string& error) {
  cli::Args args;
  for (const auto& [name, values] : options) {
    if (values.empty()) args.setFlag(name);
    for (const std::string& v : values) args.addValue(name, v);
  }
  if (!cli::verifyRequestFromArgs(args, req, error)) return false;
  // The keys are loaded again for each signature; loading them into a verifier with no
  // document only tells whether they can be.
  std::unique_ptr<ClsXmlDSig> probe(ClsXmlDSig::createNewCls());
  if (!probe) {
    error = "out of memory";
    return false;
  }
  return cli::supplyKeys(*probe, req, error) && cli::applySignerPolicy(*probe, req, error);
}

namespace {

// The document's bytes; false with the tool's reason when the file cannot be read.
bool readDocument(Document& doc, std::string& error) {
  return doc.inMemory || cli::readInput(doc.name, doc.bytes, error);
}

// What a verdict line or a report says: not verified, or valid only when every signature is.
LineStatus lineStatus(const nlohmann::ordered_json& obj) {
  if (obj.contains("reportVersion")) {
    if (!obj["loaded"].get<bool>()) return LineStatus::NotVerified;
    for (const nlohmann::ordered_json& s : obj["signatures"])
      if (s["verdict"] != "valid") return LineStatus::Invalid;
    return LineStatus::Valid;
  }
  if (obj.contains("error")) return LineStatus::NotVerified;
  return obj.value("valid", false) ? LineStatus::Valid : LineStatus::Invalid;
}

}  // namespace

VerifyOutcome verifyOne(const cli::VerifyRequest& req, Document doc) {
  VerifyOutcome out;
  cli::DocumentVerdict verdict;
  if (readDocument(doc, verdict.error)) {
    verdict = cli::verifyDocument(req, doc.name, std::move(doc.bytes));
  } else {
    verdict.name = doc.name;
  }
  out.loaded = verdict.loaded;
  out.error = verdict.error;
  if (req.report) out.objects.push_back(cli::buildValidationReport(verdict, req));
  else out.objects = cli::verdictJson(verdict, req);
  return out;
}

InfoOutcome describeOne(const cli::VerifyRequest& req, Document doc) {
  InfoOutcome out;
  cli::DocumentInfo info;
  if (readDocument(doc, info.error)) {
    info = cli::inspectDocument(req, doc.name, std::move(doc.bytes));
  } else {
    info.name = doc.name;
  }
  out.loaded = info.loaded;
  out.error = info.error;
  out.object = cli::infoJson(info);
  return out;
}

std::vector<ResultLine> verifyFiles(const cli::VerifyRequest& req, const std::vector<std::string>& paths) {
  std::vector<ResultLine> lines;
  for (const std::string& path : paths) {
    Document doc;
    doc.name = path;
    for (const nlohmann::ordered_json& obj : verifyOne(req, std::move(doc)).objects) {
      lines.push_back({cli::jsonLineText(obj), lineStatus(obj)});
    }
  }
  return lines;
}

}  // namespace pyxmldsig
