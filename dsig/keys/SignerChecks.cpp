// Deciding about the signer once the signature value has been checked: which key verified
// and where it came from, whether it is a pinned key, whether the signing certificate the
// signed properties name is its certificate, and whether that certificate chains to a
// trust anchor.
#include <ctime>
#include <string>
#include <vector>

#include "crypto/CertRecord.h"
#include "crypto/CertSummary.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/OsslPtr.h"
#include "crypto/SystemCerts.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/SignerState.h"
#include "dsig/xades/SigningCertificateBinding.h"
#include "support/ClsStringArray.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/LogBase.h"

namespace {

bool keyDer(ClsPublicKey& key, DataBuffer& out) {
  LogNull quiet;
  return key.getPublicKeyDer(false, out, quiet);
}

bool sameKey(ClsPublicKey& a, ClsPublicKey& b) {
  DataBuffer derA, derB;
  return keyDer(a, derA) && keyDer(b, derB) && derA.equals(derB);
}

std::string withoutSpace(const char* text) {
  std::string out;
  for (const char* p = text; *p; ++p)
    if (*p != ' ' && *p != '\t' && *p != '\r' && *p != '\n') out.push_back(*p);
  return out;
}

bool decodeBase64(const std::string& text, DataBuffer& der) {
  return ContentCoding::decodeBase64ToDb(text.data(), text.size(), der) && !der.isEmpty();
}

ossl::X509Ptr parseCert(const DataBuffer& der) {
  const unsigned char* p = der.getData2();
  ossl::X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(der.getSize())));
  ossl::clearErrors();
  return cert;
}

}  // namespace

void ClsXmlDSig::pinCandidateKeys(ExtPtrArrayRc& keys, LogBase& log) {
  const std::vector<RcPtr<ClsPublicKey>>& pinned = m_signerPolicy.pinned;
  if (pinned.empty()) return;
  std::vector<bool> matched(pinned.size(), false);
  ExtPtrArrayRc kept;
  while (keys.getSize() > 0) {
    RcPtr<ClsPublicKey> key(static_cast<ClsPublicKey*>(keys.removeRefCountedAt(0)));
    bool isPinned = false;
    for (size_t i = 0; key && i < pinned.size(); ++i)
      if (sameKey(*key, *pinned[i])) isPinned = matched[i] = true;
    if (isPinned) {
      kept.appendRefCounted(key.release());
    } else if (key) {
      ++m_signerResult.unpinnedCandidates;
    }
  }
  // A pinned key is tried itself when the signature does not carry it.
  for (size_t i = 0; i < pinned.size(); ++i) {
    if (matched[i]) continue;
    pinned[i]->incRefCount();
    kept.appendRefCounted(pinned[i].get());
  }
  while (kept.getSize() > 0) keys.appendRefCounted(kept.removeRefCountedAt(0));
  log.LogDataLong("unpinnedCandidateKeys", m_signerResult.unpinnedCandidates);
}

bool ClsXmlDSig::settleSigner(bool valid, ClsPublicKey* verifiedBy, bool hmac, LogBase& log) {
  LogContextExitor ctx(log, "signer");
  SignerResult& r = m_signerResult;
  if (!valid) {
    if (!m_signerPolicy.pinned.empty() && !hmac)
      log.LogError(("No pinned signer key verifies the signature (the signature names " +
                    std::to_string(r.unpinnedCandidates) + " key(s) that are not pinned).")
                       .c_str());
    return false;
  }
  if (hmac) {
    r.source = "HmacKey";
    return true;
  }
  if (!verifiedBy) return false;
  verifiedBy->incRefCount();
  r.key.reset(verifiedBy);
  r.source = verifiedBy->origin().empty() ? "CallerKey" : verifiedBy->origin();
  if (!m_signerPolicy.pinned.empty()) {
    bool isPinned = false;
    for (const RcPtr<ClsPublicKey>& pin : m_signerPolicy.pinned) isPinned = isPinned || sameKey(*verifiedBy, *pin);
    if (!isPinned) {
      log.LogError("The signature was made with a key that is not pinned.");
      return false;
    }
  }
  r.certDer.append(verifiedBy->certificateDer());

  // The certificates the document carries: the signer's own when the key came without it
  // (a KeyValue next to its certificate), the texts it is written in, the intermediates.
  std::vector<std::string> keyInfoCerts;
  {
    LogNull quiet;
    RcPtr<ClsStringArray> texts(ClsStringArray::createNewCls());
    RcPtr<ClsXml> keyInfo(getKeyInfo(quiet));
    if (texts && keyInfo && certsFromKeyInfo(keyInfo.get(), *texts, quiet))
      for (int i = 0; i < texts->get_Count(); ++i) keyInfoCerts.push_back(withoutSpace(texts->getStringUtf8(i)));
  }
  std::vector<std::string> signerTexts;
  for (const std::string& text : keyInfoCerts) {
    DataBuffer der;
    if (!decodeBase64(text, der)) continue;
    if (r.certDer.isEmpty()) {
      RcPtr<ClsPublicKey> certKey(ClsPublicKey::createNewCls());
      LogNull quiet;
      if (certKey && certKey->loadAnyDer(der, quiet) && sameKey(*certKey, *verifiedBy)) r.certDer.append(der);
    }
    if (der.equals(r.certDer)) signerTexts.push_back(text);
  }
  if (!r.certDer.isEmpty()) {
    certsummary::Summary s;
    if (certsummary::summarize(r.certDer, s)) log.LogDataStr("signerSubject", s.subject.c_str());
  }
  log.LogDataStr("signerSource", r.source.c_str());

  if (ClsXml* signature = selectedSignature()) {
    std::string error;
    if (!xades::signingCertificateMatches(*signature, r.certDer, signerTexts, error)) {
      log.LogError(error.c_str());
      return false;
    }
  }
  if (m_signerPolicy.trust.hasAnchors()) return checkSignerTrust(keyInfoCerts, log);
  return true;
}

