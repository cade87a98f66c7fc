#include "cli/DocumentVerify.h"

#include <exception>
#include <memory>

#include "cli/FamilyReport.h"
#include "cli/ValidationReport.h"
#include "cli/VerifierSetup.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/transform/TransformAlgorithms.h"
#include "support/ClsXml.h"
#include "support/RefCountedObject.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
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

std::string joinedExcept(const std::vector<std::string>& keywords, const char* skip) {
  std::string joined;
  for (const std::string& k : keywords)
    if (k != skip) joined += (joined.empty() ? "" : ",") + k;
  return joined;
}

const char* statusOfReason(int reason, bool allowDigestError, bool ignoreExternal) {
  switch (reason) {
    case 0: return "valid";
    case 1: return allowDigestError ? "digest-mismatch-not-enforced" : "digest-mismatch";
    case 2: return ignoreExternal ? "skipped-no-external-data" : "external-data-missing";
    case 3: return "no-such-reference";
    case ClsXmlDSig::kRefFailUnknownAlgorithm: return "unsupported-algorithm";
    case 5: return "canonicalization-failed";
    default: return "failed";
  }
}

// What happened to each reference. Where the verification itself does not tell (it stops
// at the first failing reference, and options waive failures), each reference is checked
// again on its own with digest errors and missing data counted.
std::vector<ReferenceOutcome> referenceOutcomes(ClsXmlDSig& d, const VerifyRequest& req, const SignatureVerdict& s) {
  std::vector<ReferenceOutcome> out;
  const bool allowDigestError = hasKeyword(req, kAllowDigestError);
  // RefFailReason is the last reference's, so a failed verification says nothing of the others.
  const bool recheck = !req.noReferences && (!s.valid || allowDigestError || req.ignoreExternal);
  if (recheck) {
    d.put_UncommonOptions(XString(joinedExcept(req.options, kAllowDigestError).c_str()));
    d.put_IgnoreExternalRefs(false);
  }
  const int count = d.get_NumReferences();
  for (int i = 0; i < count; ++i) {
    ReferenceOutcome r;
    r.index = i;
    XString uri;
    d.ReferenceUri(i, uri);
    r.uri = uri.getUtf8();
    r.external = d.IsReferenceExternal(i);
    if (req.noReferences) {
      r.status = "not-checked";
    } else if (!recheck) {
      r.status = "valid";
    } else {
      const bool ok = d.VerifyReferenceDigest(i);
      r.status = statusOfReason(ok ? 0 : d.get_RefFailReason(), allowDigestError, req.ignoreExternal);
    }
    out.push_back(std::move(r));
  }
  if (recheck) {
    configureVerifier(d, req);
    d.put_IgnoreExternalRefs(req.ignoreExternal);
  }
  return out;
}

// The algorithm URI of a reference that the verifier does not know: its digest method, or
// else the first of its transforms not in the table.
std::string unknownAlgorithmOf(ClsXmlDSig& d, int index) {
  LogNull quiet;
  RcPtr<ClsXml> element(d.getReference(index, quiet));
  if (!element) return std::string();
  DSigReference ref;
  ref.parseReference(element.get(), quiet);
  if (!dsig_algorithms::findDigestMethod(ref.digestMethod.view())) return ref.digestMethod.getString();
  RcPtr<ClsXml> transforms(element->getChildWithTagUtf8("*:Transforms"));
  const int n = transforms ? transforms->numChildrenHavingTagUtf8("*:Transform", quiet) : 0;
  for (int i = 0; i < n; ++i) {
    RcPtr<ClsXml> t(transforms->getNthChildWithTagUtf8("*:Transform", i, quiet));
    StringBuffer uri;
    if (t) t->getAttrValue("Algorithm", uri);
    if (!dsig_algorithms::findAlgorithm(uri.view())) return uri.getString();
  }
  return std::string();
}

