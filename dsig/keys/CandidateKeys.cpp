// The keys a signature value is checked under: for a public-key method, every key the
// KeyInfo yields and the caller's (narrowed to the pinned signers when there are any);
// for an HMAC, the caller's secret. When there is none, the failure says why: nothing
// offered, or a key offered and refused by the key checks.
#include <string>

#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/SignatureValueCheck.h"
#include "dsig/keys/SignerState.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"

bool ClsXmlDSig::candidateKeys(const sigvalue::Method& method, ExtPtrArrayRc& keys, LogBase& log) {
  if (!sigvalue::usesPublicKey(method.keyType)) {
    if (!m_hmacKey.isEmpty()) return true;
    noteFailure("no-key", "no key: an HMAC signature needs its secret");
    log.LogError("No HMAC key available to verify signature.");
    return false;
  }
  getPublicKey(false, keys, log);
  pinCandidateKeys(keys, log);
  if (keys.getSize() > 0) return true;
  if (m_signerResult.refusedKey.empty()) noteFailure("no-key", "no key found: KeyInfo yields none");
  else noteFailure("no-key", "key refused: " + m_signerResult.refusedKey);
  log.LogError("No public key available to verify signature.");
  return false;
}

void ClsXmlDSig::noteRefusedKey(const ClsPublicKey& key) {
  const std::string& why = key.getPubKey().refusal();
  if (m_signerResult.refusedKey.empty() && !why.empty()) m_signerResult.refusedKey = why;
}
