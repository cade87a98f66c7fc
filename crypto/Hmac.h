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
  static bool doHMAC(const void* data, size_t dataLen, const void* key, size_t keyLen, int hashId, DataBuffer& out,
                     LogBase& log);
  // Whether a presented value is the whole of the computed HMAC, compared in time that does
  // not depend on where they differ. A value shorter than the full output never matches.
  static bool matchesFullOutput(const DataBuffer& computed, const DataBuffer& presented);
};
