// RIPEMD-128 and RIPEMD-160 (Dobbertin, Bosselaers, Preneel). OpenSSL 3 has no
// RIPEMD-128; RIPEMD-160 is used from here only when no OpenSSL provider offers it.
#pragma once

#include <cstdint>

#include "crypto/DigestEngine.h"

class RipemdEngine : public DigestEngine {
 public:
  // bits: 128 or 160.
  explicit RipemdEngine(int bits);
  bool update(const void* data, size_t n) override;
  bool finish(unsigned char* out) override;
  size_t outputSize() const override { return m_words * 4; }
  size_t blockSize() const override { return 64; }

 private:
  void compress(const uint8_t* block);
  void compress128(const uint32_t* x);
  void compress160(const uint32_t* x);
  size_t m_words;  // 4 or 5 chaining words
  uint32_t m_h[5];
  uint8_t m_buffer[64];
  size_t m_buffered = 0;
  uint64_t m_totalBytes = 0;
};
