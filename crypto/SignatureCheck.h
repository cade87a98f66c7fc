// Checking a signature value under a list of candidate public keys: each key of the
// method's type is tried in order, and the index of the first one under which the
// signature verifies is the answer. A key that does not fit (wrong type, another
// modulus size) or does not verify is passed over, never ends the search.
#pragma once

#include <cstddef>

class ExtPtrArrayRc;
class LogBase;

namespace sigcheck {

enum class KeyKind { Rsa = 1, Dsa = 2, Ecdsa = 3, EdDsa = 5 };

struct Method {
  KeyKind kind = KeyKind::Rsa;
  int hashId = 0;      // digest that is signed (not used by EdDSA, which signs the message)
  int rsaPadding = 1;  // 1 PKCS#1 v1.5, 3 PSS
  int mgfHashId = 0;   // PSS mask digest; 0: the same as hashId
  int saltLength = 0;  // PSS salt length in bytes; 0 or less: whatever the signature holds
};

struct Input {
  const unsigned char* signature = nullptr;
  size_t signatureLen = 0;
  const unsigned char* hash = nullptr;  // the digest of the message under method.hashId
  size_t hashLen = 0;
  const unsigned char* message = nullptr;  // what EdDSA verifies directly
  size_t messageLen = 0;
};

// The index in keys (ClsPublicKey elements) of the first key under which the signature
// verifies, or -1 when none does. Logs how each candidate fared.
int findVerifyingKey(const ExtPtrArrayRc& keys, const Method& method, const Input& input, LogBase& log);

}  // namespace sigcheck
