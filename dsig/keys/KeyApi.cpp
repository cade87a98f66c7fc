// The public key and certificate operations: the certificates a signature carries or
// references (GetCerts), the public key its KeyInfo yields (GetPublicKey), and the caller's
// own public key or HMAC secret for verification (SetPublicKey, SetHmacKey).
#include "crypto/BrantelX509.h"
#include "crypto/CertRecord.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/StringHashSet.h"
#include "crypto/SystemCerts.h"
#include "crypto/_clsEncode.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/KeyInfoSources.h"
#include "support/ClsStringArray.h"
#include "support/ClsXml.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

// Caller keys are kept per signature index; a selector outside this range is a caller bug.
constexpr int kMaxKeySelector = 199;

void appendIfCertificate(ClsXmlDSig& dsig, StringBuffer& certText, StringHashSet& seen, ClsStringArray& certs,
                         LogBase& log) {
  if (dsig.processCertBase64(certText, seen, log)) certs.appendUtf8(certText.getString());
}

// The certificate a SecurityTokenReference names: through the store by key identifier,
// then the BinarySecurityToken its Reference points to. Unlike key resolution there is no
// fall-back to another token, and thumbprint identifiers are not followed.
bool appendSecurityTokenCerts(ClsXmlDSig& dsig, ClsXml& tokenRef, StringHashSet& seen, ClsStringArray& certs,
                              LogBase& log) {
  if (SystemCerts* store = dsig.systemCerts()) {
    StringBuffer identifier;
    if (tokenRef.getChildContentUtf8("*:KeyIdentifier", identifier, false) && !identifier.isEmpty()) {
      CertRecord* record = store->findBySubjectKeyId(identifier.getString(), log);
      BrantelX509* cert = record ? record->getX509Ptr() : nullptr;
      if (cert) {
        DataBuffer der;
        cert->getCertDer(der);
        StringBuffer certText;
        der.encodeDB("base64", certText);
        appendIfCertificate(dsig, certText, seen, certs, log);
      }
    }
  }

  RcPtr<ClsXml> reference(tokenRef.getChildWithTagUtf8("*:Reference"));
  if (!reference) return true;
  StringBuffer uri;
  StringBuffer valueType;
  if (!keyinfo::readTokenReference(*reference, uri, valueType, log)) return false;
  log.LogInfo("Need to locate BinarySecurityToken within XML....");
  log.LogDataSb("URI", uri);
  if (!dsig.m_xmlRoot) return false;
  RcPtr<ClsXml> token(keyinfo::findTokenById(*dsig.m_xmlRoot, uri, log));
  if (!token) {
    log.LogError("Failed to find the wsse:BinarySecurityToken element");
    return false;
  }
  StringBuffer certText;
  if (!keyinfo::tokenCertificateText(dsig, *token, valueType, certText, log)) return false;
  appendIfCertificate(dsig, certText, seen, certs, log);
  return true;
}

}  // namespace

bool ClsXmlDSig::certsFromKeyInfo(ClsXml* keyInfo, ClsStringArray& certs, LogBase& log) {
  LogContextExitor ctx(log, "certsFromKeyInfo");
  if (!keyInfo) return false;
  StringHashSet seen(keyinfo::kSeenCertsCapacity);

  if (RcPtr<ClsXml> x509Data{keyInfo->findChild("*:X509Data")}) {
    const int n = x509Data->numChildrenHavingTagUtf8("*:X509Certificate", log);
    log.LogDataLong("NumX509Certificates", n);
    for (int i = 0; i < n; ++i) {
      x509Data->put_I(i);
      StringBuffer certText;
      if (x509Data->getChildContentUtf8("*:X509Certificate[i]", certText, false) && !certText.isEmpty())
        appendIfCertificate(*this, certText, seen, certs, log);
    }
  }

  StringBuffer issuerCN;
  StringBuffer serialHex;
  if (keyinfo::issuerSerialToLookUp(*keyInfo, seen, issuerCN, serialHex, log)) {
    StringBuffer certText;
    if (getCertByIssuerNameAndSerial(issuerCN.getString(), serialHex.getString(), certText, log))
      appendIfCertificate(*this, certText, seen, certs, log);
  }

  StringBuffer subjectDn;
  if (keyinfo::subjectNameToLookUp(*keyInfo, seen, subjectDn, log)) {
    StringBuffer certText;
    if (getCertBySubjectName(subjectDn.getString(), certText, log))
      appendIfCertificate(*this, certText, seen, certs, log);
  }

  StringBuffer ski;
  if (keyInfo->getChildContentUtf8("*:X509Data|*:X509SKI", ski, false) && !ski.isEmpty()) {
    StringBuffer certText;
    if (getCertBySKI(ski.getString(), certText, log)) appendIfCertificate(*this, certText, seen, certs, log);
  }

  RcPtr<ClsXml> tokenRef(keyInfo->getChildWithTagUtf8("*:SecurityTokenReference"));
  if (!tokenRef) return true;
  return appendSecurityTokenCerts(*this, *tokenRef, seen, certs, log);
}

bool ClsXmlDSig::GetCerts(ClsStringArray& certs) {
  OperationFrame frame(*this, "GetCert", true);
  bool ok = true;
  if (ClsXml* keyInfo = getKeyInfo(m_log)) {
    ok = certsFromKeyInfo(keyInfo, certs, m_log);
    keyInfo->decRefCount();
  }
  // Always recorded as a failure of the public call, whatever the result: callers of
  // GetCerts rely on its return value, never on this record.
  logSuccessFailure(false);
  return ok;
}

ClsPublicKey* ClsXmlDSig::GetPublicKey() {
  OperationFrame frame(*this, "GetPublicKey", true);
  // KeyInfo only: a key the caller set is never handed back as the document's key.
  ExtPtrArrayRc keys;
  getPublicKey(true, keys, m_log);
  return static_cast<ClsPublicKey*>(keys.removeRefCountedAt(0));
}

bool ClsXmlDSig::SetPublicKey(ClsPublicKey& key) {
  OperationFrame frame(*this, "SetPublicKey", false);
  if (m_selector < 0 || m_selector > kMaxKeySelector) {
    m_log.LogError("Selector index is not sane.");
    m_log.LogDataLong("m_selector", m_selector);
    return false;
  }
  key.incRefCount();
  if (RefCountedObject* previous = m_publicKeys.replaceRefCountedAt(m_selector, &key)) previous->decRefCount();
  return true;
}

bool ClsXmlDSig::AddNamedPublicKey(const XString& name, ClsPublicKey& key) {
  OperationFrame frame(*this, "AddNamedPublicKey", false);
  StringBuffer trimmed(name.getUtf8Sb());
  trimmed.trim2();
  if (trimmed.isEmpty()) {
    m_log.LogError("A key name must not be empty.");
    return false;
  }
  key.incRefCount();
  for (size_t i = 0; i < m_keyNames.size(); ++i) {
    if (m_keyNames[i] != trimmed.view()) continue;
    if (RefCountedObject* previous = m_namedKeys.replaceRefCountedAt(static_cast<int>(i), &key))
      previous->decRefCount();
    return true;
  }
  m_keyNames.emplace_back(trimmed.view());
  m_namedKeys.appendRefCounted(&key);
  return true;
}

bool ClsXmlDSig::SetHmacKey(XString& key, XString& encoding) {
  OperationFrame frame(*this, "SetHmacKey", false);
  m_hmacKey.secureClear();
  key.setSecureX(true);
  _clsEncode decoder;
  decoder.put_EncodingMode(encoding);
  return decoder.decodeBinary(key, m_hmacKey, false, m_log);
}
