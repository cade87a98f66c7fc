// XAdES signature time-stamps: whether the selected signature carries one, verifying
// one (the token's CMS signature and its message imprint over the canonical
// SignatureValue), and the HTTP object used to obtain new ones.
#include <string>
#include <utility>
#include <vector>

#include "crypto/Asn1Xml.h"
#include "crypto/CertSummary.h"
#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/SignerState.h"
#include "dsig/xades/Pkcs7Message.h"
#include "support/ClsHttp.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlCanon.h"

ClsHttp* _clsCades::tsaHttpObj() const { return static_cast<ClsHttp*>(m_http.get()); }

void _clsCades::setTsaHttpObj(ClsHttp* http, LogBase& log) {
  if (http) http->incRefCount();
  m_http.hold(http);
  log.LogDataBool("haveHttpObject", http != nullptr);
}

void ClsXmlDSig::SetHttpObj(ClsHttp* http) {
  OperationFrame frame(*this, "SetHttpObj", false);
  setTsaHttpObj(http, m_log);
}

bool ClsXmlDSig::HasEncapsulatedTimeStamp() {
  OperationFrame frame(*this, "HasEncapsulatedTimeStamp", false);
  return hasEncapsulatedTimeStamp(m_log);
}

bool ClsXmlDSig::hasEncapsulatedTimeStamp(LogBase& log) {
  LogContextExitor ctx(log, "hasEncapsulatedTimeStamp");
  log.LogDataLong("numSignatures", m_signatures.getSize());
  log.LogDataLong("selector", m_selector);
  ClsXml* signature = selectedSignature();
  if (!signature) {
    log.LogError("No signature at the selector index.");
    return false;
  }
  RcPtr<ClsXml> stamp(signature->searchForTag(nullptr, "*:EncapsulatedTimeStamp"));
  if (stamp) return true;
  log.LogError("No EncapsulatedTimestamp.");
  return false;
}

bool ClsXmlDSig::GetTimeStampInfo(XString& time, XString& authority) {
  OperationFrame frame(*this, "GetTimeStampInfo", false);
  time.clear();
  authority.clear();
  // The signature time-stamp's token, not one of the archive time-stamps a signature may
  // carry as well.
  ClsXml* signature = selectedSignature();
  RcPtr<ClsXml> holder(signature ? signature->searchForTag(nullptr, "*:SignatureTimeStamp") : nullptr);
  ClsXml* within = holder ? holder.get() : signature;
  RcPtr<ClsXml> stamp(within ? within->searchForTag(nullptr, "*:EncapsulatedTimeStamp") : nullptr);
  StringBuffer tokenText;
  if (!stamp || !stamp->getContentSb(tokenText)) {
    m_log.LogError("The signature carries no time-stamp.");
    return false;
  }
  tokenText.trim2();
  DataBuffer tokenDer;
  ContentCoding::decodeBase64ToDb(tokenText.getString(), tokenText.getSize(), tokenDer);
  Pkcs7Message token;
  bool isSigned = false;
  std::string when, who;
  if (!token.loadPkcs7Der(tokenDer, nullptr, 2, isSigned, systemCerts(), m_log) ||
      !token.describeTimeStamp(when, who, m_log))
    return false;
  time.setFromUtf8(when.c_str());
  authority.setFromUtf8(who.c_str());
  return true;
}

bool ClsXmlDSig::get_TimeStampVerified() const { return m_signerResult.timeStampVerified; }

void ClsXmlDSig::get_TimeStampError(XString& out) {
  out.clear();
  const SignerResult& r = m_signerResult;
  LogNull quiet;
  if (r.timeStampVerified || !hasEncapsulatedTimeStamp(quiet)) return;
  out.setFromUtf8(!r.timeStampChecked        ? "the time-stamp was not checked"
                  : r.timeStampError.empty() ? "the time-stamp does not verify"
                                             : r.timeStampError.c_str());
}

void ClsXmlDSig::noteTimeStampVerified(long long genTime, std::vector<std::string> certs) {
  m_signerResult.timeStampVerified = true;
  m_signerResult.timeStampTime = genTime;
  m_signerResult.timeStampCerts = std::move(certs);
}

bool ClsXmlDSig::checkSignatureTimeStamp(ClsXml& signature, LogBase& log) {
  const bool required = log.hasUncommonOption("VerifyEncapsulatedTimeStamp", true);
  const xml::XmlTree* tree = signature.tree();
  const xml::XmlNode* node = signature.node();
  if (!tree || !node) return true;
  StringBuffer sigText(tree->sourceOf(*node));
  if (!sigText.containsSubstring("EncapsulatedTimeStamp")) return true;
  // Checked on a log of its own unless a failing time-stamp must fail the signature: its
  // outcome is a result of the verification either way.
  _btLogger own;
  own.m_uncommonOptions = log.m_uncommonOptions;
  LogBase& stampLog = required ? log : own;
  LogContextExitor ctx(stampLog, "checkEncapsulatedTimeStamp");
  if (stampLog.m_verboseLogging) stampLog.LogBracketed("signature", sigText);
  m_signerResult.timeStampChecked = true;
  RcPtr<ClsXml> sigTree(ClsXml::createNewCls());
  bool verified = false;
  if (!sigTree || !sigTree->loadXml(sigText, true, stampLog)) stampLog.LogError("Failed to load signature XML.");
  else verified = verifyEncapsulatedTimeStamp(sigText, sigTree.get(), stampLog) && m_signerResult.timeStampVerified;
  if (verified) return true;
  if (!required) {
    m_signerResult.timeStampError = own.lastErrorLine();
    return true;
  }
  log.LogError("Verification of encapsulated timestamp failed.");
  return false;
}

