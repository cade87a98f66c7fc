// Checks the values of a public key before it is used to verify anything. A key whose
// values were chosen to be degenerate (a DSA generator or public value of 1, an RSA
// exponent of 1, a point off its curve) lets a made-up signature verify without any
// private key, so such a key is refused wherever it came from.
#pragma once

#include <openssl/evp.h>

#include <string>

namespace keycheck {

// Empty when the key may be used; otherwise why not, as a sentence a user can read.
// Keys of types not checked here (none are in use) are accepted.
std::string whyUnusable(EVP_PKEY* key);

}  // namespace keycheck
