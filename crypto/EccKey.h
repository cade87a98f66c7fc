// EccKey: an elliptic-curve public key (any named curve OpenSSL knows) and ECDSA
// verification over a given hash.
#pragma once

#include <cstddef>
#include <string>

#include "crypto/OsslPtr.h"

class LogBase;

class EccKey {
 public:
  explicit EccKey(ossl::PkeyPtr key) : m_key(std::move(key)) {}
  EVP_PKEY* pkey() const { return m_key.get(); }
  int numBits() const { return m_key ? EVP_PKEY_get_bits(m_key.get()) : 0; }
  // OpenSSL's name of the curve ("prime256v1", "secp256k1", ...), "" when unknown.
  std::string curveName() const;

  // Verifies an ECDSA signature over the hash. The value may be in the XML-Signature
  // form r||s (two equal halves) or a DER SEQUENCE of two INTEGERs, as some signing
  // software writes; both are tried, DER first only when derFirst is set. Returns true
  // when the verification ran (valid then tells the outcome), false when it could not.
  // The last argument is reserved and ignored.
  bool eccVerifyHash(const void* sig, size_t sigLen, bool derFirst, const void* hash, size_t hashLen, bool& valid,
                     LogBase& log, int reserved) const;

 private:
  ossl::PkeyPtr m_key;
};
