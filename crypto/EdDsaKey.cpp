#include "crypto/EdDsaKey.h"

#include "support/LogBase.h"

bool EdDsaKey::verifyMessage(const void* sig, size_t sigLen, const void* message, size_t messageLen, bool& valid,
                             LogBase& log) const {
  valid = false;
  ossl::MdCtxPtr ctx(EVP_MD_CTX_new());
  // EdDSA takes no separate digest: the one-shot verify hashes the message internally.
  if (!m_key || !ctx ||
      EVP_DigestVerifyInit_ex(ctx.get(), nullptr, nullptr, nullptr, nullptr, m_key.get(), nullptr) != 1) {
    ossl::drainErrors(log);
    log.LogError("Failed to set up EdDSA verification.");
    return false;
  }
  valid = EVP_DigestVerify(ctx.get(), static_cast<const unsigned char*>(sig), sigLen,
                           static_cast<const unsigned char*>(message), messageLen) == 1;
  ossl::clearErrors();
  return true;
}
