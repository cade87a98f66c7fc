// Fuzz target: VerifySignature on (mutated) signed documents, every signature of the
// document with and without the reference digests, under the uncommon options that
// change the verification road. An HMAC key is set so that HMAC signatures reach the
// comparison. No external data and no ExternalRefDirs: nothing outside the input is read.
#include <memory>

#include "dsig/ClsXmlDSig.h"
#include "fuzz/FuzzTarget.h"
#include "support/ClsBinData.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace fuzz_verify {

inline int run(const uint8_t* data, size_t size) {
  static const char* const kOptions[] = {"", "ZATCA", "MYINVOIS", "AllowXmlDigestError,VerifyEncapsulatedTimeStamp"};
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return 0;
  const unsigned h = fuzzsupport::pick(data, size);
  dsig->put_UncommonOptions(XString(kOptions[h % 4]));
  XString secret("secret");
  XString encoding("ascii");
  dsig->SetHmacKey(secret, encoding);

  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  bytes->AppendBinary(data, size);
  if (!dsig->LoadSignatureBd(*bytes)) return 0;
  for (int i = 0; i < dsig->get_NumSignatures() && i < 3; ++i) {
    dsig->put_Selector(i);
    dsig->VerifySignature(true);
    dsig->VerifySignature(false);
  }
  return 0;
}

}  // namespace fuzz_verify

XMLDSIG_FUZZ_TARGET(fuzz_verify::run)
