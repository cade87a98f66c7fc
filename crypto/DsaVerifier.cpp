#include "crypto/DsaVerifier.h"

#include "crypto/DsaLikeVerify.h"
#include "crypto/KeyData.h"
#include "support/LogBase.h"

bool DsaVerifier::verifyHash(const DsaKeyData& key, const void* sig, size_t sigLen, bool rawFirst, const void* hash,
                             size_t hashLen, bool& valid, LogBase& log) {
  LogContextExitor ctx(log, "dsaVerifyHash");
  return verifyDsaLikeSignature(key.pkey(), sig, sigLen, rawFirst, hash, hashLen, valid, log);
}