bool ClsXmlDSig::checkSignerTrust(const std::vector<std::string>& keyInfoCerts, LogBase& log) {
  SignerResult& r = m_signerResult;
  r.trustChecked = true;
  long long at = static_cast<long long>(std::time(nullptr));
  r.validationTimeSource = "now";
  if (m_signerPolicy.hasValidationTime) {
    at = m_signerPolicy.validationTime;
    r.validationTimeSource = "caller";
  } else if (r.timeStampVerified && r.timeStampTime >= 0 && timeStampAuthorityTrusted(log)) {
    at = r.timeStampTime;
    r.validationTimeSource = "timestamp";
  }
  r.validationTime = certsummary::timeText(at);
  log.LogDataStr("validationTime", r.validationTime.c_str());
  log.LogDataStr("validationTimeSource", r.validationTimeSource.c_str());

  ossl::X509Ptr signer = parseCert(r.certDer);
  if (!signer) {
    r.trustError = "the key that verified has no certificate to check against the trust anchors";
    log.LogError(("The signer is not trusted: " + r.trustError + ".").c_str());
    return false;
  }
  std::vector<ossl::X509Ptr> owned;
  for (const std::string& text : keyInfoCerts) {
    DataBuffer der;
    if (decodeBase64(text, der))
      if (ossl::X509Ptr cert = parseCert(der)) owned.push_back(std::move(cert));
  }
  if (SystemCerts* store = systemCerts())
    for (CertRecord* record : store->allRecords())
      if (ossl::X509Ptr cert = record ? parseCert(record->der()) : ossl::X509Ptr()) owned.push_back(std::move(cert));
  std::vector<X509*> intermediates;
  for (const ossl::X509Ptr& cert : owned) intermediates.push_back(cert.get());

  const TrustStore::Verdict verdict = m_signerPolicy.trust.verify(signer.get(), intermediates, at);
  r.trusted = verdict.trusted;
  r.chain = verdict.chain;
  r.trustError = verdict.error;
  if (!r.trusted) {
    log.LogError(("The signer is not trusted: " + r.trustError + ".").c_str());
    return false;
  }
  log.LogInfo("The signer certificate chains to a trust anchor.");
  return true;
}

// A time-stamp's time moves the validation time into the past, where an expired or later
// revoked signer certificate was still good: anyone can make a token that states any time,
// so only an authority that itself chains to an anchor, at that time, is believed.
bool ClsXmlDSig::timeStampAuthorityTrusted(LogBase& log) {
  const SignerResult& r = m_signerResult;
  std::vector<ossl::X509Ptr> certs;
  for (const std::string& der : r.timeStampCerts) {
    DataBuffer bytes;
    bytes.append(der.data(), der.size());
    if (ossl::X509Ptr cert = parseCert(bytes)) certs.push_back(std::move(cert));
  }
  std::string error = "the time-stamp carries no certificate of its authority";
  if (!certs.empty()) {
    std::vector<X509*> intermediates;
    for (size_t i = 1; i < certs.size(); ++i) intermediates.push_back(certs[i].get());
    const TrustStore::Verdict verdict = m_signerPolicy.trust.verify(certs[0].get(), intermediates, r.timeStampTime);
    if (verdict.trusted) return true;
    error = verdict.error;
  }
  log.LogInfo(
      ("The time-stamp's time is not used as the validation time: its authority is not trusted (" + error + ").")
          .c_str());
  return false;
}
