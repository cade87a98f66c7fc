#include "cli/ValidationReport.h"

#include <exception>
#include <set>
#include <utility>

#include "cli/FamilyReport.h"
#include "cli/Help.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"
#include "support/XString.h"
#include "support/xml/XmlTree.h"

namespace cli {

using nlohmann::ordered_json;

namespace {

// Documents up to this size are shown whole; larger ones by their first and last part,
// so that a page drawn from the report stays small.
constexpr size_t kWholeSourceLimit = 2 * 1024 * 1024;
constexpr size_t kSourceHead = 1024 * 1024;
constexpr size_t kSourceTail = 256 * 1024;
constexpr int kMinRsaBits = 2048;
constexpr int kHashSha1 = 1;
constexpr int kHashMd5 = 5;

ordered_json orNull(const std::string& s) { return s.empty() ? ordered_json(nullptr) : ordered_json(s); }

// A field of details gathered during verification; `absent` when they were not gathered
// (a document that was not loaded) or lack it.
ordered_json field(const ordered_json& details, const char* key, const ordered_json& absent) {
  return details.is_object() && details.contains(key) ? details[key] : absent;
}

ordered_json warning(const std::string& code, const std::string& text) { return {{"code", code}, {"text", text}}; }

// Moves a cut back to the start of a UTF-8 sequence, so that no character is split.
size_t charBoundary(std::string_view text, size_t at) {
  while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
  return at;
}

ordered_json sourceJson(std::string_view text) {
  ordered_json j;
  j["size"] = text.size();
  if (text.size() <= kWholeSourceLimit) {
    j["head"] = std::string(text);
    j["tail"] = nullptr;
    j["tailStart"] = nullptr;
    return j;
  }
  const size_t headEnd = charBoundary(text, kSourceHead);
  const size_t tailStart = charBoundary(text, text.size() - kSourceTail);
  j["head"] = std::string(text.substr(0, headEnd));
  j["tail"] = std::string(text.substr(tailStart));
  j["tailStart"] = tailStart;
  return j;
}

const char* weakHashName(int hashId) { return hashId == kHashSha1 ? "SHA-1" : hashId == kHashMd5 ? "MD5" : nullptr; }

// Each reference as the verifier's result describes it (digests, transforms, coverage),
// with the status the verdict gives it: a failure an option waived is named as such.
ordered_json referencesJson(ClsXmlDSig& d, const SignatureVerdict& s) {
  ordered_json refs = ordered_json::array();
  for (const ReferenceOutcome& outcome : s.references) {
    XString text;
    ordered_json r;
    if (d.GetReferenceResultJson(outcome.index, text)) r = ordered_json::parse(text.getUtf8(), nullptr, false);
    if (!r.is_object()) r = {{"index", outcome.index}, {"uri", outcome.uri}, {"external", outcome.external}};
    r["status"] = outcome.status;
    for (const char* key : {"refFailReason", "digestMethod", "calculatedDigest", "storedDigest", "coverage"})
      if (!r.contains(key)) r[key] = nullptr;
    if (!r.contains("transforms")) r["transforms"] = ordered_json::array();
    refs.push_back(std::move(r));
  }
  return refs;
}

// The XAdES SigningTime of the selected signature, as written.
std::string signingTime(ClsXmlDSig& d) {
  ClsXml* signature = d.selectedSignature();
  if (!signature) return std::string();
  RcPtr<ClsXml> time(signature->searchForTag(nullptr, "*:SigningTime"));
  StringBuffer text;
  if (!time || !time->getContentSb(text)) return std::string();
  text.trim2();
  return text.getString();
}

// The signature's time-stamp: what it states, and whether it verified (the token's
// signature, and that it stamps this signature value) in the verification just done.
ordered_json timeStampJson(ClsXmlDSig& d) {
  if (!d.HasEncapsulatedTimeStamp()) return nullptr;
  XString time, authority, error;
  d.GetTimeStampInfo(time, authority);
  d.get_TimeStampError(error);
  ordered_json j;
  j["time"] = orNull(time.getUtf8());
  j["authority"] = orNull(authority.getUtf8());
  j["verified"] = d.get_TimeStampVerified();
  j["error"] = orNull(error.getUtf8());
  return j;
}

ordered_json signatureSpan(ClsXmlDSig& d) {
  ClsXml* signature = d.selectedSignature();
  if (!signature || !signature->node()) return nullptr;
  return {{"start", signature->node()->start}, {"end", signature->node()->end}};
}

ordered_json algorithmsJson(ClsXmlDSig& d, const ordered_json& refs) {
  LogNull quiet;
  StringBuffer canon, prefixes, method;
  ordered_json j;
  j["canonicalization"] = d.getCanonicalizationMethod(canon, prefixes, quiet) ? orNull(canon.getString()) : nullptr;
  j["signature"] = d.getSignatureMethod(method, quiet) ? orNull(method.getString()) : nullptr;
  ordered_json digests = ordered_json::array();
  std::set<std::string> seen;
  for (const ordered_json& r : refs)
    if (r["digestMethod"].is_string() && seen.insert(r["digestMethod"].get<std::string>()).second)
      digests.push_back(r["digestMethod"]);
  j["digests"] = digests;
  return j;
}

// Weak algorithms and keys: a verdict of valid says nothing of how hard it would be to
// forge, so the report says it.
ordered_json algorithmWarnings(const ordered_json& algorithms, const std::string& keyType, int keyBits) {
  ordered_json out = ordered_json::array();
  if (algorithms["signature"].is_string()) {
    const std::string uri = algorithms["signature"];
    const dsig_algorithms::SignatureMethod* m = dsig_algorithms::findSignatureMethod(uri);
    if (m && weakHashName(m->hashId))
      out.push_back(warning("weak-signature-method", std::string("the signature method signs a ") +
                                                         weakHashName(m->hashId) + " digest: " + uri));
  }
  for (const ordered_json& uri : algorithms["digests"]) {
    const dsig_algorithms::DigestMethod* m = dsig_algorithms::findDigestMethod(uri.get<std::string>());
    if (m && weakHashName(m->hashId))
      out.push_back(warning("weak-digest", std::string("a reference is digested with ") + weakHashName(m->hashId) +
                                               ": " + uri.get<std::string>()));
  }
  if (keyType == "rsa" && keyBits > 0 && keyBits < kMinRsaBits)
    out.push_back(warning("short-rsa-key", "the signer's RSA key has " + std::to_string(keyBits) + " bits (under " +
                                               std::to_string(kMinRsaBits) + ")"));
  return out;
}

// What a valid verdict leaves unchecked, as warnings.
void notCheckedWarnings(const SignatureVerdict& s, ordered_json& out) {
  if (!s.valid) return;
  if (!s.referencesChecked)
    out.push_back(warning("references-not-checked", "only the signature value was checked, not the references"));
  for (const ReferenceOutcome& r : s.references) {
    const std::string which = "reference " + std::to_string(r.index) + " (URI \"" + r.uri + "\")";
    if (r.status == "digest-mismatch-not-enforced")
      out.push_back(warning("digest-not-enforced", which + " does not match; reference digests were not enforced"));
    else if (r.status == "skipped-no-external-data")
      out.push_back(warning("external-not-checked", which + " was not checked: no external data"));
  }
}

ordered_json signerJsonOf(const SignatureVerdict& s, const ordered_json& details) {
  if (s.signer.source.empty()) return nullptr;
  ordered_json j;
  j["subject"] = orNull(s.signer.subject);
  j["issuer"] = orNull(s.signer.issuer);
  j["serial"] = orNull(s.signer.serial);
  j["notBefore"] = orNull(s.signer.notBefore);
  j["notAfter"] = orNull(s.signer.notAfter);
  j["sha256"] = orNull(s.signer.sha256);
  j["source"] = s.signer.source;
  j["pinned"] = field(details, "pinned", false).get<bool>();
  j["keyType"] = field(details, "keyType", ordered_json(nullptr));
  j["keyBits"] = field(details, "keyBits", ordered_json(nullptr));
  return j;
}

ordered_json trustJsonOf(const SignatureVerdict& s) {
  if (!s.signer.trustChecked) return nullptr;
  ordered_json j;
  j["checked"] = true;
  j["trusted"] = s.signer.trusted;
  j["error"] = orNull(s.signer.trustError);
  j["chain"] = s.signer.chain;
  j["validationTime"] = orNull(s.signer.validationTime);
  j["validationTimeSource"] = orNull(s.signer.validationTimeSource);
  return j;
}

// The verifier's log as a JSON value; its text when it does not parse, null when none.
ordered_json structuredLog(const std::string& logJson) {
  if (logJson.empty()) return nullptr;
  ordered_json parsed = ordered_json::parse(logJson, nullptr, false);
  return parsed.is_discarded() ? ordered_json(logJson) : parsed;
}

ordered_json signatureReport(const SignatureVerdict& s) {
  const ordered_json& details = s.reportDetails;
  const Indication ind = indicationOf(s);
  ordered_json j;
  j["index"] = s.index;
  j["id"] = orNull(s.id);
  j["verdict"] = ind.indication == "TOTAL_PASSED"   ? "valid"
                 : ind.indication == "TOTAL_FAILED" ? "invalid"
                                                    : "indeterminate";
  j["indication"] = ind.indication;
  j["subIndication"] = orNull(ind.subIndication);
  j["failure"] = s.valid ? ordered_json(nullptr) : orNull(s.failure);
  // A valid signature of which less was checked says what, as the verdict line does.
  j["reason"] = s.valid ? (ind.indication == "TOTAL_PASSED" ? ordered_json(nullptr) : ordered_json(verdictText(s)))
                        : orNull(s.reason);
  j["algorithms"] = field(
      details, "algorithms",
      ordered_json{{"canonicalization", nullptr}, {"signature", nullptr}, {"digests", ordered_json::array()}});
  j["signer"] = signerJsonOf(s, details);
  j["trust"] = trustJsonOf(s);
  j["references"] = field(details, "references", ordered_json::array());
  j["signingTime"] = field(details, "signingTime", ordered_json(nullptr));
  j["timestamp"] = field(details, "timestamp", ordered_json(nullptr));
  j["signatureSpan"] = field(details, "signatureSpan", ordered_json(nullptr));
  ordered_json warnings = field(details, "warnings", ordered_json::array());
  notCheckedWarnings(s, warnings);
  j["warnings"] = warnings;
  j["log"] = structuredLog(s.logJson);
  return j;
}

// The options in effect, as they would be written on a command line; an HMAC secret is
// named, never shown.
ordered_json requestOptions(const VerifyRequest& req) {
  ordered_json out = ordered_json::array();
  auto add = [&](const std::string& text) { out.push_back(text); };
  if (req.all) add("--all");
  else if (!req.signatureId.empty()) add("--signature-id " + req.signatureId);
  else if (req.selector != 0) add("--selector " + std::to_string(req.selector));
  if (req.noReferences) add("--no-references");
  if (!req.keyFile.empty()) add("--key " + req.keyFile);
  for (const auto& [name, file] : req.namedKeys) add("--key " + name + "=" + file);
  if (req.hasHmacKey) add("--hmac-key (secret) --hmac-encoding " + req.hmacEncoding);
  for (const std::string& f : req.certFiles) add("--cert " + f);
  for (const std::string& f : req.certDirs) add("--cert-dir " + f);
  for (const std::string& f : req.signerFiles) add("--signer " + f);
  for (const std::string& f : req.trustPaths) add("--trust " + f);
  for (const std::string& f : req.crlFiles) add("--crl " + f);
  if (!req.validationTime.empty()) add("--at " + req.validationTime);
  for (const auto& [index, file] : req.refData) add("--ref-data " + std::to_string(index) + "=" + file);
  for (const std::string& d : req.externalDirs) add("--external-dir " + d);
  if (req.ignoreExternal) add("--ignore-external");
  if (req.maxReferences > 0) add("--limit references=" + std::to_string(req.maxReferences));
  if (req.maxTransforms > 0) add("--limit transforms=" + std::to_string(req.maxTransforms));
  if (req.maxCanonicalBytes > 0) add("--limit canonical-bytes=" + std::to_string(req.maxCanonicalBytes));
  for (const std::string& k : req.options) add("--option " + k);
  return out;
}

}  // namespace

Indication indicationOf(const SignatureVerdict& s) {
  if (s.valid) {
    for (const ReferenceOutcome& r : s.references)
      if (r.status == "digest-mismatch-not-enforced" || r.status == "skipped-no-external-data")
        return {"INDETERMINATE", ""};
    return {s.referencesChecked ? "TOTAL_PASSED" : "INDETERMINATE", ""};
  }
  const std::string& f = s.failure;
  if (f == "digest-mismatch") return {"TOTAL_FAILED", "HASH_FAILURE"};
  if (f == "wrong-key") return {"TOTAL_FAILED", "SIG_CRYPTO_FAILURE"};
  if (f == "structure" || f == "ambiguous-id" || f == "canonicalization-failed")
    return {"TOTAL_FAILED", "FORMAT_FAILURE"};
  if (f == "no-key") return {"INDETERMINATE", "NO_SIGNING_CERTIFICATE_FOUND"};
  if (f == "external-data-missing" || f == "no-such-reference") return {"INDETERMINATE", "SIGNED_DATA_NOT_FOUND"};
  if (f == "untrusted-signer")
    return {"INDETERMINATE", s.signer.hasCert ? "CHAIN_CONSTRAINTS_FAILURE" : "NO_CERTIFICATE_CHAIN_FOUND"};
  if (f == "signer-not-pinned" || f == "limit-exceeded") return {"INDETERMINATE", "SIG_CONSTRAINTS_FAILURE"};
  if (f == "unsupported-algorithm") return {"INDETERMINATE", "CRYPTO_CONSTRAINTS_FAILURE"};
  return {"INDETERMINATE", "GENERIC"};
}

ordered_json signatureReportDetails(ClsXmlDSig& d, const SignatureVerdict& s) {
  ordered_json j;
  j["references"] = referencesJson(d, s);
  j["algorithms"] = algorithmsJson(d, j["references"]);
  std::string keyType;
  int keyBits = 0;
  RcPtr<ClsPublicKey> key(d.GetSignerKey());
  if (key) {
    XString type;
    key->get_KeyType(type);
    keyType = type.getUtf8();
    keyBits = key->get_NumBits();
    j["keyType"] = orNull(keyType);
    j["keyBits"] = keyBits > 0 ? ordered_json(keyBits) : ordered_json(nullptr);
  }
  j["pinned"] = d.get_NumPinnedSigners() > 0 && !s.signer.source.empty() && s.signer.source != "HmacKey";
  j["signingTime"] = orNull(signingTime(d));
  j["signatureSpan"] = signatureSpan(d);
  j["warnings"] = algorithmWarnings(j["algorithms"], keyType, keyBits);
  j["timestamp"] = timeStampJson(d);
  return j;
}

ordered_json documentReportDetails(ClsXmlDSig& d, const VerifyRequest& req) {
  const FamilyReport family = describeFamily(d);
  ordered_json j;
  j["recognised"] = family.family == "generic" ? ordered_json(nullptr) : ordered_json(family.family);
  j["suggested"] = family.suggestedOptions;
  if (req.reportSource) {
    ClsXml* signature = d.selectedSignature();
    if (signature && signature->tree()) j["source"] = sourceJson(signature->tree()->text());
  }
  return j;
}

ordered_json buildValidationReport(const DocumentVerdict& v, const VerifyRequest& req) {
  ordered_json j;
  j["reportVersion"] = 1;
  j["tool"] = std::string("xmldsig ") + kToolVersion;
  j["file"] = v.name;
  j["loaded"] = v.loaded;
  j["error"] = v.loaded ? ordered_json(nullptr) : ordered_json(v.error.empty() ? "not loaded" : v.error);
  ordered_json family;
  family["recognised"] = field(v.reportDetails, "recognised", ordered_json(nullptr));
  family["options"] = req.options;
  family["suggested"] = field(v.reportDetails, "suggested", ordered_json::array());
  j["family"] = family;
  j["options"] = requestOptions(req);
  ordered_json signatures = ordered_json::array();
  for (const SignatureVerdict& s : v.signatures) signatures.push_back(signatureReport(s));
  j["signatures"] = signatures;
  ordered_json warnings = ordered_json::array();
  for (const std::string& w : v.warnings) warnings.push_back(warning("family-option-mismatch", w));
  j["warnings"] = warnings;
  if (req.reportSource) j["source"] = field(v.reportDetails, "source", ordered_json(nullptr));
  return j;
}

ordered_json validationReport(VerifyRequest req, const std::string& name, std::string bytes) {
  req.report = true;
  return buildValidationReport(verifyDocument(req, name, std::move(bytes)), req);
}

}  // namespace cli
