// Verifying the digest of one Reference of the selected signature: the public
// VerifyReferenceDigest, the retry that switches the attribute-sorting emulation, one
// attempt with its dispatch to the same-document or external path, the comparison of a
// same-document digest with the stored value, and the result kept for the reference.
#include <string>

#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/SignatureLocation.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/reference/ReferencePipeline.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

bool ClsXmlDSig::VerifyReferenceDigest(int index) {
  OperationFrame frame(*this, "VerifyReferenceDigest", true);
  LogBase& log = m_log;

  log.LogDataSb("uncommonOptions", log.m_uncommonOptions);
  // The family modes follow the options of this call, whatever an earlier call set.
  checkSetZatca(log);
  checkSetMyInvois(log);

  ExtPtrArraySb dirs;
  if (!m_externalRefDirs.isEmpty()) splitExternalRefDirs(dirs);

  // The single-reference call reports a missing external file as a failure even when
  // IgnoreExternalRefs is set: that property only excuses such references in VerifySignature.
  m_canonicalBytesUsed = 0;
  bool externalDataMissing = false;
  bool ok = checkSignatureStructure(log);
  if (ok) ok = verifyReferenceDigest(index, locateInTree(*selectedSignature()), externalDataMissing, dirs, log);
  logSuccessFailure(ok);
  return ok;
}

void ClsXmlDSig::splitExternalRefDirs(ExtPtrArraySb& dirs) const {
  m_externalRefDirs.getUtf8Sb().split(dirs, ';', true, true);
}

bool ClsXmlDSig::verifyReferenceDigest(int index, const SignatureLocation& location, bool& externalDataMissing,
                                       ExtPtrArraySb& dirs, LogBase& log) {
  LogContextExitor ctx(log, "verifyReferenceDigest");
  // Each attempt starts a fresh result; the last one is the reference's.
  ReferenceResult result;
  m_familyRefusal.clear();
  const bool ok = verifyReferenceDigestRetrying(index, location, result, externalDataMissing, dirs, log);
  result.refusal = m_familyRefusal;
  result.checked = true;
  result.index = index;
  result.refFailReason = ok && !result.mismatchWaived ? 0 : m_refFailReason;
  if (result.mismatchWaived) result.refFailReason = 1;
  result.externalDataMissing = externalDataMissing;
  if (index >= 0) {
    if (m_record.selector != m_selector) {
      m_record.references.clear();
      m_record.selector = m_selector;
    }
    if (m_record.references.size() <= static_cast<size_t>(index)) m_record.references.resize(index + 1);
    m_record.references[index] = std::move(result);
  }
  return ok;
}

bool ClsXmlDSig::verifyReferenceDigestRetrying(int index, const SignatureLocation& location, ReferenceResult& result,
                                               bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log) {
  if (referenceAttempt(index, location, result, externalDataMissing, dirs, log)) return true;

  log.LogDataLong("invalidDigestReason", m_refFailReason);
  // Only a plain mismatch can be explained by how the signer's canonicalizer ordered
  // attributes; every other failure would fail the same way again.
  if (m_refFailReason != 1) return false;

  // The setting is left as the retry made it: the later references and the SignedInfo
  // canonicalization then start with what this reference revealed about the signer.
  using SortBugRetry = dsig_family::FamilyProfile::SortBugRetry;
  const SortBugRetry sortBugRetry = family().attrSortBugRetry();
  if (sortBugRetry == SortBugRetry::Without) {
    log.LogInfo("Retry without duplication of common XML canonicalization attribute sorting bug...");
    setAttrSortBugEmulation(false);
    result = ReferenceResult();
    return referenceAttempt(index, location, result, externalDataMissing, dirs, log);
  }
  if (sortBugRetry == SortBugRetry::With) {
    log.LogInfo("Retry with duplication of common XML canonicalization attribute sorting bug...");
    setAttrSortBugEmulation(true);
    ReferenceResult retry;
    if (referenceAttempt(index, location, retry, externalDataMissing, dirs, log)) {
      log.LogInfo("This signature was produced by software having the attribute sorting bug.");
      result = std::move(retry);
      return true;
    }
    result = std::move(retry);
  }
  return false;
}

