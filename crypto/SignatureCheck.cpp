#include "crypto/SignatureCheck.h"

#include "crypto/ClsPublicKey.h"
#include "crypto/DsaVerifier.h"
#include "crypto/RsaVerifier.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"

namespace sigcheck {
namespace {

enum class Outcome { OtherKind, DoesNotFit, Invalid, Valid };

Outcome outcome(bool ran, bool valid) { return !ran ? Outcome::DoesNotFit : valid ? Outcome::Valid : Outcome::Invalid; }

// How the signature fares under one key. Candidates that do not fit are an expected
// outcome while several keys are tried, so the verifiers' own logs are not kept.
Outcome tryKey(const _btPublicKey& key, const Method& method, const Input& in) {
  bool valid = false;
  LogNull quiet;
  switch (method.kind) {
    case KeyKind::Rsa: {
      const RsaKeyData* rsa = key.getRsaKey();
      if (!rsa) return Outcome::OtherKind;
      bool keyMismatch = false;
      const bool ran = RsaVerifier::verifyHashExt(in.signature, in.signatureLen, in.hash, in.hashLen, method.hashId,
                                                  method.rsaPadding, method.mgfHashId, valid, *rsa, method.saltLength,
                                                  true, keyMismatch, quiet);
      return outcome(ran, valid);
    }
    case KeyKind::Dsa: {
      const DsaKeyData* dsa = key.getDsaKey();
      if (!dsa) return Outcome::OtherKind;
      const bool ran = DsaVerifier::verifyHash(*dsa, in.signature, in.signatureLen, true, in.hash, in.hashLen, valid,
                                               quiet);
      return outcome(ran, valid);
    }
    case KeyKind::Ecdsa: {
      const EccKey* ecc = key.getEccKey();
      if (!ecc) return Outcome::OtherKind;
      const bool ran = ecc->eccVerifyHash(in.signature, in.signatureLen, false, in.hash, in.hashLen, valid, quiet, 0);
      return outcome(ran, valid);
    }
    case KeyKind::EdDsa: {
      const EdDsaKey* ed = key.getEdDsaKey();
      if (!ed) return Outcome::OtherKind;
      const bool ran = ed->verifyMessage(in.signature, in.signatureLen, in.message, in.messageLen, valid, quiet);
      return outcome(ran, valid);
    }
  }
  return Outcome::OtherKind;
}

const char* validMessage(KeyKind kind) {
  switch (kind) {
    case KeyKind::Rsa: return "The RSA signature was verified.";
    case KeyKind::Dsa: return "The DSA signature was verified.";
    case KeyKind::Ecdsa: return "The ECDSA signature was verified.";
    case KeyKind::EdDsa: return "The EdDSA signature was verified.";
  }
  return "The signature was verified.";
}

// The error when keys of the right kind were tried and none verified.
const char* invalidMessage(KeyKind kind) {
  switch (kind) {
    case KeyKind::Rsa: return "RSA verify hash found the signature to be invalid.";
    case KeyKind::Dsa: return "DSA verify hash failed.";
    case KeyKind::Ecdsa: return "ECDSA verify hash found the signature to be invalid.";
    case KeyKind::EdDsa: return "EdDSA verification found the signature to be invalid.";
  }
  return "The signature is invalid.";
}

}  // namespace

int findVerifyingKey(const ExtPtrArrayRc& keys, const Method& method, const Input& input, LogBase& log) {
  log.LogDataLong("numCandidateKeys", keys.getSize());
  if (method.kind != KeyKind::EdDsa && input.hashLen == 0) {
    log.LogError("No digest of SignedInfo to verify against.");
    return -1;
  }
  int tried = 0;
  for (int i = 0; i < keys.getSize(); ++i) {
    const auto* key = static_cast<const ClsPublicKey*>(keys.elementAt(i));
    if (!key) continue;
    switch (tryKey(key->getPubKey(), method, input)) {
      case Outcome::Valid:
        log.LogInfo(validMessage(method.kind));
        log.LogDataLong("verifyingKeyIndex", i);
        return i;
      case Outcome::Invalid: ++tried; break;
      case Outcome::DoesNotFit: log.LogInfo("Not the correct key."); break;
      case Outcome::OtherKind: log.LogDataStr("candidateOfOtherKeyType", key->getPubKey().keyTypeName()); break;
    }
  }
  if (tried > 0) log.LogError(invalidMessage(method.kind));
  else log.LogError("No candidate key fits the signature method.");
  return -1;
}

}  // namespace sigcheck
