// Verifies every signature of a signed document and, for one that fails, says why: the
// last error line of the verifier's log, and each reference that fails with its
// RefFailReason.
//
//   verify_invoice [--log] FILE [KEYWORD...]
//
// KEYWORD switches on the rules of a document family that is verified by its own rules
// only on request: ZATCA for Saudi invoices, MYINVOIS for Malaysian documents.
// --log prints the verifier's whole log of each verification to standard error.
// Exit status: 0 every signature is valid, 1 a signature is invalid, 2 the file could not
// be read or is not XML with a signature.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

// What RefFailReason says about the reference that failed last.
const char* refFailReasonText(int reason) {
  switch (reason) {
    case 1: return "the digest does not match: the signed data was changed";
    case 2: return "the data of an external reference was not supplied or cannot be hashed";
    case 3: return "the signature has no such reference";
    case 5: return "the referenced data could not be canonicalized";
    default: return "the reference failed before a reason was known";
  }
}

}  // namespace

int main(int argc, char** argv) {
  int arg = 1;
  const bool printLog = arg < argc && std::strcmp(argv[arg], "--log") == 0;
  if (printLog) ++arg;
  if (arg >= argc) {
    std::fprintf(stderr, "usage: verify_invoice [--log] FILE [KEYWORD...]\n");
    return 2;
  }
  const char* path = argv[arg++];
  std::string keywords;
  for (; arg < argc; ++arg) keywords += std::string(argv[arg]) + ",";

  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  if (!dsig || !bytes) return 2;
  if (!bytes->LoadFile(path)) {
    std::fprintf(stderr, "%s: cannot be read\n", path);
    return 2;
  }
  dsig->put_UncommonOptions(XString(keywords.c_str()));

  // Loading from bytes takes the encoding from the byte-order mark or the XML declaration.
  if (!dsig->LoadSignatureBd(*bytes)) {
    std::fprintf(stderr, "%s: %s\n", path, dsig->lastErrorLine().c_str());
    return 2;
  }
  const int count = dsig->get_NumSignatures();
  if (count == 0) {
    std::fprintf(stderr, "%s: no signature found\n", path);
    return 2;
  }

  bool allValid = true;
  for (int i = 0; i < count; ++i) {
    dsig->put_Selector(i);
    // true: check every reference digest first, then the signature value.
    const bool valid = dsig->VerifySignature(true);
    if (printLog) std::fputs(dsig->lastErrorText().c_str(), stderr);
    if (valid) {
      std::printf("%s: signature %d: valid\n", path, i);
      continue;
    }
    allValid = false;
    // The log's last error names the step that failed. RefFailReason describes the last
    // reference checked, so ask each reference in turn which of them failed and why.
    std::printf("%s: signature %d: INVALID (%s)\n", path, i, dsig->lastErrorLine().c_str());
    bool referenceFailed = false;
    for (int r = 0; r < dsig->get_NumReferences(); ++r) {
      if (dsig->VerifyReferenceDigest(r)) continue;
      referenceFailed = true;
      XString uri;
      dsig->ReferenceUri(r, uri);
      const int reason = dsig->get_RefFailReason();
      std::printf("  reference %d (URI \"%s\"): RefFailReason %d, %s\n", r, uri.getUtf8(), reason,
                  refFailReasonText(reason));
    }
    if (!referenceFailed) std::printf("  every reference digest matches: the signature value check failed\n");
  }
  return allValid ? 0 : 1;
}
