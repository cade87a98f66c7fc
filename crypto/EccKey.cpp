#include "crypto/EccKey.h"

#include <openssl/core_names.h>

#include "crypto/DsaLikeVerify.h"
#include "support/LogBase.h"

std::string EccKey::curveName() const {
  char name[80] = {0};
  size_t len = 0;
  if (!m_key ||
      EVP_PKEY_get_utf8_string_param(m_key.get(), OSSL_PKEY_PARAM_GROUP_NAME, name, sizeof(name), &len) != 1) {
    ossl::clearErrors();
    return std::string();
  }
  return std::string(name, len);
}

bool EccKey::eccVerifyHash(const void* sig, size_t sigLen, bool derFirst, const void* hash, size_t hashLen, bool& valid,
                           LogBase& log, int /*reserved*/) const {
  LogContextExitor ctx(log, "eccVerifyHash");
  return verifyDsaLikeSignature(m_key.get(), sig, sigLen, !derFirst, hash, hashLen, valid, log);
}
