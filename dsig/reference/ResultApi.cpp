// The results of the last verification as the caller reads them: each reference's result
// and covered element, the bytes digested when kept, and the cause of a failure. Reading
// them leaves the log of the verification as it was.
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsBinData.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

const ReferenceResult* ClsXmlDSig::referenceResult(int index) const {
  if (index < 0 || m_record.selector != m_selector || static_cast<size_t>(index) >= m_record.references.size())
    return nullptr;
  const ReferenceResult& result = m_record.references[index];
  return result.checked ? &result : nullptr;
}

bool ClsXmlDSig::GetReferenceResultJson(int index, XString& outJson) {
  CritSecExitor lock(*this);
  outJson.clear();
  LogNull quiet;
  if (index < 0 || index >= numReferences(selectedSignature(), quiet)) return false;
  if (const ReferenceResult* result = referenceResult(index)) {
    outJson.appendUtf8(result->toJson().c_str());
    return true;
  }
  // Not reached by a verification yet: what the Reference says, marked not checked.
  ReferenceResult unchecked;
  unchecked.index = index;
  RcPtr<ClsXml> element(getReference(index, quiet));
  if (element) {
    StringBuffer text;
    if (element->getAttrValue("URI", text)) unchecked.uri = text.getString();
    unchecked.external = !unchecked.uri.empty() && unchecked.uri[0] != '#';
    text.clear();
    element->getChildAttrValue("*:DigestMethod", "Algorithm", text);
    unchecked.digestMethod = text.getString();
    text.clear();
    element->getChildContentUtf8("*:DigestValue", text, false);
    text.removeCharOccurances('\n');
    text.removeCharOccurances('\r');
    text.removeCharOccurances('\t');
    text.removeCharOccurances(' ');
    unchecked.storedDigest = text.getString();
  }
  outJson.appendUtf8(unchecked.toJson().c_str());
  return true;
}

ClsXml* ClsXmlDSig::GetCoveredElement(int index) {
  CritSecExitor lock(*this);
  const ReferenceResult* result = referenceResult(index);
  if (!result || !result->coverage.hasElement || !m_xmlRoot) return nullptr;
  return m_xmlRoot->handleOnNode(result->coverage.nodeIndex);
}

bool ClsXmlDSig::get_KeepDigestedBytes() const { return m_record.keepDigestedBytes; }

void ClsXmlDSig::put_KeepDigestedBytes(bool keep) {
  CritSecExitor lock(*this);
  m_record.keepDigestedBytes = keep;
}

bool ClsXmlDSig::GetDigestedBytes(int index, ClsBinData& out) {
  CritSecExitor lock(*this);
  const ReferenceResult* result = referenceResult(index);
  if (!result || !result->bytesKept) return false;
  out.getDb().clear();
  return out.AppendBinary(result->digestedBytes.data(), result->digestedBytes.size());
}

bool ClsXmlDSig::GetCanonicalSignedInfo(ClsBinData& out) {
  CritSecExitor lock(*this);
  if (!m_record.signedInfoKept || m_record.selector != m_selector) return false;
  out.getDb().clear();
  return out.AppendBinary(m_record.canonicalSignedInfo.data(), m_record.canonicalSignedInfo.size());
}

void ClsXmlDSig::get_FailureCause(XString& out) {
  CritSecExitor lock(*this);
  out.clear();
  out.appendUtf8(m_record.failureCause.c_str());
}

void ClsXmlDSig::get_FailureText(XString& out) {
  CritSecExitor lock(*this);
  out.clear();
  out.appendUtf8(m_record.failureText.c_str());
}

int ClsXmlDSig::get_FailedReference() {
  CritSecExitor lock(*this);
  return m_record.failedReference;
}
