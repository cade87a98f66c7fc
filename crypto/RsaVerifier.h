// RsaVerifier: RSA signature verification over a given hash, with PKCS#1 v1.5 or PSS
// padding.
#pragma once

#include <cstddef>

class LogBase;
class RsaKeyData;

class RsaVerifier {
 public:
  enum Padding { kPkcs1v15 = 1, kPss = 3 };

  // Verifies `sig` over `hash` (a digest of the algorithm `hashId`).
  // Returns true when the verification ran; `valid` then says whether the signature
  // matches. Returns false when it could not run; `keyMismatch` is then true if the key
  // cannot belong to the signature (not RSA, or a modulus of another size than the
  // signature). With an empty hash (hash identifier 0) the verification runs and is
  // not valid.
  // padding: kPkcs1v15 or kPss. mgfHashId: the MGF1 digest for PSS (0: same as hashId).
  // pssSaltLen: the PSS salt length, 0 or less to detect it from the signature.
  // lenientDigestInfo: for PKCS#1 v1.5, also accept a DigestInfo written without the
  // NULL parameters, or the bare digest, as some old signing software produced.
  static bool verifyHashExt(const void* sig, size_t sigLen, const void* hash, size_t hashLen, int hashId, int padding,
                            int mgfHashId, bool& valid, const RsaKeyData& key, int pssSaltLen, bool lenientDigestInfo,
                            bool& keyMismatch, LogBase& log);
};