bool ClsXmlDSig::referenceAttempt(int index, const SignatureLocation& location, ReferenceResult& result,
                                  bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log) {
  LogContextExitor ctx(log, "verifyReferenceDigest_inner");
  externalDataMissing = false;
  m_refFailReason = 99;

  StringBuffer signatureId;
  selectedSignatureId(signatureId, log);
  log.LogDataSb("selectedSignatureId", signatureId);
  log.LogDataLong("index", index);

  RcPtr<ClsXml> referenceXml(getReference(index, log));
  if (!referenceXml) {
    log.LogError("No Reference at index");
    m_refFailReason = 3;
    return false;
  }

  ReferencePipeline pipe(result, m_record.keepDigestedBytes, location);
  pipe.parse(*referenceXml, log);
  // A digest method that is not known exactly is refused rather than replaced by another.
  if (pipe.ref.getHashAlg() == 0) {
    const std::string error = "Unknown DigestMethod algorithm: \"" + std::string(pipe.ref.digestMethod.view()) + "\"";
    log.LogError(error.c_str());
    m_refFailReason = kRefFailUnknownAlgorithm;
    return false;
  }
  StringBuffer uri(pipe.ref.uri);
  uri.trim2();

  // "#Id" and "#xpointer(...)" both name data inside the document; the canonicalization
  // transform resolves either form from the text after the '#'.
  if (uri.beginsWith("#")) {
    uri.removeChunk(0, 1);
    log.LogDataSb("sameDocumentUri", uri);
    return verifyInternalReference(index, uri, pipe, log);
  }
  if (uri.isEmpty()) {
    if (!family().canonicalizesCmaStpDocument()) log.LogInfo("URI is the entire XML document.");
    return verifyInternalReference(index, uri, pipe, log);
  }
  result.external = true;
  return verifyExternalReference(index, uri, pipe, externalDataMissing, dirs, log);
}

namespace {

// Base64 of the lowercase hex text of a digest: how ZATCA signers store SignedProperties digests.
void base64OfLowerHex(const DataBuffer& digest, StringBuffer& out) {
  StringBuffer hex;
  digest.encodeDB("hex_lower", hex);
  DataBuffer hexBytes;
  hexBytes.append(hex);
  out.clear();
  hexBytes.encodeDB("base64", out);
}

}  // namespace

bool ClsXmlDSig::compareSameDocumentDigest(const StringBuffer& uri, ReferencePipeline& pipe,
                                           bool transformedHasSignedProperties, const DataBuffer& digest,
                                           LogBase& log) {
  DSigReference& ref = pipe.ref;
  const StringBuffer& stored = ref.digestValue;
  StringBuffer computed;
  digest.encodeDB("base64", computed);
  pipe.result.calculatedDigest = computed.getString();
  log.LogDataSb("calculatedDigest", computed);
  log.LogDataSb("storedRefDigest", stored);
  if (computed.equals(stored)) {
    m_refFailReason = 0;
    return true;
  }

  // A stored value far longer than a base64 digest over SignedProperties is the ZATCA
  // form (base64 of the hex digest of the exclusive-canonical properties). Recognising it
  // here switches the object into ZATCA mode for the rest of its use.
  if (family().mayRetryZatcaForm() && stored.getSize() > computed.getSize() + 8 && transformedHasSignedProperties) {
    log.LogInfo("Retry with ZATCA rules...");
    StringBuffer zatcaXml(m_xmlSb);
    preprocessXmlToTransform(uri, ref, zatcaXml, log);
    const StringBuffer excC14n("xml-exc-c14n");
    // On failure the text stays as it was and simply will not match.
    transformCanonicalize(nullptr, zatcaXml, excC14n, uri, log);
    zatcaXml.replaceFirstOccurance("></ds:DigestMethod>", "/>", false);
    DataBuffer zatcaDigest;
    pipe.hash(zatcaXml.getString(), zatcaXml.getSize(), ref.getHashAlg(), zatcaDigest);
    base64OfLowerHex(zatcaDigest, computed);
    pipe.result.calculatedDigest = computed.getString();
    log.LogDataSb("calculatedDigest2", computed);
    log.LogDataSb("storedRefDigest2", stored);
    adoptZatcaRules();
    if (computed.equals(stored)) {
      m_refFailReason = 0;
      return true;
    }
  }

  // Some signers store the digest as hex instead of base64.
  if (stored.isHexidecimal()) {
    log.LogError("Checking to see if the signed XML's digest is hex.  Will convert to base64 and re-compare.");
    DataBuffer storedBytes;
    storedBytes.appendEncoded(stored.getString(), "hex");
    StringBuffer storedBase64;
    storedBytes.encodeDB("base64", storedBase64);
    log.LogDataSb("storedRefDigest_base64", storedBase64);
    if (computed.equals(storedBase64)) {
      m_refFailReason = 0;
      return true;
    }
  }

  // This option waives digest checking altogether (keywords match in any case).
  if (log.hasUncommonOption("AllowXmlDigestError", true)) {
    pipe.result.mismatchWaived = true;
    m_refFailReason = 0;
    return true;
  }

  m_refFailReason = 1;
  return false;
}
