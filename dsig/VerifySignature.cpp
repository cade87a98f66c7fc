// VerifySignature: verifies the selected signature from end to end. Its structure is
// checked first, then every reference (none is skipped after a failure), then its
// SignedInfo, located in the parsed document, is canonicalized (with the document-family
// cases), hashed, and the signature value checked under every candidate key.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "crypto/ClsPublicKey.h"
#include "crypto/DsaVerifier.h"
#include "crypto/EccKey.h"
#include "crypto/Hmac.h"
#include "crypto/KeyData.h"
#include "crypto/RsaVerifier.h"
#include "crypto/SignatureCheck.h"
#include "crypto/_btHash.h"
#include "crypto/_btPublicKey.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/RsaPssParams.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/keys/SignerState.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/reference/ReferenceResult.h"
#include "dsig/transform/TransformAlgorithms.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlCanon.h"
#include "xml/XmlSigLocate.h"

namespace {

// The SII web domain without its leading host label ("www.sii.cl" -> "sii.cl"), as the
// SII failure message names it.
std::string siiDomainWithoutHost() {
  std::string domain = dsig_family::kChileSiiDomain;
  size_t dot = domain.find('.');
  return dot == std::string::npos ? domain : domain.substr(dot + 1);
}

}  // namespace

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

bool ClsXmlDSig::verifySignature(bool verifyReferenceDigests, LogBase& log) {
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

  ClsXml* signature = selectedSignature();
  if (m_signatures.getSize() == 0 || !signature) {
    noteFailure("structure");
    log.LogError("There are no signatures.");
    return false;
  }

  StringBuffer signatureId;
  signature->getAttrValue("Id", signatureId);
  log.LogDataSb("SignatureId", signatureId);

  m_canonicalBytesUsed = 0;
  // A signature that is not built as one (a second SignedInfo or SignatureValue, children
  // out of order) is refused before anything in it is read.
  if (!checkSignatureStructure(log)) {
    noteFailure("structure");
    logSuccessFailure2(false, log);
    return false;
  }

  LogNull quiet;
  const int numRefs = numReferences(signature, quiet);
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

  // The time-stamp first: its outcome is reported even when a reference then fails.
  if (!checkSignatureTimeStamp(*signature, log)) return false;

  if (verifyReferenceDigests) {
    ExtPtrArraySb dirs;
    log.LogDataX("externalRefDirs", m_externalRefDirs);
    if (!m_externalRefDirs.isEmpty()) splitExternalRefDirs(dirs);
    log.LogDataLong("numExternalRefDirs", dirs.getSize());

    int failures = 0;
    for (int i = 0; i < numRefs; ++i) {
      bool externalDataMissing = false;
      if (!verifyReferenceDigest(i, externalDataMissing, dirs, log)) {
        log.LogError("Failed to verify reference digest");
        log.LogDataLong("referenceIndex", i);
        if (!(externalDataMissing && m_ignoreExternalRefs)) ++failures;
        // A spent byte budget fails every later reference too: stop here.
        if (m_canonicalBytesUsed > m_maxCanonicalBytes) break;
      }
    }
    if (failures >= 1) {
      noteReferenceFailure();
      log.LogDataLong("refFailureCount", failures);
      // A work limit is the reason a user needs to see, so it is the last error.
      if (m_refFailReason == kRefFailLimit) log.LogError(m_limitExceeded.c_str());
      logSuccessFailure2(false, log);
      return false;
    }
  }

  // Locate the signature and its SignedInfo in the document text.
  DSigReference firstRef;
  {
    RcPtr<ClsXml> refElement(getReference(0, log));
    if (!refElement) {
      log.LogError("No Reference at index 0");
      return false;
    }
    firstRef.parseReference(refElement.get(), log);
  }
  XmlSigLocate locator;
  if (!locateSignature(locator, signatureId, firstRef.digestValue, 3, log)) return false;
  const size_t signedInfoStart = locator.m_signedInfoStart;

  const dsig_family::SignedBytes signedBytes = family().signedBytes();
  if (family().logsSignedInfo())
    log.LogBracketed("signedInfo", m_xmlSb.substr(signedInfoStart, locator.m_signedInfoLength));

  StringBuffer canonAlgorithm;
  StringBuffer prefixList;
  if (!getCanonicalizationMethod(canonAlgorithm, prefixList, log)) {
    noteFailure("structure");
    log.LogError("Unable to get SignedInfo CanonicalizationMethod.");
    return false;
  }

  XmlCanon canon;
  if (!prefixList.isEmpty()) prefixList.split(canon.inclusivePrefixes, ' ', true, true);
  const dsig_algorithms::AlgorithmRow* c14nRow = dsig_algorithms::findAlgorithm(canonAlgorithm.view());
  if (!c14nRow || c14nRow->kind != dsig_algorithms::StepKind::Canonical) {
    noteFailure("unsupported-algorithm",
                "unsupported canonicalization algorithm \"" + std::string(canonAlgorithm.view()) + "\"");
    log.LogError(("Unknown canonicalization method: " + std::string(canonAlgorithm.view())).c_str());
    logSuccessFailure2(false, log);
    return false;
  }
  canon.canonMethod = c14nRow->form == dsig_algorithms::CanonicalForm::Exclusive10 ? 2 : 1;
  canon.withComments = c14nRow->withComments;
  canon.canonFlagSignedInfo = false;
  if (family().emulatesAttrSortBug()) {
    log.LogInfo("Will duplicate the XML canonicalization attribute sorting bug...");
    canon.emulateAttrSortBug = true;
  }
  if (!family().signedInfoNonSkXml()) canon.canonFlagNonSkXml = false;

  // The bytes the signature covers.
  StringBuffer canonSignedInfo;
  const bool siiCase = signedBytes == dsig_family::SignedBytes::SignedInfoInSiiDte && !m_siiDteXml.isEmpty() &&
                       m_siiDteOffset != 0 && static_cast<size_t>(m_siiDteOffset) < signedInfoStart;
  if (siiCase) {
    const size_t offset = signedInfoStart - static_cast<size_t>(m_siiDteOffset);
    if (!canon.xmlCanonicalize(m_siiDteXml, nullptr, offset, canonSignedInfo, log)) {
      noteFailure("canonicalization-failed");
      std::string msg = "Failed to canonicalize " + siiDomainWithoutHost() + " SignedInfo fragment.";
      log.LogError(msg.c_str());
      return false;
    }
  } else if (signedBytes == dsig_family::SignedBytes::SignedInfoInDoda) {
    StringBuffer doda;
    size_t dodaPos = 0;
    if (!dsig_family::dodaElementText(signature, doda, dodaPos, log)) {
      noteFailure("structure", "the doda element is not the one written around the signature");
      return false;
    }
    const size_t offset = signedInfoStart - dodaPos;
    if (!canon.xmlCanonicalize(doda, nullptr, offset, canonSignedInfo, log)) {
      noteFailure("canonicalization-failed");
      log.LogError("Failed to canonicalize doda SignedInfo fragment.");
      return false;
    }
  } else if (signedBytes == dsig_family::SignedBytes::ZatcaInvoiceHash) {
    RcPtr<ClsXml> refElement(getReference(0, log));
    if (!refElement) {
      log.LogError("Failed to get first reference for signature verification.");
      return false;
    }
    if (!dsig_family::zatcaInvoiceChainIsFixed(refElement.get(), log)) {
      noteFailure("structure",
                  "the invoice reference does not carry exactly the ZATCA transform chain, which the "
                  "signature value does not cover");
      return false;
    }
    if (!refElement->getChildContentUtf8("*:DigestValue", canonSignedInfo, false)) {
      log.LogError("Failed to get invoiceHash for signature verification.");
      return false;
    }
  } else {
    // SignedInfo inside its ancestors' inherited context reads as it does in the whole
    // document, without canonicalizing everything that comes before it. The canonicalizer
    // logs only failures; a failure there is left to the whole document to report.
    StringBuffer context;
    size_t contextOffset = 0;
    LogNull quietCanon;
    RcPtr<ClsXml> signedInfo(signature->getChildWithTagUtf8("*:SignedInfo"));
    const xml::XmlTree* tree = signedInfo ? signedInfo->tree() : nullptr;
    const bool done = tree && elementInContext(tree->indexOf(*signedInfo->node()), {}, context, contextOffset) &&
                      canon.xmlCanonicalize(context, nullptr, contextOffset, canonSignedInfo, quietCanon);
    if (!done && !canon.xmlCanonicalize(m_xmlSb, nullptr, signedInfoStart, canonSignedInfo, log)) {
      noteFailure("canonicalization-failed");
      log.LogError("Failed to canonicalize SignedInfo fragment.");
      return false;
    }
  }
  if (log.m_verboseLogging) log.LogBracketed("canonicalizedSignedInfo", canonSignedInfo);
  if (m_record.keepDigestedBytes) {
    m_record.canonicalSignedInfo.assign(canonSignedInfo.getString(), canonSignedInfo.getSize());
    m_record.signedInfoKept = true;
  }

  StringBuffer signatureValue;
  if (!getSignatureValue(signatureValue, log)) {
    noteFailure("structure");
    log.LogError("Unable to find the SignatureValue element.");
    return false;
  }
  DataBuffer signatureBytes;
  if (!ContentCoding::decodeBase64ToDb(signatureValue.getString(), signatureValue.getSize(), signatureBytes)) {
    noteFailure("structure");
    log.LogError("Failed to decode base64 SignatureValue.");
    return false;
  }

  StringBuffer signatureMethod;
  if (!getSignedInfoField("SignatureMethod", "Algorithm", signatureMethod, log)) {
    noteFailure("structure");
    log.LogError("Unable to location the SignatureMethod algorithm within the SignedInfo.");
    return false;
  }
  log.LogDataSb("SignatureMethod", signatureMethod);
  // Only a method known exactly is used: an unknown URI is never read as a nearby one.
  const dsig_algorithms::SignatureMethod* method = dsig_algorithms::findSignatureMethod(signatureMethod.view());
  if (!method) {
    noteFailure("unsupported-algorithm",
                "unsupported signature algorithm \"" + std::string(signatureMethod.view()) + "\"");
    const std::string error = "Unknown SignatureMethod algorithm: \"" + std::string(signatureMethod.view()) + "\"";
    log.LogError(error.c_str());
    logSuccessFailure2(false, log);
    return false;
  }
  rsapss::Params pss;
  if (method->padding == dsig_algorithms::RsaPadding::Pss &&
      !rsapss::readParams(*signature, method->uri, method->hashId, pss, log)) {
    logSuccessFailure2(false, log);
    return false;
  }
  const int hashId = method->padding == dsig_algorithms::RsaPadding::Pss ? pss.hashId : method->hashId;
  const int keyType = static_cast<int>(method->keyType);

  DataBuffer signedHash;
  if (signedBytes == dsig_family::SignedBytes::ZatcaInvoiceHash) {
    DataBuffer invoiceHash;
    ContentCoding::decodeBase64ToDb(canonSignedInfo.getString(), canonSignedInfo.getSize(), invoiceHash);
    _btHash::doHash(invoiceHash.getData2(), invoiceHash.getSize(), hashId, signedHash);
  } else if (signedBytes == dsig_family::SignedBytes::MyInvoisDocumentDigest) {
    signedHash = m_myInvoisDigest;
  } else {
    _btHash::doHash(canonSignedInfo.getString(), canonSignedInfo.getSize(), hashId, signedHash);
  }

  ExtPtrArrayRc keys;
  if ((keyType >= 1 && keyType <= 3) || keyType == 5) {
    const bool keysRead = getPublicKey(false, keys, log);
    pinCandidateKeys(keys, log);
    if ((!keysRead && m_signerPolicy.pinned.empty()) || keys.getSize() == 0) {
      noteFailure("no-key", "no key found: KeyInfo yields none");
      log.LogError("No public key available to verify signature.");
      return false;
    }
  } else if (keyType == 4) {
    if (m_hmacKey.isEmpty()) {
      noteFailure("no-key", "no key: an HMAC signature needs its secret");
      log.LogError("No HMAC key available to verify signature.");
      return false;
    }
  } else {
    log.LogInfo("Unknown key type...");
    log.LogError("Invalid key type");
    logSuccessFailure2(false, log);
    return false;
  }

  bool valid = false;
  ClsPublicKey* verifiedBy = nullptr;  // borrowed from keys
  if (keyType != 4) {
    sigcheck::Method check;
    check.kind = static_cast<sigcheck::KeyKind>(keyType);
    check.hashId = hashId;
    check.rsaPadding = static_cast<int>(method->padding);
    check.mgfHashId = pss.mgfHashId;
    check.saltLength = pss.saltLength;
    sigcheck::Input input;
    input.signature = signatureBytes.getData2();
    input.signatureLen = signatureBytes.getSize();
    input.hash = signedHash.getData2();
    input.hashLen = signedHash.getSize();
    input.message = reinterpret_cast<const unsigned char*>(canonSignedInfo.getString());
    input.messageLen = canonSignedInfo.getSize();
    const int verifying = sigcheck::findVerifyingKey(keys, check, input, log);
    valid = verifying >= 0;
    if (valid) verifiedBy = static_cast<ClsPublicKey*>(keys.elementAt(verifying));
    if (!valid && keyType == 1) {
      log.LogDataHexDb("signedInfoHash", signedHash);
      log.LogDataSb("canonicalizationMethod", canonAlgorithm);
      log.LogDataSb("canonicalizedSignedInfo", canonSignedInfo);
    }
  } else {
    DataBuffer mac;
    if (!Hmac::doHMAC(canonSignedInfo.getString(), canonSignedInfo.getSize(), m_hmacKey.getData2(), m_hmacKey.getSize(),
                      hashId, mac, log)) {
      log.LogError("HMAC verify failed.");
      valid = false;
    } else {
      // The decoded value, so that white space anywhere in it (wrapped lines) is ignored.
      valid = Hmac::matchesFullOutput(mac, signatureBytes);
      if (!valid) log.LogError("HMAC validation failed.");
    }
  }

  if (!valid) noteKeyFailure(keyType == 4, keys.getSize());
  valid = settleSigner(valid, verifiedBy, keyType == 4, log);
  if (!valid && m_signerResult.trustChecked && !m_signerResult.trusted) noteFailure("untrusted-signer");
  if (!valid && !m_signerPolicy.pinned.empty()) noteFailure("signer-not-pinned");
  logSuccessFailure2(valid, log);
  return valid;
}
