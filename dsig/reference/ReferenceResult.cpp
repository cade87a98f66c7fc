#include "dsig/reference/ReferenceResult.h"

#include <nlohmann/json.hpp>

namespace {

nlohmann::ordered_json elementJson(const CoveredElement& e) {
  nlohmann::ordered_json j;
  j["name"] = e.name;
  j["namespace"] = e.ns;
  j["id"] = e.id.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(e.id);
  j["path"] = e.path;
  j["start"] = e.start;
  j["end"] = e.end;
  return j;
}

nlohmann::ordered_json coverageJson(const Coverage& c) {
  nlohmann::ordered_json j;
  j["kind"] = c.kind;
  j["element"] = c.kind == "element" && c.hasElement ? elementJson(c.element) : nlohmann::ordered_json();
  nlohmann::ordered_json removed = nlohmann::ordered_json::array();
  for (const RemovedPart& part : c.removed) {
    nlohmann::ordered_json r;
    r["path"] = part.element.path;
    r["name"] = part.element.name;
    r["by"] = part.by;
    r["start"] = part.element.start;
    r["end"] = part.element.end;
    removed.push_back(r);
  }
  j["removed"] = removed;
  if (c.kind == "external") {
    j["external"] = {
        {"uri", c.externalUri},
        {"source", c.externalSource},
        {"file", c.externalFile.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(c.externalFile)}};
  } else {
    j["external"] = nullptr;
  }
  return j;
}

nlohmann::ordered_json orNull(const std::string& s) {
  return s.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(s);
}

}  // namespace

const char* referenceStatusOf(int refFailReason) {
  switch (refFailReason) {
    case 0: return "valid";
    case 1: return "digest-mismatch";
    case 2: return "external-data-missing";
    case 3: return "no-such-reference";
    case 4: return "unsupported-algorithm";
    case 5: return "canonicalization-failed";
    case 6: return "ambiguous-id";
    case 7: return "limit-exceeded";
    default: return "failed";
  }
}

std::string ReferenceResult::status() const { return checked ? referenceStatusOf(refFailReason) : "not-checked"; }

std::string ReferenceResult::toJson() const {
  nlohmann::ordered_json j;
  j["index"] = index;
  j["uri"] = uri;
  j["external"] = external;
  j["status"] = status();
  j["refFailReason"] = refFailReason;
  j["digestMethod"] = orNull(digestMethod);
  j["transforms"] = transforms;
  j["calculatedDigest"] = orNull(calculatedDigest);
  j["storedDigest"] = storedDigest;
  j["coverage"] = coverageJson(coverage);
  return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
