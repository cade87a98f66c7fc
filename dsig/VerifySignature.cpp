// VerifySignature: verifies the selected signature from end to end, as a sequence of
// steps: its structure, its time-stamp (when it carries one), every reference (none is
// skipped after a failure), the signature and its SignedInfo located in the parsed
// document, the bytes the signature covers and their hash, the candidate keys, and the
// signature value under them; then the signer checks settle the verdict.
#include <string>

#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/SignatureLocation.h"
#include "dsig/keys/SignatureValueCheck.h"
#include "dsig/keys/SignerState.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsXml.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"

bool ClsXmlDSig::VerifySignature(bool verifyReferenceDigests) {
  OperationFrame frame(*this, "VerifySignature", true);
  const bool valid = verifySignature(verifyReferenceDigests, m_log);
  if (valid) {
    m_record.clearFailure();
  } else {
    if (m_record.failureCause.empty()) m_record.failureCause = "other";
    if (m_record.failureText.empty()) m_record.failureText = lastErrorLine();
    if (m_record.failureText.empty()) m_record.failureText = "the signature is not valid";
  }
  return valid;
}

bool ClsXmlDSig::verifySignature(bool verifyReferenceDigests, LogBase& log) {
  beginVerification(verifyReferenceDigests, log);
  ClsXml* signature = selectedSignature();
  if (m_signatures.getSize() == 0 || !signature) {
    noteFailure("structure");
    log.LogError("There are no signatures.");
    return false;
  }
  SignatureLocation location = locateInTree(*signature);
  log.LogDataSb("SignatureId", location.id);
  m_canonicalBytesUsed = 0;

  int numRefs = 0;
  if (!checkStructure(*signature, numRefs, log)) return false;
  // Time-stamp, first: its outcome is reported even when a reference then fails.
  if (!checkSignatureTimeStamp(*signature, log)) return false;
  // References.
  if (verifyReferenceDigests && !verifyReferences(location, numRefs, log)) return false;
  // Locate the signature and its SignedInfo in the document text.
  if (!locateSignedInfo(location, log)) return false;
  // Signed bytes.
  sigvalue::Signed data;
  StringBuffer canonAlgorithm;
  if (!canonicalSignedInfo(*signature, location, canonAlgorithm, data.bytes, log)) return false;
  // Hash.
  sigvalue::Method method;
  if (!readSignatureValue(*signature, method, data.value, log)) return false;
  hashSignedBytes(method, data);
  // Candidate keys.
  ExtPtrArrayRc keys;
  if (!candidateKeys(method, keys, log)) return false;
  // Check.
  ClsPublicKey* verifiedBy = nullptr;  // borrowed from keys
  const bool valid = checkSignatureValue(method, data, keys, canonAlgorithm, verifiedBy, log);
  return settleVerdict(valid, verifiedBy, method, keys.getSize(), log);
}

void ClsXmlDSig::beginVerification(bool verifyReferenceDigests, LogBase& log) {
  m_signerResult.clear();
  m_record.clearFailure();
  m_record.references.clear();
  m_record.selector = m_selector;
  m_record.signedInfoKept = false;
  m_record.canonicalSignedInfo.clear();
  log.LogDataSb("uncommonOptions", log.m_uncommonOptions);
  checkSetZatca(log);
  checkSetMyInvois(log);
  log.LogDataLong("verifyReferenceDigests", verifyReferenceDigests ? 1 : 0);
  log.LogDataLong("selector", m_selector);
}

bool ClsXmlDSig::checkStructure(ClsXml& signature, int& numRefs, LogBase& log) {
  // A signature that is not built as one (a second SignedInfo or SignatureValue, children
  // out of order) is refused before anything in it is read.
  if (!checkSignatureStructure(log)) {
    noteFailure("structure");
    logSuccessFailure2(false, log);
    return false;
  }
  LogNull quiet;
  numRefs = numReferences(&signature, quiet);
  if (numRefs == 0) {
    noteFailure("structure");
    log.LogError("There are no references.");
    return false;
  }
  if (numRefs > m_maxReferences) {
    noteFailure("limit-exceeded");
    log.LogError(("The signature has " + std::to_string(numRefs) + " references, more than MaxReferences (" +
                  std::to_string(m_maxReferences) + ").")
                     .c_str());
    logSuccessFailure2(false, log);
    return false;
  }
  return true;
}

bool ClsXmlDSig::verifyReferences(const SignatureLocation& location, int numRefs, LogBase& log) {
  ExtPtrArraySb dirs;
  log.LogDataX("externalRefDirs", m_externalRefDirs);
  if (!m_externalRefDirs.isEmpty()) splitExternalRefDirs(dirs);
  log.LogDataLong("numExternalRefDirs", dirs.getSize());

  int failures = 0;
  for (int i = 0; i < numRefs; ++i) {
    bool externalDataMissing = false;
    if (!verifyReferenceDigest(i, location, externalDataMissing, dirs, log)) {
      log.LogError("Failed to verify reference digest");
      log.LogDataLong("referenceIndex", i);
      if (!(externalDataMissing && m_ignoreExternalRefs)) ++failures;
      // A spent byte budget fails every later reference too: stop here.
      if (m_canonicalBytesUsed > m_maxCanonicalBytes) break;
    }
  }
  if (failures == 0) return true;
  noteReferenceFailure();
  log.LogDataLong("refFailureCount", failures);
  // A work limit is the reason a user needs to see, so it is the last error.
  if (m_refFailReason == kRefFailLimit) log.LogError(m_limitExceeded.c_str());
  logSuccessFailure2(false, log);
  return false;
}

bool ClsXmlDSig::checkSignatureValue(const sigvalue::Method& method, const sigvalue::Signed& data,
                                     const ExtPtrArrayRc& keys, const StringBuffer& canonAlgorithm,
                                     ClsPublicKey*& verifiedBy, LogBase& log) {
  verifiedBy = nullptr;
  if (!sigvalue::usesPublicKey(method.keyType)) return sigvalue::hmacVerifies(m_hmacKey, method, data, log);
  const int verifying = sigvalue::findVerifyingKey(keys, method, data, log);
  if (verifying >= 0) {
    verifiedBy = static_cast<ClsPublicKey*>(keys.elementAt(verifying));
    return true;
  }
  // What an RSA signer's own tools show, to compare with when the value does not verify.
  if (method.keyType == dsig_algorithms::KeyType::Rsa) {
    log.LogDataHexDb("signedInfoHash", data.hash);
    log.LogDataSb("canonicalizationMethod", canonAlgorithm);
    log.LogDataSb("canonicalizedSignedInfo", data.bytes);
  }
  return false;
}

bool ClsXmlDSig::settleVerdict(bool valid, ClsPublicKey* verifiedBy, const sigvalue::Method& method, int keysTried,
                               LogBase& log) {
  const bool hmac = !sigvalue::usesPublicKey(method.keyType);
  if (!valid) noteKeyFailure(hmac, keysTried);
  valid = settleSigner(valid, verifiedBy, hmac, log);
  if (!valid && m_signerResult.trustChecked && !m_signerResult.trusted) noteFailure("untrusted-signer");
  if (!valid && !m_signerPolicy.pinned.empty()) noteFailure("signer-not-pinned");
  logSuccessFailure2(valid, log);
  return valid;
}
