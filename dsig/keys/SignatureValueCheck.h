// Checking a signature value: under a list of candidate public keys (each key of the
// method's type is tried in order, and the index of the first one under which the
// signature verifies is the answer), or as an HMAC under the caller's secret. A key that
// does not fit (another type, another modulus size) or does not verify is passed over,
// never ends the search.
#pragma once

#include "dsig/AlgorithmTables.h"
#include "support/DataBuffer.h"
#include "support/StringBuffer.h"

class ExtPtrArrayRc;
class LogBase;

namespace sigvalue {

// The signature method as the check needs it: the row of the table, with the RSA-PSS
// parameters the signature gives.
struct Method {
  dsig_algorithms::KeyType keyType = dsig_algorithms::KeyType::Rsa;
  dsig_algorithms::RsaPadding padding = dsig_algorithms::RsaPadding::NotRsa;
  int hashId = 0;      // digest that is signed (EdDSA signs the message itself)
  int mgfHashId = 0;   // PSS mask digest; 0: the same as hashId
  int saltLength = 0;  // PSS salt length in bytes; 0 or less: whatever the signature holds
};

// What is checked: the decoded signature value over the signed bytes and their digest.
struct Signed {
  DataBuffer value;
  StringBuffer bytes;  // what the signature covers (the canonical SignedInfo, as a rule)
  DataBuffer hash;     // the digest the signature was made over (method.hashId, or the family's)
};

// Whether the method is checked under public keys (an HMAC is checked under a secret).
bool usesPublicKey(dsig_algorithms::KeyType keyType);

// The index in keys (ClsPublicKey elements) of the first key under which the signature
// verifies, or -1 when none does. Logs how each candidate fared.
int findVerifyingKey(const ExtPtrArrayRc& keys, const Method& method, const Signed& data, LogBase& log);

// Whether the value is the full HMAC of the signed bytes under secret.
bool hmacVerifies(const DataBuffer& secret, const Method& method, const Signed& data, LogBase& log);

}  // namespace sigvalue
