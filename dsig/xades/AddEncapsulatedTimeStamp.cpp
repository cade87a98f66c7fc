// Adds a XAdES SignatureTimeStamp to the selected signature: a token over the exclusive
// canonical SignatureValue is requested from a time-stamp authority and inserted, as
// text, at the right place among the signature's XAdES properties (creating the missing
// property containers). The loaded document is not changed; the caller gets a copy.
#include <atomic>
#include <cstdint>
#include <string>

#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/xades/Pkcs7Message.h"
#include "support/ClsJsonObject.h"
#include "support/ClsStringBuilder.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/Psdk.h"
#include "xml/XmlCanon.h"
#include "xml/XmlSigLocate.h"

namespace {

// Process-wide state of the identifier generator, shared by all verifier objects. It is
// deliberately not locked: two threads creating identifiers at the same moment may get
// the same one. Atomic only so that such a race is not undefined behaviour.
std::atomic<uint32_t> g_xmlAttrIdState{0};

// The offset just after the first '>' at or after pos, or 0 (no insertion) when pos lies
// outside the text or no '>' follows it.
size_t afterFirstGreaterThan(const StringBuffer& text, size_t pos) {
  if (pos >= text.getSize()) return 0;
  const size_t gt = text.findChar('>', pos);
  return gt == StringBuffer::npos ? 0 : gt + 1;
}

}  // namespace

void ClsXmlDSig::appendXmlAttrId(StringBuffer& sb, LogBase&) {
  uint32_t state = g_xmlAttrIdState.load(std::memory_order_relaxed);
  if (state == 0) state = Psdk::getTickCount();
  for (int i = 0; i < 4; ++i) {
    state = static_cast<uint32_t>((static_cast<uint64_t>(Psdk::n1()) * state) % Psdk::n2());
    if (state == 0) state = Psdk::getTickCount();
    sb.append(Psdk::toIntRange(state, 1000, 9998));
    if (i < 3) {
      sb.appendChar('-');
      if (state == 0) state = Psdk::getTickCount();
    }
  }
  g_xmlAttrIdState.store(state, std::memory_order_relaxed);
}

bool ClsXmlDSig::AddEncapsulatedTimeStamp(ClsJsonObject& options, ClsStringBuilder& sbOut) {
  OperationFrame frame(*this, "AddEncapsulatedTimeStamp", false);
  sbOut.getXString().clear();
  m_log.LogDataLong("numSignatures", m_signatures.getSize());
  m_log.LogDataLong("selector", m_selector);
  if (hasEncapsulatedTimeStamp(m_log)) {
    m_log.LogError("Already has an EncapsulatedTimeStamp.");
    return false;
  }
  return addEncapsulatedTimeStamp(options, sbOut.getXString(), m_log);
}

