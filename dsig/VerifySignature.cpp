// VerifySignature: verifies the selected signature from end to end. Every reference is
// checked first (none is skipped after a failure), then the signature is located in the
// document text, its SignedInfo canonicalized in place (with the document-family cases),
// hashed, and the signature value checked under every candidate key.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "crypto/Hmac.h"
#include "crypto/DsaVerifier.h"
#include "crypto/EccKey.h"
#include "crypto/KeyData.h"
#include "crypto/RsaVerifier.h"
#include "crypto/_btPublicKey.h"
#include "crypto/_btHash.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
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

std::string withoutXmlSpace(const StringBuffer& s) {
  std::string out;
  out.reserve(s.getSize());
  for (char c : s.view())
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') out.push_back(c);
  return out;
}

// Whether a DigestValue of a Reference directly inside the first SignedInfo of the
// signature holds digest (white space ignored on both sides), as the digest scan decides.
bool holdsReferenceDigest(ClsXml& signature, const std::string& digest) {
  RcPtr<ClsXml> signedInfo(signature.getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) return false;
  LogNull quiet;
  StringBuffer content;
  for (int r = 0;; ++r) {
    RcPtr<ClsXml> reference(signedInfo->getNthChildWithTagUtf8("*:Reference", r, quiet));
    if (!reference) return false;
    for (int d = 0;; ++d) {
      RcPtr<ClsXml> digestValue(reference->getNthChildWithTagUtf8("*:DigestValue", d, quiet));
      if (!digestValue) break;
      content.clear();
      digestValue->getContentSb(content);
      if (withoutXmlSpace(content) == digest) return true;
    }
  }
}

bool isSignatureStart(const std::vector<size_t>& sortedStarts, size_t start) {
  return std::binary_search(sortedStarts.begin(), sortedStarts.end(), start);
}

// Whether every element named Signature, SignedInfo or SignatureValue (any prefix, any
// namespace) that starts before `before` is acceptable: a Signature is one of the
// signatures itself, a SignedInfo or SignatureValue has one of them as its parent. One walk
// over the document checks all three names.
bool allListedBefore(ClsXml& root, const std::vector<size_t>& signatureStarts, size_t before) {
  const std::initializer_list<const char*> names = {"*:Signature", "*:SignedInfo", "*:SignatureValue"};
  RcPtr<ClsXml> element(root.searchForAnyTag(nullptr, names));
  while (element && element->sourceStart() < before) {
    size_t start = element->sourceStart();
    if (element->localNameView() != "Signature") {
      RcPtr<ClsXml> parent(element->getParent());
      if (!parent) return false;
      start = parent->sourceStart();
    }
    if (!isSignatureStart(signatureStarts, start)) return false;
    element.reset(root.searchForAnyTag(element.get(), names));
  }
  return true;
}

void appendEscapedAttributeValue(const StringBuffer& value, std::string& out) {
  for (char c : value.view()) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '"': out += "&quot;"; break;
      case '\t': out += "&#9;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      default: out.push_back(c);
    }
  }
}

// Whether an attribute of an ancestor can show in the canonical form of a descendant
// canonicalized as a document subset: namespace declarations and xml:* attributes.
bool inheritedByDescendants(const StringBuffer& name) {
  const std::string_view n = name.view();
  return n == "xmlns" || n.compare(0, 6, "xmlns:") == 0 || n.compare(0, 4, "xml:") == 0;
}

}  // namespace

