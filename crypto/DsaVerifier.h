// DsaVerifier: DSA signature verification over a given hash.
#pragma once

#include <cstddef>

class DsaKeyData;
class LogBase;

class DsaVerifier {
 public:
  // Verifies a DSA signature over the hash. The value may be the XML-Signature form
  // r||s (two equal halves: 40 bytes for a 160-bit q, 64 for 256) or a DER SEQUENCE of
  // two INTEGERs; both are tried, r||s first when rawFirst is set. Returns true when
  // the verification ran (valid tells the outcome), false when it could not.
  static bool verifyHash(const DsaKeyData& key, const void* sig, size_t sigLen, bool rawFirst, const void* hash,
                         size_t hashLen, bool& valid, LogBase& log);
};
