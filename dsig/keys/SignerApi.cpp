// The public operations about the signer: the key that verified and its certificate,
// pinned signer keys, trust anchors, revocation lists and the validation time, and the
// results of the chain check.
#include "crypto/CertSummary.h"
#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/SignerState.h"
#include "support/ClsStringArray.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace {

certsummary::Summary signerSummary(const SignerResult& r) {
  certsummary::Summary s;
  if (!r.certDer.isEmpty()) certsummary::summarize(r.certDer, s);
  return s;
}

}  // namespace

ClsPublicKey* ClsXmlDSig::GetSignerKey() {
  OperationFrame frame(*this, "GetSignerKey", true);
  ClsPublicKey* key = m_signerResult.key.get();
  if (key) key->incRefCount();
  return key;
}

void ClsXmlDSig::get_SignerSource(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_signerResult.source.c_str());
}

bool ClsXmlDSig::get_HasSignerCert() {
  CritSecExitor lock(*this);
  return !m_signerResult.certDer.isEmpty();
}

bool ClsXmlDSig::GetSignerCert(XString& base64Der) {
  OperationFrame frame(*this, "GetSignerCert", true);
  base64Der.clear();
  if (m_signerResult.certDer.isEmpty()) return false;
  StringBuffer text;
  m_signerResult.certDer.encodeDB("base64", text);
  base64Der.setFromUtf8(text.getString());
  return true;
}

void ClsXmlDSig::get_SignerSubject(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(signerSummary(m_signerResult).subject.c_str());
}

void ClsXmlDSig::get_SignerIssuer(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(signerSummary(m_signerResult).issuer.c_str());
}

void ClsXmlDSig::get_SignerSerial(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(signerSummary(m_signerResult).serial.c_str());
}

void ClsXmlDSig::get_SignerNotBefore(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(signerSummary(m_signerResult).notBefore.c_str());
}

void ClsXmlDSig::get_SignerNotAfter(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(signerSummary(m_signerResult).notAfter.c_str());
}

void ClsXmlDSig::get_SignerSha256(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(signerSummary(m_signerResult).sha256.c_str());
}

bool ClsXmlDSig::AddPinnedSigner(ClsPublicKey& key) {
  OperationFrame frame(*this, "AddPinnedSigner", false);
  // A copy of our own, labelled as pinned, so the caller's object is never changed.
  DataBuffer spki;
  RcPtr<ClsPublicKey> copy(ClsPublicKey::createNewCls());
  if (!copy || !key.getPublicKeyDer(false, spki, m_log) || !copy->loadAnyDer(spki, m_log)) {
    m_log.LogError("The key to pin cannot be read.");
    return false;
  }
  copy->setCertificateDer(key.certificateDer());
  copy->setOrigin("PinnedKey");
  m_signerPolicy.pinned.push_back(std::move(copy));
  return true;
}

void ClsXmlDSig::ClearPinnedSigners() {
  CritSecExitor lock(*this);
  m_signerPolicy.pinned.clear();
}

int ClsXmlDSig::get_NumPinnedSigners() {
  CritSecExitor lock(*this);
  return static_cast<int>(m_signerPolicy.pinned.size());
}

bool ClsXmlDSig::AddTrustAnchors(const XString& fileOrDir) {
  OperationFrame frame(*this, "AddTrustAnchors", false);
  return m_signerPolicy.trust.addAnchors(fileOrDir.getUtf8(), m_log);
}

bool ClsXmlDSig::AddCrlFile(const XString& path) {
  OperationFrame frame(*this, "AddCrlFile", false);
  return m_signerPolicy.trust.addCrls(path.getUtf8(), m_log);
}

void ClsXmlDSig::ClearTrust() {
  CritSecExitor lock(*this);
  m_signerPolicy.trust.clear();
  m_signerPolicy.hasValidationTime = false;
}

bool ClsXmlDSig::SetValidationTime(const XString& isoUtc) {
  OperationFrame frame(*this, "SetValidationTime", false);
  const std::string text = isoUtc.getUtf8();
  if (text.empty()) {
    m_signerPolicy.hasValidationTime = false;
    return true;
  }
  long long t = 0;
  if (!certsummary::parseUtcTime(text, t)) {
    m_log.LogError("The validation time is not an ISO 8601 UTC time such as 2025-03-01T12:00:00Z.");
    m_log.LogDataStr("validationTime", text.c_str());
    return false;
  }
  m_signerPolicy.validationTime = t;
  m_signerPolicy.hasValidationTime = true;
  return true;
}

bool ClsXmlDSig::GetTrustChain(ClsStringArray& subjects) {
  OperationFrame frame(*this, "GetTrustChain", true);
  for (const std::string& subject : m_signerResult.chain) subjects.appendUtf8(subject.c_str());
  return m_signerResult.trustChecked;
}

void ClsXmlDSig::get_TrustError(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_signerResult.trustError.c_str());
}

void ClsXmlDSig::get_ValidationTime(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_signerResult.validationTime.c_str());
}

void ClsXmlDSig::get_ValidationTimeSource(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_signerResult.validationTimeSource.c_str());
}

bool ClsXmlDSig::get_TrustChecked() const { return m_signerResult.trustChecked; }
bool ClsXmlDSig::get_Trusted() const { return m_signerResult.trusted; }
