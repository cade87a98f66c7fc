#include "cli/DocumentVerify.h"

#include <exception>
#include <memory>

#include "cli/FamilyReport.h"
#include "cli/ValidationReport.h"
#include "cli/VerifierSetup.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsXml.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

namespace cli {

namespace {

constexpr const char* kAllowDigestError = "AllowXmlDigestError";

bool hasKeyword(const VerifyRequest& req, const char* keyword) {
  for (const std::string& k : req.options)
    if (k == keyword) return true;  // the request holds the verifier's own spelling
  return false;
}

// What happened to each reference in the verification just made, as its results say;
// a failure that an option waived is named as such.
std::vector<ReferenceOutcome> referenceOutcomes(ClsXmlDSig& d, const VerifyRequest& req) {
  std::vector<ReferenceOutcome> out;
  const bool allowDigestError = hasKeyword(req, kAllowDigestError);
  const int count = d.get_NumReferences();
  for (int i = 0; i < count; ++i) {
    ReferenceOutcome r;
    r.index = i;
    XString uri;
    d.ReferenceUri(i, uri);
    r.uri = uri.getUtf8();
    r.external = d.IsReferenceExternal(i);
    const ReferenceResult* result = req.noReferences ? nullptr : d.referenceResult(i);
    r.status = result ? result->status() : "not-checked";
    if (r.status == "digest-mismatch" && allowDigestError) r.status = "digest-mismatch-not-enforced";
    if (r.status == "external-data-missing" && req.ignoreExternal) r.status = "skipped-no-external-data";
    out.push_back(std::move(r));
  }
  return out;
}

// The verifier's failure cause and reason, with the options that supply what was missing.
void explainFailure(ClsXmlDSig& d, SignatureVerdict& s) {
  XString cause, text;
  d.get_FailureCause(cause);
  d.get_FailureText(text);
  s.failure = cause.getUtf8();
  s.reason = text.getUtf8();
  if (s.failure == "external-data-missing") {
    s.reason += "; give it with --ref-data " + std::to_string(d.get_FailedReference()) + "=FILE or --external-dir DIR";
  } else if (s.failure == "no-key") {
    LogNull quiet;
    StringBuffer method;
    d.getSignatureMethod(method, quiet);
    const dsig_algorithms::SignatureMethod* known = dsig_algorithms::findSignatureMethod(method.view());
    s.reason += known && known->keyType == dsig_algorithms::KeyType::Hmac
                    ? " (--hmac-key)"
                    : " (give --key FILE, or --cert/--cert-dir for the certificate it names)";
  }
}

SignatureVerdict verifySelected(ClsXmlDSig& d, const VerifyRequest& req, const std::string& name) {
  SignatureVerdict s;
  s.index = d.get_Selector();
  StringBuffer id;
  LogNull quiet;
  if (d.selectedSignatureId(id, quiet)) s.id = id.getString();
  s.valid = d.VerifySignature(!req.noReferences);
  s.refFailReason = d.get_RefFailReason();
  s.referencesChecked = !req.noReferences;
  s.referenceDigestsEnforced = !hasKeyword(req, kAllowDigestError);
  if (req.log) s.log = logForStderr(d, name + "#" + std::to_string(s.index));
  if (req.log || req.report) s.logJson = d.m_log.renderJson();
  if (!s.valid) explainFailure(d, s);
  s.references = referenceOutcomes(d, req);
  return s;
}

DocumentVerdict verifyLoaded(const VerifyRequest& req, const std::string& name, std::string bytes) {
  DocumentVerdict res;
  res.name = name;
  std::unique_ptr<ClsXmlDSig> dsig = loadVerifier(req, name, std::move(bytes), res.error, &res.log);
  if (!dsig || !applySignerPolicy(*dsig, req, res.error)) return res;
  res.warnings = familyOptionWarnings(describeFamily(*dsig), req.options);
  if (req.report) res.reportDetails = documentReportDetails(*dsig, req);
  res.numSignatures = dsig->get_NumSignatures();
  std::vector<int> indexes;
  if (req.all) {
    for (int i = 0; i < res.numSignatures; ++i) indexes.push_back(i);
  } else {
    indexes.push_back(req.selector);
  }
  if (indexes.empty()) {
    res.error = "no signature found";
    return res;
  }
  for (int index : indexes) {
    if (!selectSignature(*dsig, req, index, res.error)) return res;
    // Keys and external data belong to the selected signature: supply them after selecting.
    applyRefData(*dsig, req);
    if (!supplyKeys(*dsig, req, res.error)) return res;
    SignatureVerdict s = verifySelected(*dsig, req, name);
    s.signer = signerReport(*dsig);  // after the reason and log: its calls start logs of their own
    if (req.report) s.reportDetails = signatureReportDetails(*dsig, s);
    res.signatures.push_back(std::move(s));
  }
  res.loaded = true;
  return res;
}

}  // namespace

DocumentVerdict verifyDocument(const VerifyRequest& req, const std::string& name, std::string bytes) {
  try {
    return verifyLoaded(req, name, std::move(bytes));
  } catch (const std::exception& e) {
    DocumentVerdict failed;
    failed.name = name;
    failed.error = std::string("internal error: ") + e.what();
    return failed;
  }
}

std::string verdictText(const SignatureVerdict& s) {
  if (!s.valid) return "INVALID (" + s.reason + ")";
  if (!s.referencesChecked) return "valid (signature value only; references not checked)";
  std::string notChecked;
  for (const ReferenceOutcome& r : s.references) {
    if (r.status == "digest-mismatch-not-enforced")
      notChecked += "; reference " + std::to_string(r.index) + " does not match";
    else if (r.status == "skipped-no-external-data")
      notChecked += "; reference " + std::to_string(r.index) + " not checked: no external data";
  }
  if (!s.referenceDigestsEnforced) return "valid (reference digests not enforced" + notChecked + ")";
  if (!notChecked.empty()) return "valid (" + notChecked.substr(2) + ")";
  return "valid";
}

}  // namespace cli
