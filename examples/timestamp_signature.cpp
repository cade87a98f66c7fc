// Adds a XAdES signature time-stamp from an RFC 3161 time-stamp authority to the first
// signature of a document, writes the result, then loads it again and checks the stamp.
//
//   timestamp_signature SIGNED.xml TSA-URL OUT.xml [HASH]
//
// HASH is the digest the authority stamps: sha256 (the default), sha1, sha384 or sha512.
// The signature's SignatureValue element must carry an Id: the token covers its canonical
// form. A signature that already carries a time-stamp is refused.
// Exit status: 0 stamped and verified, 1 no stamp was added or it does not verify,
// 2 a file could not be read or written.
#include <cstdio>
#include <memory>

#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/ClsJsonObject.h"
#include "support/ClsStringBuilder.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

int main(int argc, char** argv) {
  if (argc < 4 || argc > 5) {
    std::fprintf(stderr, "usage: timestamp_signature SIGNED.xml TSA-URL OUT.xml [HASH]\n");
    return 2;
  }
  const char* inPath = argv[1];
  const char* outPath = argv[3];

  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  RcPtr<ClsJsonObject> options(ClsJsonObject::createNewCls());
  RcPtr<ClsStringBuilder> stamped(ClsStringBuilder::createNewCls());
  if (!dsig || !bytes || !options || !stamped) return 2;
  if (!bytes->LoadFile(inPath) || !dsig->LoadSignatureBd(*bytes) || dsig->get_NumSignatures() == 0) {
    std::fprintf(stderr, "%s: cannot be read, or has no signature\n", inPath);
    return 2;
  }

  // The request: where the authority is (required) and what to ask of it. The optional keys
  // are shown with their defaults; "tsaUsername" and "tsaPassword" add HTTP basic
  // authentication.
  options->UpdateString("tsaUrl", argv[2]);
  options->UpdateString("hashAlgorithm", argc == 5 ? argv[4] : "sha256");
  options->UpdateBool("requestTsaCert", true);  // the token then carries the authority's certificate

  dsig->put_Selector(0);
  if (!dsig->AddEncapsulatedTimeStamp(*options, *stamped)) {
    std::printf("%s: no time-stamp added (%s)\n", inPath, dsig->lastErrorLine().c_str());
    return 1;
  }
  // The loaded document is unchanged; the stamped text is in the string builder.
  if (!stamped->WriteFile(outPath, "utf-8")) {
    std::fprintf(stderr, "%s: cannot be written\n", outPath);
    return 2;
  }
  // The document comes back even when the authority gave no token: its time-stamp element is
  // then empty, and the log's last error says why. The log records "timestampTokenSize" only
  // when a token arrived.
  if (!dsig->m_log.containsText("timestampTokenSize")) {
    std::printf("%s: no token from the authority (%s)\n", outPath, dsig->lastErrorLine().c_str());
    return 1;
  }

  std::unique_ptr<ClsXmlDSig> check(ClsXmlDSig::createNewCls());
  if (!check || !check->LoadSignatureSb(*stamped)) return 2;
  if (!check->HasEncapsulatedTimeStamp()) {
    std::printf("%s: the signature has no place for a time-stamp\n", outPath);
    return 1;
  }
  // The option makes VerifySignature check the token (its CMS signature, and that it stamps
  // this SignatureValue) before the signature value itself.
  check->put_UncommonOptions(XString("VerifyEncapsulatedTimeStamp"));
  if (!check->VerifySignature(true)) {
    std::printf("%s: time-stamp or signature INVALID (%s)\n", outPath, check->lastErrorLine().c_str());
    return 1;
  }
  std::printf("%s: time-stamped and verified\n", outPath);
  return 0;
}
