// Why the verification under way failed, for a user: one word from a fixed list (the
// failure cause) and one line that says it plainly. The first cause recorded stands.
#include <string>

#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/SignerState.h"
#include "dsig/reference/ReferenceResult.h"
#include "dsig/transform/TransformAlgorithms.h"

void ClsXmlDSig::noteFailure(const char* cause, const std::string& text) {
  if (!m_record.failureCause.empty()) return;
  m_record.failureCause = cause;
  m_record.failureText = text;
}

void ClsXmlDSig::noteKeyFailure(bool hmac, int keysTried) {
  if (!hmac && !m_signerPolicy.pinned.empty()) {
    noteFailure("signer-not-pinned");  // only pinned keys were tried
  } else if (hmac) {
    noteFailure("wrong-key", "wrong key: the HMAC secret given does not verify the signature value");
  } else {
    noteFailure("wrong-key",
                "wrong key: the signature value does not verify with " +
                    (keysTried == 1 ? std::string("the key") : "any of the " + std::to_string(keysTried) + " keys") +
                    " tried (or SignedInfo was changed)");
  }
}

namespace {

// The algorithm of a reference that is not known: its digest method, else the first of
// its transforms not in the table.
std::string unknownAlgorithmOf(const ReferenceResult& r) {
  if (!dsig_algorithms::findDigestMethod(r.digestMethod)) return r.digestMethod;
  for (const std::string& uri : r.transforms)
    if (!dsig_algorithms::findAlgorithm(uri)) return uri;
  return std::string();
}

}  // namespace

void ClsXmlDSig::noteReferenceFailure() {
  // A family cut the document's structure refused says why before anything else.
  for (const ReferenceResult& r : m_record.references) {
    if (!r.checked || r.refusal.empty()) continue;
    m_record.failedReference = r.index;
    noteFailure("structure", "reference " + std::to_string(r.index) + " (URI \"" + r.uri + "\"): " + r.refusal);
    return;
  }
  // A changed document, an algorithm not supported and missing data are what a user must
  // hear about; any other failing reference keeps the verifier's own reason.
  const ReferenceResult* first = nullptr;
  for (const bool toldApart : {true, false}) {
    for (const ReferenceResult& r : m_record.references) {
      if (!r.checked || r.refFailReason == 0 || r.mismatchWaived || (r.externalDataMissing && m_ignoreExternalRefs))
        continue;
      const std::string status = r.status();
      if (!toldApart || status == "digest-mismatch" || status == "unsupported-algorithm" ||
          status == "external-data-missing") {
        first = &r;
        break;
      }
    }
    if (first) break;
  }
  if (!first) return;
  m_record.failedReference = first->index;
  const std::string which = "reference " + std::to_string(first->index) + " (URI \"" + first->uri + "\")";
  const std::string status = first->status();
  if (status == "digest-mismatch") {
    noteFailure("digest-mismatch", "digest mismatch in " + which + ": the data it covers was changed");
  } else if (status == "unsupported-algorithm") {
    noteFailure("unsupported-algorithm", "unsupported algorithm \"" + unknownAlgorithmOf(*first) + "\" in " + which);
  } else if (status == "external-data-missing") {
    noteFailure("external-data-missing", "external data missing for " + which);
  } else {
    noteFailure(status == "failed" ? "other" : status.c_str());
  }
}
