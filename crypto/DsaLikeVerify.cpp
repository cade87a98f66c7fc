#include "crypto/DsaLikeVerify.h"

#include <utility>

#include "crypto/Der.h"
#include "crypto/OsslPtr.h"
#include "support/LogBase.h"

namespace {

// 1 verified, 0 did not verify, -1 the operation could not be set up.
int verifyDer(EVP_PKEY* key, const der::Bytes& derSig, const void* hash, size_t hashLen, LogBase& log) {
  ossl::PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1) {
    ossl::drainErrors(log);
    return -1;
  }
  const int rc = EVP_PKEY_verify(ctx.get(), derSig.data(), derSig.size(), static_cast<const unsigned char*>(hash),
                                 hashLen);
  // A signature that does not match leaves errors on the queue; they are expected here.
  ossl::clearErrors();
  return rc == 1 ? 1 : 0;
}

}  // namespace

bool verifyDsaLikeSignature(EVP_PKEY* key, const void* sig, size_t sigLen, bool rawFirst, const void* hash,
                            size_t hashLen, bool& valid, LogBase& log) {
  valid = false;
  if (!key) {
    log.LogError("No public key.");
    return false;
  }
  if (!sig || sigLen == 0) {
    log.LogError("The signature is empty.");
    return false;
  }
  if (hashLen == 0) {
    log.LogInfo("No hash to verify against.");
    return true;
  }
  const uint8_t* bytes = static_cast<const uint8_t*>(sig);
  der::Bytes fromRs;
  const bool haveRs = der::rsToDer(bytes, sigLen, fromRs);
  const bool haveDer = der::isSequenceOfTwoIntegers(bytes, sigLen);
  der::Bytes asDer;
  if (haveDer) asDer.assign(bytes, bytes + sigLen);

  const der::Bytes* forms[2] = {haveRs ? &fromRs : nullptr, haveDer ? &asDer : nullptr};
  if (!rawFirst) std::swap(forms[0], forms[1]);
  bool ran = false;
  for (const der::Bytes* form : forms) {
    if (!form) continue;
    const int rc = verifyDer(key, *form, hash, hashLen, log);
    if (rc < 0) continue;
    ran = true;
    if (rc == 1) {
      valid = true;
      if (form == &asDer) log.LogInfo("The signature value is in DER form.");
      return true;
    }
  }
  if (!haveRs && !haveDer) {
    log.LogInfo("The signature value is neither r||s nor DER.");
    return true;
  }
  if (!ran) {
    log.LogError("Failed to verify the signature.");
    return false;
  }
  return true;
}
