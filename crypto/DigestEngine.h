// DigestEngine: one running message digest. Implemented over OpenSSL's EVP digests and
// by our own MD2 and RIPEMD code for the digests OpenSSL 3 no longer ships.
#pragma once

#include <cstddef>
#include <memory>

class DigestEngine {
 public:
  virtual ~DigestEngine() = default;
  virtual bool update(const void* data, size_t n) = 0;
  // Writes outputSize() bytes; the engine is spent afterwards.
  virtual bool finish(unsigned char* out) = 0;
  virtual size_t outputSize() const = 0;
  // Input block size, the B of the HMAC construction.
  virtual size_t blockSize() const = 0;
};

// A fresh engine for a hash identifier (1 SHA-1, 2 SHA-384, 3 SHA-512, 4 MD2, 5 MD5,
// 7 SHA-256, 9 RIPEMD-128, 10 RIPEMD-160, 11 SHA-224, 12-15 SHA3-224/256/384/512), or null for any other identifier.
std::unique_ptr<DigestEngine> makeDigestEngine(int hashId);
