// RsaKeyData and DsaKeyData: an RSA or DSA public key held as an OpenSSL EVP_PKEY.
#pragma once

#include <cstddef>

#include "crypto/OsslPtr.h"

class RsaKeyData {
 public:
  explicit RsaKeyData(ossl::PkeyPtr key) : m_key(std::move(key)) {}
  EVP_PKEY* pkey() const { return m_key.get(); }
  // Length of the modulus in bytes: the length every signature under this key has.
  size_t modulusBytes() const { return m_key ? static_cast<size_t>(EVP_PKEY_get_size(m_key.get())) : 0; }
  int numBits() const { return m_key ? EVP_PKEY_get_bits(m_key.get()) : 0; }

 private:
  ossl::PkeyPtr m_key;
};

class DsaKeyData {
 public:
  explicit DsaKeyData(ossl::PkeyPtr key) : m_key(std::move(key)) {}
  EVP_PKEY* pkey() const { return m_key.get(); }
  int numBits() const { return m_key ? EVP_PKEY_get_bits(m_key.get()) : 0; }

 private:
  ossl::PkeyPtr m_key;
};
