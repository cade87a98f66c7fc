// EdDsaKey: an Ed25519 or Ed448 public key and verification of a pure EdDSA signature,
// which is computed over the message itself rather than over a digest of it.
#pragma once

#include <cstddef>

#include "crypto/OsslPtr.h"

class LogBase;

class EdDsaKey {
 public:
  explicit EdDsaKey(ossl::PkeyPtr key) : m_key(std::move(key)) {}
  EVP_PKEY* pkey() const { return m_key.get(); }
  bool isEd448() const { return m_key && EVP_PKEY_is_a(m_key.get(), "ED448"); }
  int numBits() const { return m_key ? EVP_PKEY_get_bits(m_key.get()) : 0; }

  // Verifies sig over message. True when the verification ran (valid then tells the
  // outcome); false when it could not be set up.
  bool verifyMessage(const void* sig, size_t sigLen, const void* message, size_t messageLen, bool& valid,
                     LogBase& log) const;

 private:
  ossl::PkeyPtr m_key;
};
