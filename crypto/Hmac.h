// Hmac: keyed-hash message authentication codes (RFC 2104) for every hash identifier
// of _btHash.
#pragma once

#include <cstddef>

class DataBuffer;
class LogBase;

class Hmac {
 public:
  // The full HMAC of the data under the key, replacing out's contents. False (with the
  // reason logged) for an unknown hash identifier or when it cannot be computed.
  static bool doHMAC(const void* data, size_t dataLen, const void* key, size_t keyLen, int hashId,
                     DataBuffer& out, LogBase& log);
};