// The cause of a failed verification, from what the verifier reports as data: the
// reference outcomes, the signature method, and the keys it can find.
void explainFailure(ClsXmlDSig& d, const VerifyRequest& req, SignatureVerdict& s) {
  bool referenceFailed = false;
  for (const ReferenceOutcome& r : s.references)
    if (r.status != "valid" && r.status != "not-checked" && r.status != "digest-mismatch-not-enforced" &&
        r.status != "skipped-no-external-data")
      referenceFailed = true;
  if (referenceFailed) {
    for (const ReferenceOutcome& r : s.references) {
      const std::string which = "reference " + std::to_string(r.index) + " (URI \"" + r.uri + "\")";
      if (r.status == "digest-mismatch") {
        s.failure = "digest-mismatch";
        s.reason = "digest mismatch in " + which + ": the data it covers was changed";
        return;
      }
      if (r.status == "unsupported-algorithm") {
        s.failure = "unsupported-algorithm";
        s.reason = "unsupported algorithm \"" + unknownAlgorithmOf(d, r.index) + "\" in " + which;
        return;
      }
      if (r.status == "external-data-missing") {
        s.failure = "external-data-missing";
        s.reason = "external data missing for " + which + "; give it with --ref-data " + std::to_string(r.index) +
                   "=FILE or --external-dir DIR";
        return;
      }
    }
    s.failure = "other";
    return;
  }
  LogNull quiet;
  StringBuffer method;
  d.getSignatureMethod(method, quiet);
  const dsig_algorithms::SignatureMethod* known = dsig_algorithms::findSignatureMethod(method.view());
  if (!known) {
    s.failure = "unsupported-algorithm";
    s.reason = "unsupported signature algorithm \"" + std::string(method.getString()) + "\"";
    return;
  }
  StringBuffer canonMethod, prefixes;
  d.getCanonicalizationMethod(canonMethod, prefixes, quiet);
  const dsig_algorithms::AlgorithmRow* canon = dsig_algorithms::findAlgorithm(canonMethod.view());
  if (!canon || canon->kind != dsig_algorithms::StepKind::Canonical) {
    s.failure = "unsupported-algorithm";
    s.reason = "unsupported canonicalization algorithm \"" + std::string(canonMethod.getString()) + "\"";
    return;
  }
  // Only a signature of the expected shape got as far as its keys; any other failure keeps
  // the verifier's own reason.
  ClsXml* signature = d.selectedSignature();
  if (!signature || signature->numChildrenHavingTagUtf8("*:SignedInfo", quiet) != 1 ||
      signature->numChildrenHavingTagUtf8("*:SignatureValue", quiet) != 1) {
    s.failure = "other";
    return;
  }
  // The signer checks come after the signature value: when they refused the signer, the
  // verifier's own reason (which key, which chain error) is the one to show.
  if (d.get_TrustChecked() && !d.get_Trusted()) {
    s.failure = "untrusted-signer";
    return;
  }
  if (d.get_NumPinnedSigners() > 0 && known->keyType != dsig_algorithms::KeyType::Hmac) {
    s.failure = "signer-not-pinned";
    return;
  }
  if (known->keyType == dsig_algorithms::KeyType::Hmac) {
    if (!req.hasHmacKey) {
      s.failure = "no-key";
      s.reason = "no key: an HMAC signature needs its secret (--hmac-key)";
    } else {
      s.failure = "wrong-key";
      s.reason = "wrong key: the HMAC secret given does not verify the signature value";
    }
    return;
  }
  ExtPtrArrayRc keys;
  d.getPublicKey(false, keys, quiet);
  const int tried = keys.getSize();
  if (tried == 0) {
    s.failure = "no-key";
    s.reason = "no key found: KeyInfo yields none (give --key FILE, or --cert/--cert-dir for the certificate it names)";
    return;
  }
  s.failure = "wrong-key";
  s.reason = "wrong key: the signature value does not verify with " +
             (tried == 1 ? std::string("the key") : "any of the " + std::to_string(tried) + " keys") +
             " tried (or SignedInfo was changed)";
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
  const std::string lastError = d.lastErrorLine();
  if (req.log) s.log = logForStderr(d, name + "#" + std::to_string(s.index));
  if (req.log || req.report) s.logJson = d.m_log.renderJson();
  s.references = referenceOutcomes(d, req, s);
  if (!s.valid) {
    explainFailure(d, req, s);
    // A cause not told apart above keeps the verifier's own last error.
    if (s.reason.empty()) s.reason = lastError.empty() ? "the signature is not valid" : lastError;
  }
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
