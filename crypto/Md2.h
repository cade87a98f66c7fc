// MD2 (RFC 1319). Obsolete, but old signatures still name it and OpenSSL 3 has no MD2.
#pragma once

#include <cstdint>

#include "crypto/DigestEngine.h"

class Md2Engine : public DigestEngine {
 public:
  Md2Engine();
  bool update(const void* data, size_t n) override;
  bool finish(unsigned char* out) override;
  size_t outputSize() const override { return 16; }
  size_t blockSize() const override { return 16; }

 private:
  void compress(const uint8_t* block);
  uint8_t m_state[48];
  uint8_t m_checksum[16];
  uint8_t m_buffer[16];
  size_t m_buffered = 0;
};
