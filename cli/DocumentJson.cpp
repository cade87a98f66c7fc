#include "cli/DocumentJson.h"

#include <utility>

#include "cli/AlgorithmNames.h"

namespace cli {

using nlohmann::ordered_json;

namespace {

std::vector<std::string> transformNames(const std::vector<std::string>& uris) {
  std::vector<std::string> names;
  for (const std::string& uri : uris) names.push_back(transformName(uri));
  return names;
}

// The verifier's log as a JSON value; its text when it does not parse.
ordered_json structuredLog(const std::string& logJson) {
  ordered_json parsed = ordered_json::parse(logJson, nullptr, false);
  return parsed.is_discarded() ? ordered_json(logJson) : parsed;
}

}  // namespace

ordered_json errorJson(const std::string& name, const std::string& error) {
  ordered_json j;
  j["file"] = name;
  j["error"] = error;
  return j;
}

std::vector<ordered_json> verdictJson(const DocumentVerdict& f, const VerifyRequest& req) {
  std::vector<ordered_json> out;
  if (!f.loaded) out.push_back(errorJson(f.name, f.error));
  for (const SignatureVerdict& s : f.signatures) {
    ordered_json j;
    j["file"] = f.name;
    j["signature"] = s.index;
    j["id"] = s.id;
    j["valid"] = s.valid;
    j["referencesChecked"] = s.referencesChecked;
    j["referenceDigestsEnforced"] = s.referenceDigestsEnforced;
    j["refFailReason"] = s.refFailReason;
    if (!s.valid) {
      j["failure"] = s.failure;
      j["reason"] = s.reason;
    }
    j["signer"] = signerJson(s.signer);
    j["trust"] = trustJson(s.signer);
    ordered_json refs = ordered_json::array();
    for (const ReferenceOutcome& r : s.references)
      refs.push_back({{"index", r.index}, {"uri", r.uri}, {"external", r.external}, {"status", r.status}});
    j["references"] = refs;
    j["warnings"] = f.warnings;
    if (req.log) j["log"] = structuredLog(s.logJson);
    out.push_back(std::move(j));
  }
  return out;
}

ordered_json infoJson(const DocumentInfo& f) {
  if (!f.loaded) return errorJson(f.name, f.error);
  ordered_json j;
  j["file"] = f.name;
  j["loaded"] = f.loaded;
  j["family"] = f.family.family;
  j["suggestedOptions"] = f.family.suggestedOptions;
  j["warnings"] = f.warnings;
  ordered_json sigs = ordered_json::array();
  for (const SignatureInfo& s : f.signatures) {
    ordered_json js;
    js["index"] = s.index;
    js["id"] = s.id;
    js["element"] = s.element;
    js["family"] = f.family.family;
    js["suggestedOptions"] = f.family.suggestedOptions;
    js["canonicalizationMethod"] = s.c14nMethod;
    js["canonicalizationName"] = transformName(s.c14nMethod);
    js["inclusiveNamespaces"] = s.prefixList;
    js["signatureMethod"] = s.signatureMethod;
    js["signatureMethodName"] = signatureMethodName(s.signatureMethod);
    js["hasSignedInfo"] = s.hasSignedInfo;
    ordered_json refs = ordered_json::array();
    for (size_t i = 0; i < s.references.size(); ++i) {
      const ReferenceInfo& r = s.references[i];
      refs.push_back({{"index", i},
                      {"uri", r.uri},
                      {"uriPresent", r.uriPresent},
                      {"external", r.external},
                      {"digestMethod", r.digestMethod},
                      {"digestMethodName", digestMethodName(r.digestMethod)},
                      {"transforms", r.transforms},
                      {"transformNames", transformNames(r.transforms)}});
    }
    js["references"] = refs;
    ordered_json certs = ordered_json::array();
    for (const CertificateInfo& c : s.certificates)
      certs.push_back(
          {{"subject", c.subject}, {"issuer", c.issuer}, {"notBefore", c.notBefore}, {"notAfter", c.notAfter}});
    js["certificates"] = certs;
    sigs.push_back(js);
  }
  j["signatures"] = sigs;
  if (!f.logJson.empty()) j["log"] = structuredLog(f.logJson);
  return j;
}

std::vector<ordered_json> verifyDocumentJson(const VerifyRequest& req, const std::string& name, std::string bytes) {
  return verdictJson(verifyDocument(req, name, std::move(bytes)), req);
}

ordered_json infoDocumentJson(const VerifyRequest& req, const std::string& name, std::string bytes) {
  return infoJson(inspectDocument(req, name, std::move(bytes)));
}

}  // namespace cli