bool ClsXmlDSig::addEncapsulatedTimeStamp(ClsJsonObject& options, XString& out, LogBase& log) {
  LogContextExitor ctx(log, "addEncapsulatedTimeStamp");
  out.clear();
  ClsXml* signature = selectedSignature();
  if (!signature) {
    log.LogError("No signature at the selector.");
    return false;
  }
  StringBuffer signatureId;
  signature->getAttrValue("Id", signatureId);
  log.LogDataSb("SignatureId", signatureId);

  XmlSigLocate locator;
  locator.m_recordXadesPositions = true;
  DSigReference firstRef;
  if (signatureId.isEmpty()) {
    RcPtr<ClsXml> refElement(getReference(0, log));
    if (!refElement) {
      log.LogError("No Reference at index 0");
      return false;
    }
    firstRef.parseReference(refElement.get(), log);
  }
  if (!locateSignature(locator, signatureId, firstRef.digestValue, 1, log)) return false;
  log.LogDataUint32("m_signatureValueLoc", locator.m_signatureValueLoc);
  log.LogDataUint32("m_qualifyingPropertiesLoc", locator.m_qualifyingPropertiesLoc);
  log.LogDataUint32("m_unsignedPropertiesLoc", locator.m_unsignedPropertiesLoc);
  log.LogDataUint32("m_unsignedSignaturePropertiesLoc", locator.m_unsignedSignaturePropertiesLoc);
  log.LogDataUint32("m_signedPropertiesLoc", locator.m_signedPropertiesLoc);
  log.LogDataUint32("m_signedPropertiesLen", locator.m_signedPropertiesLen);

  RcPtr<ClsXml> signatureValue(signature->findChild("*:SignatureValue"));
  if (!signatureValue) {
    log.LogError("No SignatureValue found.");
    return false;
  }
  if (locator.m_signatureValueLoc == 0) {
    log.LogError("No SignatureValue location found.");
    return false;
  }
  StringBuffer signatureValueId;
  if (!signatureValue->getAttrValue("Id", signatureValueId)) {
    log.LogError("No SignatureValue Id attribute found.");
    return false;
  }

  StringBuffer prefix;
  signature->getTagNamespace(prefix);
  const bool declaresXades = signature->HasAttribute("xmlns:xades");

  StringBuffer stamp;  // T
  stamp.append("<xades:SignatureTimeStamp Id=\"signature-timestamp-");
  appendXmlAttrId(stamp, log);
  stamp.append("\">");
  stamp.append("<ds:CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>");
  stamp.append("<xades:EncapsulatedTimeStamp Encoding=\"http://uri.etsi.org/01903/v1.2.2#DER\">");
  stamp.append("ENCAP_TIMESTAMP_BASE64");
  stamp.append("</xades:EncapsulatedTimeStamp>");
  stamp.append("</xades:SignatureTimeStamp>");

  StringBuffer unsignedProps;  // U
  unsignedProps.append("<xades:UnsignedProperties><xades:UnsignedSignatureProperties>");
  unsignedProps.append(stamp);
  unsignedProps.append("</xades:UnsignedSignatureProperties></xades:UnsignedProperties>");

  StringBuffer qualifying;  // Q
  qualifying.append("<xades:QualifyingProperties");
  if (!declaresXades) qualifying.append(" xmlns:xades=\"http://uri.etsi.org/01903/v1.3.2#\"");
  if (!signatureId.isEmpty()) {
    qualifying.append(" Target=\"#");
    qualifying.append(signatureId);
    qualifying.append("\">");
  } else {
    qualifying.append(">");
  }
  qualifying.append(unsignedProps);
  qualifying.append("</xades:QualifyingProperties>");

  StringBuffer fragment;
  size_t insertAt = 0;
  if (locator.m_unsignedSignaturePropertiesLoc != 0) {
    fragment.append(stamp);
    insertAt = afterFirstGreaterThan(m_xmlSb, locator.m_unsignedSignaturePropertiesLoc);
  } else if (locator.m_unsignedPropertiesLoc != 0) {
    fragment.append("<xades:UnsignedSignatureProperties>");
    fragment.append(stamp);
    fragment.append("</xades:UnsignedSignatureProperties>");
    insertAt = afterFirstGreaterThan(m_xmlSb, locator.m_unsignedPropertiesLoc);
  } else if (locator.m_signedPropertiesLoc != 0) {
    fragment.append(unsignedProps);
    insertAt = static_cast<size_t>(locator.m_signedPropertiesLoc) + locator.m_signedPropertiesLen;
  } else if (locator.m_qualifyingPropertiesLoc != 0) {
    fragment.append(unsignedProps);
    insertAt = afterFirstGreaterThan(m_xmlSb, locator.m_qualifyingPropertiesLoc);
  } else if (locator.m_objectLoc != 0) {
    fragment.append(qualifying);
    insertAt = afterFirstGreaterThan(m_xmlSb, locator.m_objectLoc);
  } else if (locator.m_lastChildLoc != 0) {
    const std::string pfx = prefix.isEmpty() ? std::string() : std::string(prefix.getString()) + ":";
    fragment.append("<");
    fragment.append(pfx.c_str());
    fragment.append("Object Id=\"signature-object-");
    appendXmlAttrId(fragment, log);
    fragment.append("\">");
    fragment.append(qualifying);
    fragment.append("</");
    fragment.append(pfx.c_str());
    fragment.append("Object>");
    insertAt = static_cast<size_t>(locator.m_lastChildLoc) + locator.m_lastChildLen;
  }

  // The data to time-stamp: the exclusive canonical SignatureValue element with LF line ends.
  XmlCanon canon;
  canon.canonMethod = 2;
  canon.withComments = false;
  StringBuffer canonSigValue;
  canon.xmlCanonicalize(m_xmlSb, signatureValueId.getString(), 0, canonSigValue, log);
  canonSigValue.toLF();
  DataBuffer data;
  data.append(canonSigValue);

  DataBuffer token;
  Pkcs7Message::getTimestampToken(options, data, *this, token, log);
  StringBuffer tokenBase64;
  token.encodeDB("base64", tokenBase64);
  fragment.replaceFirstOccurance("ENCAP_TIMESTAMP_BASE64", tokenBase64.getString(), false);

  StringBuffer& result = out.getUtf8Sb_rw();
  result.setString(m_xmlSb);
  if (insertAt != 0) result.insertAt(fragment, insertAt);
  logSuccessFailure2(true, log);
  return true;
}
