#include "dsig/keys/SignatureValueCheck.h"

#include "crypto/ClsPublicKey.h"
#include "crypto/DsaVerifier.h"
#include "crypto/Hmac.h"
#include "crypto/RsaVerifier.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"

namespace sigvalue {
namespace {

using dsig_algorithms::KeyType;
using dsig_algorithms::RsaPadding;

enum class Outcome { OtherKind, DoesNotFit, Invalid, Valid };

Outcome outcome(bool ran, bool valid) { return !ran ? Outcome::DoesNotFit : valid ? Outcome::Valid : Outcome::Invalid; }

RsaVerifier::Padding rsaPadding(RsaPadding padding) {
  switch (padding) {
    case RsaPadding::Pss: return RsaVerifier::kPss;
    case RsaPadding::Pkcs1v15:
    case RsaPadding::NotRsa: break;
  }
  return RsaVerifier::kPkcs1v15;
}

// How the signature fares under one key. Candidates that do not fit are an expected
// outcome while several keys are tried, so the verifiers' own logs are not kept.
Outcome tryKey(const _btPublicKey& key, const Method& method, const Signed& in) {
  bool valid = false;
  LogNull quiet;
  const unsigned char* const value = in.value.getData2();
  const size_t valueLen = in.value.getSize();
  switch (method.keyType) {
    case KeyType::Rsa: {
      const RsaKeyData* rsa = key.getRsaKey();
      if (!rsa) return Outcome::OtherKind;
      bool keyMismatch = false;
      const bool ran = RsaVerifier::verifyHashExt(value, valueLen, in.hash.getData2(), in.hash.getSize(), method.hashId,
                                                  rsaPadding(method.padding), method.mgfHashId, valid, *rsa,
                                                  method.saltLength, true, keyMismatch, quiet);
      return outcome(ran, valid);
    }
    case KeyType::Dsa: {
      const DsaKeyData* dsa = key.getDsaKey();
      if (!dsa) return Outcome::OtherKind;
      const bool ran = DsaVerifier::verifyHash(*dsa, value, valueLen, true, in.hash.getData2(), in.hash.getSize(),
                                               valid, quiet);
      return outcome(ran, valid);
    }
    case KeyType::Ecdsa: {
      const EccKey* ecc = key.getEccKey();
      if (!ecc) return Outcome::OtherKind;
      const bool ran = ecc->eccVerifyHash(value, valueLen, false, in.hash.getData2(), in.hash.getSize(), valid, quiet,
                                          0);
      return outcome(ran, valid);
    }
    case KeyType::EdDsa: {
      const EdDsaKey* ed = key.getEdDsaKey();
      if (!ed) return Outcome::OtherKind;
      const auto* message = reinterpret_cast<const unsigned char*>(in.bytes.getString());
      const bool ran = ed->verifyMessage(value, valueLen, message, in.bytes.getSize(), valid, quiet);
      return outcome(ran, valid);
    }
    case KeyType::Hmac: break;  // a secret, not a public key
  }
  return Outcome::OtherKind;
}

const char* validMessage(KeyType keyType) {
  switch (keyType) {
    case KeyType::Rsa: return "The RSA signature was verified.";
    case KeyType::Dsa: return "The DSA signature was verified.";
    case KeyType::Ecdsa: return "The ECDSA signature was verified.";
    case KeyType::EdDsa: return "The EdDSA signature was verified.";
    case KeyType::Hmac: break;
  }
  return "The signature was verified.";
}

// The error when keys of the right kind were tried and none verified.
const char* invalidMessage(KeyType keyType) {
  switch (keyType) {
    case KeyType::Rsa: return "RSA verify hash found the signature to be invalid.";
    case KeyType::Dsa: return "DSA verify hash failed.";
    case KeyType::Ecdsa: return "ECDSA verify hash found the signature to be invalid.";
    case KeyType::EdDsa: return "EdDSA verification found the signature to be invalid.";
    case KeyType::Hmac: break;
  }
  return "The signature is invalid.";
}

}  // namespace

bool usesPublicKey(KeyType keyType) {
  switch (keyType) {
    case KeyType::Rsa:
    case KeyType::Dsa:
    case KeyType::Ecdsa:
    case KeyType::EdDsa: return true;
    case KeyType::Hmac: return false;
  }
  return false;
}

int findVerifyingKey(const ExtPtrArrayRc& keys, const Method& method, const Signed& data, LogBase& log) {
  log.LogDataLong("numCandidateKeys", keys.getSize());
  if (method.keyType != KeyType::EdDsa && data.hash.getSize() == 0) {
    log.LogError("No digest of SignedInfo to verify against.");
    return -1;
  }
  int tried = 0;
  for (int i = 0; i < keys.getSize(); ++i) {
    const auto* key = static_cast<const ClsPublicKey*>(keys.elementAt(i));
    if (!key) continue;
    switch (tryKey(key->getPubKey(), method, data)) {
      case Outcome::Valid:
        log.LogInfo(validMessage(method.keyType));
        log.LogDataLong("verifyingKeyIndex", i);
        return i;
      case Outcome::Invalid: ++tried; break;
      case Outcome::DoesNotFit: log.LogInfo("Not the correct key."); break;
      case Outcome::OtherKind: log.LogDataStr("candidateOfOtherKeyType", key->getPubKey().keyTypeName()); break;
    }
  }
  if (tried > 0) log.LogError(invalidMessage(method.keyType));
  else log.LogError("No candidate key fits the signature method.");
  return -1;
}

bool hmacVerifies(const DataBuffer& secret, const Method& method, const Signed& data, LogBase& log) {
  DataBuffer mac;
  if (!Hmac::doHMAC(data.bytes.getString(), data.bytes.getSize(), secret.getData2(), secret.getSize(), method.hashId,
                    mac, log)) {
    log.LogError("HMAC verify failed.");
    return false;
  }
  // The decoded value, so that white space anywhere in it (wrapped lines) is ignored.
  const bool valid = Hmac::matchesFullOutput(mac, data.value);
  if (!valid) log.LogError("HMAC validation failed.");
  return valid;
}

}  // namespace sigvalue
