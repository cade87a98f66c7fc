// The signature-method and digest-method URIs the verifier knows. A URI is matched as a
// whole, byte for byte (case included), against one ordered table per kind; a URI that is
// not in its table is refused by the caller, never guessed from a fragment of it. Adding an
// algorithm is adding one row to AlgorithmTables.cpp.
#pragma once

#include <string_view>

namespace dsig_algorithms {

// Key types of a signature method.
enum class KeyType { Rsa = 1, Dsa = 2, Ecdsa = 3, Hmac = 4, EdDsa = 5 };

// RSA padding, in the codes the RSA verifier takes. PSS uses MGF1 with the same digest.
enum class RsaPadding { NotRsa = 0, Pkcs1v15 = 1, Pss = 3 };

struct SignatureMethod {
  std::string_view uri;
  int hashId;  // _btHash identifier of the digest that is signed
  KeyType keyType;
  RsaPadding padding;
};

struct DigestMethod {
  std::string_view uri;
  int hashId;  // _btHash identifier
};

// The row whose URI equals `uri`, or null.
const SignatureMethod *findSignatureMethod(std::string_view uri);
const DigestMethod *findDigestMethod(std::string_view uri);

}  // namespace dsig_algorithms