bool ClsXmlDSig::signedInfoInContext(size_t signedInfoStart, size_t signedInfoLength, StringBuffer& text,
                                     size_t& offset) {
  if (!m_xmlRoot || signedInfoLength == 0 || signedInfoStart + signedInfoLength > m_xmlSb.getSize()) return false;
  const size_t rootStart = m_xmlRoot->sourceStart();
  if (rootStart > m_xmlSb.getSize() || m_xmlSb.view().substr(0, rootStart).find("<!DOCTYPE") != std::string_view::npos)
    return false;
  ClsXml* signature = selectedSignature();
  if (!signature) return false;
  RcPtr<ClsXml> signedInfo(signature->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo || signedInfo->sourceStart() != signedInfoStart ||
      signedInfo->sourceEnd() != signedInfoStart + signedInfoLength)
    return false;

  std::vector<RcPtr<ClsXml>> ancestors;  // nearest first
  for (RcPtr<ClsXml> parent(signedInfo->getParent()); parent && !parent->isEmptyHandle();
       parent.reset(ancestors.back()->getParent()))
    ancestors.push_back(std::move(parent));

  std::string out;
  StringBuffer tag, name, value;
  for (auto it = ancestors.rbegin(); it != ancestors.rend(); ++it) {
    ClsXml& element = **it;
    element.getTag(tag);
    out += '<';
    out += tag.view();
    const int numAttributes = element.get_NumAttributes();
    for (int i = 0; i < numAttributes; ++i) {
      if (!element.getAttributeName(i, name) || !inheritedByDescendants(name)) continue;
      if (!element.getAttributeValue(i, value)) return false;
      out += ' ';
      out += name.view();
      out += "=\"";
      appendEscapedAttributeValue(value, out);
      out += '"';
    }
    out += '>';
  }
  offset = out.size();
  out += m_xmlSb.view().substr(signedInfoStart, signedInfoLength);
  for (const RcPtr<ClsXml>& element : ancestors) {
    element->getTag(tag);
    out += "</";
    out += tag.view();
    out += '>';
  }
  text.setString(std::string_view(out));
  return true;
}

// The scan and the tree read the same text with the same scanner, but the scan also takes
// elements the tree does not list as signatures (a Signature outside the XML-Signature
// namespace, an element with only one of SignedInfo and SignatureValue) and gives nested
// signatures its own precedence. So the tree answers only when the signatures do not nest
// and every element that the scan could take for one, up to the found signature, is one
// of the tree's; and never when a DTD could change how attributes read.
bool ClsXmlDSig::locateSignatureInTree(XmlSigLocate& locator, const StringBuffer& signatureId,
                                       const StringBuffer& firstRefDigest) {
  if (locator.m_recordXadesPositions || !m_xmlRoot || m_signatures.getSize() == 0) return false;
  const size_t rootStart = m_xmlRoot->sourceStart();
  if (rootStart > m_xmlSb.getSize() || m_xmlSb.view().substr(0, rootStart).find("<!DOCTYPE") != std::string_view::npos)
    return false;

  const bool byId = !signatureId.isEmpty();
  const std::string digest = withoutXmlSpace(firstRefDigest);
  if (!byId && digest.empty()) return false;

  std::vector<size_t> starts;
  ClsXml* found = nullptr;
  size_t previousEnd = 0;
  StringBuffer id;
  for (int i = 0; i < m_signatures.getSize(); ++i) {
    auto* sig = static_cast<ClsXml*>(m_signatures.elementAt(i));
    if (!sig) return false;
    if (i > 0 && sig->sourceStart() < previousEnd) return false;  // nested
    previousEnd = sig->sourceEnd();
    starts.push_back(sig->sourceStart());
    if (found) continue;
    if (byId ? (sig->getAttrValue("Id", id) && id.equals(signatureId)) : holdsReferenceDigest(*sig, digest))
      found = sig;
  }
  if (!found) return false;

  const size_t before = found->sourceEnd();
  if (!allListedBefore(*m_xmlRoot, starts, before)) return false;

  locator.m_sigStart = static_cast<unsigned>(found->sourceStart());
  locator.m_sigLength = static_cast<unsigned>(found->sourceEnd() - found->sourceStart());
  locator.m_signedInfoStart = locator.m_signedInfoLength = 0;
  RcPtr<ClsXml> signedInfo(found->getChildWithTagUtf8("*:SignedInfo"));
  if (signedInfo && signedInfo->sourceEnd() > signedInfo->sourceStart()) {
    locator.m_signedInfoStart = static_cast<unsigned>(signedInfo->sourceStart());
    locator.m_signedInfoLength = static_cast<unsigned>(signedInfo->sourceEnd() - signedInfo->sourceStart());
  }
  return true;
}

