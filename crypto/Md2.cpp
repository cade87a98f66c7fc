#include "crypto/Md2.h"

#include <cstring>

namespace {

// The substitution table of RFC 1319, a permutation of 0..255 built from the digits of pi.
const uint8_t kPiSubst[256] = {
    41,  46,  67,  201, 162, 216, 124, 1,   61,  54,  84,  161, 236, 240, 6,   19,  98,  167, 5,   243, 192, 199,
    115, 140, 152, 147, 43,  217, 188, 76,  130, 202, 30,  155, 87,  60,  253, 212, 224, 22,  103, 66,  111, 24,
    138, 23,  229, 18,  190, 78,  196, 214, 218, 158, 222, 73,  160, 251, 245, 142, 187, 47,  238, 122, 169, 104,
    121, 145, 21,  178, 7,   63,  148, 194, 16,  137, 11,  34,  95,  33,  128, 127, 93,  154, 90,  144, 50,  39,
    53,  62,  204, 231, 191, 247, 151, 3,   255, 25,  48,  179, 72,  165, 181, 209, 215, 94,  146, 42,  172, 86,
    170, 198, 79,  184, 56,  210, 150, 164, 125, 182, 118, 252, 107, 226, 156, 116, 4,   241, 69,  157, 112, 89,
    100, 113, 135, 32,  134, 91,  207, 101, 230, 45,  168, 2,   27,  96,  37,  173, 174, 176, 185, 246, 28,  70,
    97,  105, 52,  64,  126, 15,  85,  71,  163, 35,  221, 81,  175, 58,  195, 92,  249, 206, 186, 197, 234, 38,
    44,  83,  13,  110, 133, 40,  132, 9,   211, 223, 205, 244, 65,  129, 77,  82,  106, 220, 55,  200, 108, 193,
    171, 250, 36,  225, 123, 8,   12,  189, 177, 74,  120, 136, 149, 139, 227, 99,  232, 109, 233, 203, 213, 254,
    59,  0,   29,  57,  242, 239, 183, 14,  102, 88,  208, 228, 166, 119, 114, 248, 235, 117, 75,  10,  49,  68,
    80,  180, 143, 237, 31,  26,  219, 153, 141, 51,  159, 17,  131, 20};

}  // namespace

Md2Engine::Md2Engine() {
  std::memset(m_state, 0, sizeof(m_state));
  std::memset(m_checksum, 0, sizeof(m_checksum));
}

void Md2Engine::compress(const uint8_t* block) {
  uint8_t last = m_checksum[15];
  for (int i = 0; i < 16; ++i) {
    m_state[16 + i] = block[i];
    m_state[32 + i] = static_cast<uint8_t>(m_state[16 + i] ^ m_state[i]);
    m_checksum[i] ^= kPiSubst[block[i] ^ last];
    last = m_checksum[i];
  }
  uint8_t t = 0;
  for (int round = 0; round < 18; ++round) {
    for (int k = 0; k < 48; ++k) {
      m_state[k] ^= kPiSubst[t];
      t = m_state[k];
    }
    t = static_cast<uint8_t>(t + round);
  }
}

bool Md2Engine::update(const void* data, size_t n) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  while (n > 0) {
    size_t take = 16 - m_buffered;
    if (take > n) take = n;
    std::memcpy(m_buffer + m_buffered, p, take);
    m_buffered += take;
    p += take;
    n -= take;
    if (m_buffered == 16) {
      compress(m_buffer);
      m_buffered = 0;
    }
  }
  return true;
}

bool Md2Engine::finish(unsigned char* out) {
  // Pad with i bytes of value i (1..16), then process the checksum as a final block.
  uint8_t pad = static_cast<uint8_t>(16 - m_buffered);
  uint8_t padding[16];
  std::memset(padding, pad, sizeof(padding));
  update(padding, pad);
  uint8_t checksum[16];
  std::memcpy(checksum, m_checksum, 16);
  compress(checksum);
  std::memcpy(out, m_state, 16);
  return true;
}