bool ClsXmlDSig::verifyEncapsulatedTimeStamp(StringBuffer& sigText, ClsXml* sigXml, LogBase& log) {
  LogContextExitor ctx(log, "verifyEncapsulatedTimeStamp");
  LogNull quiet;

  StringBuffer tokenText;
  if (!captureUniqueTagContent("EncapsulatedTimeStamp", sigText, tokenText, quiet)) return true;
  DataBuffer tokenDer;
  ContentCoding::decodeBase64ToDb(tokenText.getString(), tokenText.getSize(), tokenDer);

  Pkcs7Message token;
  bool isSigned = false;
  if (!token.loadPkcs7Der(tokenDer, nullptr, 2, isSigned, systemCerts(), log)) {
    log.LogError("Failed to parse ASN.1 of encapsulated timestamp.");
    return false;
  }
  DataBuffer tstInfo;
  if (!token.verifyOpaqueSignature(tstInfo, *this, systemCerts(), log)) {
    log.LogError("Verification of encapsulated timestamp failed.");
    return false;
  }
  log.LogDataHexDb("extractedAsn", tstInfo);

  StringBuffer payloadXml;
  if (!Asn1Xml::derToXml(tstInfo, true, false, payloadXml, nullptr, log)) {
    log.LogError("Failed to decoded ASN.1 extracted from the encapsulated timestamp signature.");
    return false;
  }
  RcPtr<ClsXml> payload(ClsXml::createNewCls());
  if (!payload) return false;
  if (!payload->loadXml(payloadXml, true, log)) {
    log.LogError("Failed to load timestamp XML.");
    return false;
  }
  StringBuffer payloadText;
  payload->getXml(false, payloadText, log);
  log.LogDataSb("timestampPayloadXml", payloadText);
  // The time-stamp's time becomes the default validation time of the signer's chain once
  // the time-stamp is found to cover this signature value.
  StringBuffer genTimeText;
  long long genTime = -1;
  if (!payload->getChildContentUtf8("gentime", genTimeText, false) ||
      !certsummary::parseUtcTime(std::string(genTimeText.view()), genTime))
    genTime = -1;

  StringBuffer hashOid;
  if (!payload->getChildContentUtf8("sequence|sequence|oid", hashOid, false)) {
    log.LogError("Failed to find hash OID");
    return false;
  }
  log.LogDataSb("hashOid", hashOid);
  StringBuffer hashedMessage;
  if (!payload->getChildContentUtf8("sequence|octets", hashedMessage, false)) {
    log.LogError("Failed to find hash data");
    return false;
  }
  DataBuffer expectedHash;
  ContentCoding::decodeBase64ToDb(hashedMessage.getString(), hashedMessage.getSize(), expectedHash);
  log.LogDataHexDb("expected_hash", expectedHash);

  StringBuffer signatureValue;
  if (!captureUniqueTagContent("SignatureValue", sigText, signatureValue, quiet)) return true;
  log.LogDataSb("signatureValue", signatureValue);
  StringBuffer signatureValueId;
  if (!captureUniqueAttrContent("SignatureValue", "Id", sigText, signatureValueId, log)) return false;

  int canonMethod = 1;
  RcPtr<ClsXml> stampElement(sigXml ? sigXml->searchForTag(nullptr, "*:SignatureTimeStamp") : nullptr);
  if (stampElement) {
    RcPtr<ClsXml> method(stampElement->findChild("*:CanonicalizationMethod"));
    if (method) {
      StringBuffer algorithm;
      method->getAttrValue("Algorithm", algorithm);
      log.LogDataSb("encapsulatedTimestampCanonMethod", algorithm);
      canonMethod = algorithm.containsSubstring("exc-") ? 2 : 1;
    } else {
      log.LogInfo("Did not find CanonicalizationMethod tag.");
    }
  } else {
    log.LogInfo("Did not find SignatureTimeStamp tag.");
  }

  XmlCanon canon;
  canon.canonMethod = canonMethod;
  canon.withComments = false;
  StringBuffer canonSigValue;
  canon.xmlCanonicalize(m_xmlSb, signatureValueId.getString(), 0, canonSigValue, log);
  canonSigValue.toLF();
  log.LogDataSb("sbCanonSigValue", canonSigValue);

  const int hashAlg = _btHash::oidToHashAlg(hashOid.getString());
  log.LogDataLong("hashAlg", hashAlg);
  DataBuffer computed;
  _btHash::doHash(canonSigValue.getString(), canonSigValue.getSize(), hashAlg, computed);
  log.LogDataHexDb("computed_hash", computed);
  if (computed.equals(expectedHash)) {
    log.LogInfo("The computed hash is equal to the expected hash.");
    noteTimeStampVerified(genTime, token.certificatesSignerFirst());
    return true;
  }
  canonSigValue.toCRLF();
  computed.clear();
  _btHash::doHash(canonSigValue.getString(), canonSigValue.getSize(), hashAlg, computed);
  log.LogDataHexDb("computed_hash_with_CRLF", computed);
  if (computed.equals(expectedHash)) {
    log.LogInfo("The computed hash is equal to the expected hash.");
    noteTimeStampVerified(genTime, token.certificatesSignerFirst());
    return true;
  }
  log.LogError("Computed hash not equal to the expected hash.");
  return false;
}