bool ClsXmlDSig::locateSignature(XmlSigLocate& locator, const StringBuffer& signatureId,
                                 const StringBuffer& firstRefDigest, int infoTag, LogBase& log) {
  if (locateSignatureInTree(locator, signatureId, firstRefDigest)) return true;
  _btXmlDtd dtd;
  if (!signatureId.isEmpty()) {
    if (locator.FindXmlSigById(signatureId.getString(), m_xmlSb, dtd, log)) return true;
    log.LogInfo_n("Unable to find the Signature by Id.", infoTag);
    log.LogDataSb("signatureId", signatureId);
    return false;
  }
  if (locator.FindXmlSigByRefDigest(firstRefDigest.getString(), m_xmlSb, dtd, log)) return true;
  log.LogError("Unable to find the Signature.");
  return false;
}

bool ClsXmlDSig::VerifySignature(bool verifyReferenceDigests) {
  OperationFrame frame(*this, "VerifySignature", true);
  return verifySignature(verifyReferenceDigests, m_log);
}

bool ClsXmlDSig::verifySignature(bool verifyReferenceDigests, LogBase& log) {
  log.LogDataSb("uncommonOptions", log.m_uncommonOptions);
  checkSetZatca(log);
  checkSetMyInvois(log);
  log.LogDataLong("verifyReferenceDigests", verifyReferenceDigests ? 1 : 0);
  log.LogDataLong("selector", m_selector);

  ClsXml* signature = selectedSignature();
  if (m_signatures.getSize() == 0 || !signature) {
    log.LogError("There are no signatures.");
    return false;
  }

  StringBuffer signatureId;
  signature->getAttrValue("Id", signatureId);
  log.LogDataSb("SignatureId", signatureId);

  LogNull quiet;
  const int numRefs = numReferences(signature, quiet);
  if (numRefs == 0) {
    log.LogError("There are no references.");
    return false;
  }

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
      }
    }
    if (failures >= 1) {
      log.LogDataLong("refFailureCount", failures);
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

  if (log.hasUncommonOption("VerifyEncapsulatedTimeStamp", true)) {
    LogContextExitor tsContext(log, "checkEncapsulatedTimeStamp");
    if (locator.m_sigStart < m_xmlSb.getSize()) {
      StringBuffer sigText(m_xmlSb.substr(locator.m_sigStart, locator.m_sigLength));
      if (log.m_verboseLogging) log.LogBracketed("signature", sigText);
      if (sigText.containsSubstring("EncapsulatedTimeStamp")) {
        RcPtr<ClsXml> sigTree(ClsXml::createNewCls());
        if (!sigTree || !sigTree->loadXml(sigText, true, log)) {
          log.LogError("Failed to load signature XML.");
          return false;
        }
        if (!verifyEncapsulatedTimeStamp(sigText, sigTree.get(), log)) {
          log.LogError("Verification of encapsulated timestamp failed.");
          return false;
        }
      }
    }
  }

  if (!m_isZatca)
    log.LogBracketed("signedInfo", m_xmlSb.substr(signedInfoStart, locator.m_signedInfoLength));

  StringBuffer canonAlgorithm;
  StringBuffer prefixList;
  if (!getCanonicalizationMethod(canonAlgorithm, prefixList, log)) {
    log.LogError("Unable to get SignedInfo CanonicalizationMethod.");
    return false;
  }

  XmlCanon canon;
  if (!prefixList.isEmpty()) prefixList.split(canon.inclusivePrefixes, ' ', true, true);
  if (canonAlgorithm.containsSubstring("xml-c14n")) {
    canon.canonMethod = 1;
  } else if (canonAlgorithm.containsSubstring("xml-exc-c14n")) {
    canon.canonMethod = 2;
  } else {
    log.LogError("Unrecognized canonicalization method.");
    log.LogDataSb("canonicalizationMethod", canonAlgorithm);
    canon.canonMethod = 1;
  }
  canon.withComments = canonAlgorithm.containsSubstringNoCase("WithComments");
  canon.canonFlagSignedInfo = false;
  if (m_isCsioz || m_dupAttrSortBug) {
    log.LogInfo("Will duplicate the XML canonicalization attribute sorting bug...");
    canon.emulateAttrSortBug = true;
  }
  if (m_isSkXmlSignedDoc) canon.canonFlagNonSkXml = false;

  // The bytes the signature covers.
  StringBuffer canonSignedInfo;
  const bool siiCase = m_isSiiCl && !m_siiDteXml.isEmpty() && m_siiDteOffset != 0 &&
                       static_cast<size_t>(m_siiDteOffset) < signedInfoStart;
  if (siiCase) {
    const size_t offset = signedInfoStart - static_cast<size_t>(m_siiDteOffset);
    if (!canon.xmlCanonicalize(m_siiDteXml, nullptr, offset, canonSignedInfo, log)) {
      std::string msg = "Failed to canonicalize " + siiDomainWithoutHost() + " SignedInfo fragment.";
      log.LogError(msg.c_str());
      return false;
    }
  } else if (m_isDoda) {
    StringBuffer doda;
    m_xmlSb.getDelimited("<doda>", "</doda>", true, doda);
    const long long dodaPos = m_xmlSb.indexOf("<doda>");
    const size_t offset = dodaPos >= 0 ? signedInfoStart - static_cast<size_t>(dodaPos) : signedInfoStart;
    if (!canon.xmlCanonicalize(doda, nullptr, offset, canonSignedInfo, log)) {
      log.LogError("Failed to canonicalize doda SignedInfo fragment.");
      return false;
    }
  } else if (m_isZatca) {
    RcPtr<ClsXml> refElement(getReference(0, log));
    if (!refElement) {
      log.LogError("Failed to get first reference for signature verification.");
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
    const bool done = signedInfoInContext(signedInfoStart, locator.m_signedInfoLength, context, contextOffset) &&
                      canon.xmlCanonicalize(context, nullptr, contextOffset, canonSignedInfo, quietCanon);
    if (!done && !canon.xmlCanonicalize(m_xmlSb, nullptr, signedInfoStart, canonSignedInfo, log)) {
      log.LogError("Failed to canonicalize SignedInfo fragment.");
      return false;
    }
  }
  if (log.m_verboseLogging) log.LogBracketed("canonicalizedSignedInfo", canonSignedInfo);

  StringBuffer signatureValue;
  if (!getSignatureValue(signatureValue, log)) {
    log.LogError("Unable to find the SignatureValue element.");
    return false;
  }
  DataBuffer signatureBytes;
  if (!ContentCoding::decodeBase64ToDb(signatureValue.getString(), signatureValue.getSize(), signatureBytes)) {
    log.LogError("Failed to decode base64 SignatureValue.");
    return false;
  }

  StringBuffer signatureMethod;
  if (!getSignedInfoField("SignatureMethod", "Algorithm", signatureMethod, log)) {
    log.LogError("Unable to location the SignatureMethod algorithm within the SignedInfo.");
    return false;
  }
  log.LogDataSb("SignatureMethod", signatureMethod);
  // Only a method known exactly is used: an unknown URI is never read as a nearby one.
  const dsig_algorithms::SignatureMethod* method = dsig_algorithms::findSignatureMethod(signatureMethod.view());
  if (!method) {
    const std::string error = "Unknown SignatureMethod algorithm: \"" + std::string(signatureMethod.view()) + "\"";
    log.LogError(error.c_str());
    logSuccessFailure2(false, log);
    return false;
  }
  const int hashId = method->hashId;
  const int keyType = static_cast<int>(method->keyType);

  DataBuffer signedHash;
  if (m_isZatca) {
    DataBuffer invoiceHash;
    ContentCoding::decodeBase64ToDb(canonSignedInfo.getString(), canonSignedInfo.getSize(), invoiceHash);
    _btHash::doHash(invoiceHash.getData2(), invoiceHash.getSize(), hashId, signedHash);
  } else if (m_isMyInvois) {
    signedHash = m_myInvoisDigest;
  } else {
    _btHash::doHash(canonSignedInfo.getString(), canonSignedInfo.getSize(), hashId, signedHash);
  }

  ExtPtrArrayRc keys;
  if (keyType >= 1 && keyType <= 3) {
    if (!getPublicKey(false, keys, log)) {
      log.LogError("No public key available to verify signature.");
      return false;
    }
  } else if (keyType == 4) {
    if (m_hmacKey.isEmpty()) {
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
  if (keyType == 1) {
    log.LogDataLong("numRsaKeys", keys.getSize());
    const int padding = static_cast<int>(method->padding);
    for (int i = 0; i < keys.getSize(); ++i) {
      auto* key = static_cast<ClsPublicKey*>(keys.elementAt(i));
      if (!key) continue;
      const RsaKeyData* rsa = key->getPubKey().getRsaKey();
      if (!rsa) {
        log.LogError("Public key is not an RSA key.");
        continue;
      }
      bool keyMismatch = false;
      valid = false;
      const bool ran = RsaVerifier::verifyHashExt(signatureBytes.getData2(), signatureBytes.getSize(),
                                                  signedHash.getData2(), signedHash.getSize(), hashId, padding,
                                                  hashId, valid, *rsa, 0, true, keyMismatch, log);
      if (!ran) {
        valid = false;
        if (keyMismatch) {
          log.LogInfo("Not the correct key.");
        } else {
          log.LogError("RSA verify hash failed.");
        }
        continue;
      }
      if (valid) {
        log.LogInfo("The RSA signature was verified.");
      } else {
        log.LogError("RSA verify hash found the signature to be invalid.");
        log.LogDataHexDb("signedInfoHash", signedHash);
        log.LogDataSb("canonicalizationMethod", canonAlgorithm);
        log.LogDataSb("canonicalizedSignedInfo", canonSignedInfo);
      }
      break;  // a key that fits decides
    }
  } else if (keyType == 2) {
    log.LogDataLong("numDsaKeys", keys.getSize());
    for (int i = 0; i < keys.getSize() && !valid; ++i) {
      auto* key = static_cast<ClsPublicKey*>(keys.elementAt(i));
      if (!key) return false;
      const DsaKeyData* dsa = key->getPubKey().getDsaKey();
      if (!dsa) continue;
      LogNull discard;
      DsaVerifier::verifyHash(*dsa, signatureBytes.getData2(), signatureBytes.getSize(), true,
                              signedHash.getData2(), signedHash.getSize(), valid, discard);
    }
    if (keys.getSize() > 0 && !valid) log.LogError("DSA verify hash failed.");
  } else if (keyType == 3) {
    log.LogDataLong("numEcdsaKeys", keys.getSize());
    for (int i = 0; i < keys.getSize() && !valid; ++i) {
      auto* key = static_cast<ClsPublicKey*>(keys.elementAt(i));
      if (!key) return false;
      EccKey* ecc = key->getPubKey().getEccKey();
      if (!ecc) continue;
      LogNull discard;
      ecc->eccVerifyHash(signatureBytes.getData2(), signatureBytes.getSize(), false, signedHash.getData2(),
                         signedHash.getSize(), valid, discard, 0);
    }
    if (keys.getSize() > 0 && !valid) log.LogError("ECDSA verify hash found the signature to be invalid.");
  } else {
    DataBuffer mac;
    if (!Hmac::doHMAC(canonSignedInfo.getString(), canonSignedInfo.getSize(), m_hmacKey.getData2(),
                      m_hmacKey.getSize(), hashId, mac, log)) {
      log.LogError("HMAC verify failed.");
      valid = false;
    } else {
      StringBuffer macBase64;
      mac.encodeDB("base64", macBase64);
      StringBuffer trimmedValue(signatureValue);
      trimmedValue.trim2();
      valid = macBase64.equals(trimmedValue);
      if (!valid) log.LogError("HMAC validation failed.");
    }
  }

  logSuccessFailure2(valid, log);
  return valid;
}
