#include "crypto/Ripemd.h"

#include <cstring>

namespace {

// Message word order and rotation amounts of the left (r, s) and right (rr, ss) lines.
const uint8_t r[80] = {0,  1, 2,  3, 4,  5,  6, 7,  8, 9,  10, 11, 12, 13, 14, 15, 7,  4,  13, 1,
                       10, 6, 15, 3, 12, 0,  9, 5,  2, 14, 11, 8,  3,  10, 14, 4,  9,  15, 8,  1,
                       2,  7, 0,  6, 13, 11, 5, 12, 1, 9,  11, 10, 0,  8,  12, 4,  13, 3,  7,  15,
                       14, 5, 6,  2, 4,  0,  5, 9,  7, 12, 2,  10, 14, 1,  3,  8,  11, 6,  15, 13};
const uint8_t rr[80] = {5,  14, 7,  0,  9,  2,  11, 4,  13, 6, 15, 8, 1,  10, 3,  12, 6, 11, 3, 7,
                        0,  13, 5,  10, 14, 15, 8,  12, 4,  9, 1,  2, 15, 5,  1,  3,  7, 14, 6, 9,
                        11, 8,  12, 2,  10, 0,  4,  13, 8,  6, 4,  1, 3,  11, 15, 0,  5, 12, 2, 13,
                        9,  7,  10, 14, 12, 15, 10, 4,  1,  5, 8,  7, 6,  2,  13, 14, 0, 3,  9, 11};
const uint8_t s[80] = {11, 14, 15, 12, 5, 8,  7,  9,  11, 13, 14, 15, 6,  7,  9,  8,  7,  6,  8,  13,
                       11, 9,  7,  15, 7, 12, 15, 9,  11, 7,  13, 12, 11, 13, 6,  7,  14, 9,  13, 15,
                       14, 8,  13, 6,  5, 12, 7,  5,  11, 12, 14, 15, 14, 15, 9,  8,  9,  14, 5,  6,
                       8,  6,  5,  12, 9, 15, 5,  11, 6,  8,  13, 12, 5,  12, 13, 14, 11, 8,  5,  6};
const uint8_t ss[80] = {8,  9,  9,  11, 13, 15, 15, 5, 7,  7,  8,  11, 14, 14, 12, 6,  9,  13, 15, 7,
                        12, 8,  9,  11, 7,  7,  12, 7, 6,  15, 13, 11, 9,  7,  15, 11, 8,  6,  6,  14,
                        12, 13, 5,  14, 13, 13, 7,  5, 15, 5,  8,  11, 14, 14, 6,  14, 6,  9,  12, 9,
                        12, 5,  15, 8,  8,  5,  12, 9, 12, 5,  14, 6,  8,  13, 6,  5,  15, 13, 11, 11};

const uint32_t kLeft[5] = {0x00000000u, 0x5A827999u, 0x6ED9EBA1u, 0x8F1BBCDCu, 0xA953FD4Eu};
const uint32_t kRight160[5] = {0x50A28BE6u, 0x5C4DD124u, 0x6D703EF3u, 0x7A6D76E9u, 0x00000000u};
const uint32_t kRight128[4] = {0x50A28BE6u, 0x5C4DD124u, 0x6D703EF3u, 0x00000000u};

inline uint32_t rol(uint32_t x, unsigned n) { return (x << n) | (x >> (32 - n)); }

// The five boolean functions; round j of the left line uses f(j), the right line f(last - j).
inline uint32_t f(int j, uint32_t x, uint32_t y, uint32_t z) {
  switch (j) {
    case 0: return x ^ y ^ z;
    case 1: return (x & y) | (~x & z);
    case 2: return (x | ~y) ^ z;
    case 3: return (x & z) | (y & ~z);
    default: return x ^ (y | ~z);
  }
}

}  // namespace

RipemdEngine::RipemdEngine(int bits) : m_words(bits == 128 ? 4 : 5) {
  m_h[0] = 0x67452301u;
  m_h[1] = 0xEFCDAB89u;
  m_h[2] = 0x98BADCFEu;
  m_h[3] = 0x10325476u;
  m_h[4] = 0xC3D2E1F0u;
}

void RipemdEngine::compress128(const uint32_t* x) {
  uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3];
  uint32_t aa = a, bb = b, cc = c, dd = d;
  for (int j = 0; j < 64; ++j) {
    const int round = j / 16;
    uint32_t t = rol(a + f(round, b, c, d) + x[r[j]] + kLeft[round], s[j]);
    a = d;
    d = c;
    c = b;
    b = t;
    t = rol(aa + f(3 - round, bb, cc, dd) + x[rr[j]] + kRight128[round], ss[j]);
    aa = dd;
    dd = cc;
    cc = bb;
    bb = t;
  }
  const uint32_t t = m_h[1] + c + dd;
  m_h[1] = m_h[2] + d + aa;
  m_h[2] = m_h[3] + a + bb;
  m_h[3] = m_h[0] + b + cc;
  m_h[0] = t;
}

void RipemdEngine::compress160(const uint32_t* x) {
  uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3], e = m_h[4];
  uint32_t aa = a, bb = b, cc = c, dd = d, ee = e;
  for (int j = 0; j < 80; ++j) {
    const int round = j / 16;
    uint32_t t = rol(a + f(round, b, c, d) + x[r[j]] + kLeft[round], s[j]) + e;
    a = e;
    e = d;
    d = rol(c, 10);
    c = b;
    b = t;
    t = rol(aa + f(4 - round, bb, cc, dd) + x[rr[j]] + kRight160[round], ss[j]) + ee;
    aa = ee;
    ee = dd;
    dd = rol(cc, 10);
    cc = bb;
    bb = t;
  }
  const uint32_t t = m_h[1] + c + dd;
  m_h[1] = m_h[2] + d + ee;
  m_h[2] = m_h[3] + e + aa;
  m_h[3] = m_h[4] + a + bb;
  m_h[4] = m_h[0] + b + cc;
  m_h[0] = t;
}

void RipemdEngine::compress(const uint8_t* block) {
  uint32_t x[16];
  for (int i = 0; i < 16; ++i)
    x[i] = static_cast<uint32_t>(block[4 * i]) | (static_cast<uint32_t>(block[4 * i + 1]) << 8) |
           (static_cast<uint32_t>(block[4 * i + 2]) << 16) | (static_cast<uint32_t>(block[4 * i + 3]) << 24);
  if (m_words == 4) compress128(x);
  else compress160(x);
}

bool RipemdEngine::update(const void* data, size_t n) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  m_totalBytes += n;
  while (n > 0) {
    size_t take = 64 - m_buffered;
    if (take > n) take = n;
    std::memcpy(m_buffer + m_buffered, p, take);
    m_buffered += take;
    p += take;
    n -= take;
    if (m_buffered == 64) {
      compress(m_buffer);
      m_buffered = 0;
    }
  }
  return true;
}

bool RipemdEngine::finish(unsigned char* out) {
  // MD4-style padding: 0x80, zeros to 56 mod 64, then the bit length little-endian.
  const uint64_t bitLength = m_totalBytes * 8;
  uint8_t tail[72] = {0x80};
  const size_t padLen = (m_buffered < 56) ? (56 - m_buffered) : (120 - m_buffered);
  for (int i = 0; i < 8; ++i) tail[padLen + i] = static_cast<uint8_t>(bitLength >> (8 * i));
  update(tail, padLen + 8);
  for (size_t i = 0; i < m_words; ++i)
    for (int k = 0; k < 4; ++k) out[4 * i + k] = static_cast<uint8_t>(m_h[i] >> (8 * k));
  return true;
}
