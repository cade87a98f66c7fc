#include "cli/DocumentJson.h"

#include <utility>

namespace cli {

using nlohmann::ordered_json;

std::vector<ordered_json> verdictJson(const DocumentVerdict& f, const VerifyRequest& req) {
  std::vector<ordered_json> out;
  if (!f.loaded) {
    ordered_json j;
    j["file"] = f.name;
    j["error"] = f.error;
    out.push_back(std::move(j));
  }
  for (const SignatureVerdict& s : f.signatures) {
    ordered_json j;
    j["file"] = f.name;
    j["signature"] = s.index;
    j["id"] = s.id;
    j["valid"] = s.valid;
    j["refFailReason"] = s.refFailReason;
    if (!s.valid) j["reason"] = s.reason;
    if (req.log) j["log"] = s.log;
    out.push_back(std::move(j));
  }
  return out;
}

ordered_json infoJson(const DocumentInfo& f) {
  ordered_json j;
  j["file"] = f.name;
  j["loaded"] = f.loaded;
  if (!f.loaded) {
    j["error"] = f.error;
    j["signatures"] = ordered_json::array();
    return j;
  }
  j["family"] = f.family.family;
  j["suggestedOptions"] = f.family.suggestedOptions;
  ordered_json sigs = ordered_json::array();
  for (const SignatureInfo& s : f.signatures) {
    ordered_json js;
    js["index"] = s.index;
    js["id"] = s.id;
    js["element"] = s.element;
    js["family"] = f.family.family;
    js["suggestedOptions"] = f.family.suggestedOptions;
    js["canonicalizationMethod"] = s.c14nMethod;
    js["inclusiveNamespaces"] = s.prefixList;
    js["signatureMethod"] = s.signatureMethod;
    js["hasSignedInfo"] = s.hasSignedInfo;
    ordered_json refs = ordered_json::array();
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

std::vector<ordered_json> verifyDocumentJson(const VerifyRequest& req, const std::string& name, std::string bytes) {
  return verdictJson(verifyDocument(req, name, std::move(bytes)), req);
}

ordered_json infoDocumentJson(const VerifyRequest& req, const std::string& name, std::string bytes) {
  return infoJson(inspectDocument(req, name, std::move(bytes)));
}

}  // namespace cli
