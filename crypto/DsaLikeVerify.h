// The verification shared by DSA and ECDSA: both sign a hash with a pair (r, s) that
// XML-Signature writes as r||s and OpenSSL reads as DER.
#pragma once

#include <cstddef>

#include <openssl/evp.h>

class LogBase;

// Tries the signature value as r||s and as DER (r||s first when rawFirst). True when
// the verification ran; valid is true when either form verifies.
bool verifyDsaLikeSignature(EVP_PKEY* key, const void* sig, size_t sigLen, bool rawFirst, const void* hash,
                            size_t hashLen, bool& valid, LogBase& log);
