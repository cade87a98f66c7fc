// The RSAPSSParams element of an RSA-PSS SignatureMethod: the digest, the MGF1 digest,
// the salt length and the trailer field the signer used, where they differ from the
// method's defaults.
#pragma once

#include <string_view>

class ClsXml;
class LogBase;

namespace rsapss {

struct Params {
  int hashId = 0;      // digest of SignedInfo
  int mgfHashId = 0;   // MGF1 digest
  int saltLength = 0;  // 0: whatever the signature holds
};

// The parameters of the signature's RSA-PSS SignatureMethod (with URI methodUri): the
// digest its row gives, overridden by an RSAPSSParams child where it has one. A method
// URI that names its digest ("#sha256-rsa-MGF1") keeps it: params naming another digest
// are refused, as are an unknown digest or MGF, a trailer field other than 1, and a
// malformed salt length. False, with the reason logged, when refused.
bool readParams(ClsXml& signature, std::string_view methodUri, int rowHashId, Params& params, LogBase& log);

}  // namespace rsapss
