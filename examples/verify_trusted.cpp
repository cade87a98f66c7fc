// Verifies a signature and accepts it only when it was made with a key the caller trusts.
//
//   verify_trusted FILE TRUSTED...
//
// TRUSTED are certificate or public-key files (PEM or DER). They serve three purposes:
//  - the certificates go into a vault (ClsXmlCertVault, UseCertVault) in which the verifier
//    looks up a certificate that the signature's KeyInfo names by issuer and serial number,
//    subject name or subject key identifier instead of carrying it;
//  - the first one is the caller's key (SetPublicKey), tried after the keys KeyInfo yields,
//    for signatures whose KeyInfo yields none;
//  - after a valid verification, the key that verified (GetSignerKey) must be one of them.
//    A valid signature only says that some key the verifier tried fits: a KeyInfo may name
//    the genuine signer's key and also carry another one that made the signature.
// (AddPinnedSigner makes the verifier itself refuse every other key; this example keeps
// the two verdicts apart to tell "altered" from "intact but signed by someone else".)
// Exit status: 0 valid and signed with a trusted key, 1 invalid or signed with another
// key, 2 a file could not be read.
#include <cstdio>
#include <memory>
#include <vector>

#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

bool sameKey(ClsPublicKey& a, ClsPublicKey& b) {
  DataBuffer derA, derB;
  LogNull quiet;
  return a.getPublicKeyDer(false, derA, quiet) && b.getPublicKeyDer(false, derB, quiet) && derA.equals(derB);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: verify_trusted FILE TRUSTED-CERT-OR-KEY...\n");
    return 2;
  }
  const char* path = argv[1];

  RcPtr<ClsXmlCertVault> vault(ClsXmlCertVault::createNewCls());
  std::vector<RcPtr<ClsPublicKey>> trusted;
  if (!vault) return 2;
  for (int i = 2; i < argc; ++i) {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (!key || !key->LoadFromFile(XString(argv[i]))) {
      std::fprintf(stderr, "%s: neither a certificate nor a public key\n", argv[i]);
      return 2;
    }
    vault->AddCertFile(XString(argv[i]));  // false for a bare public key, which is fine
    trusted.push_back(std::move(key));
  }

  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  if (!dsig || !bytes) return 2;
  if (!bytes->LoadFile(path) || !dsig->LoadSignatureBd(*bytes) || dsig->get_NumSignatures() == 0) {
    std::fprintf(stderr, "%s: cannot be read, or has no signature\n", path);
    return 2;
  }
  dsig->UseCertVault(*vault);
  dsig->SetPublicKey(*trusted.front());  // for the selected signature (the first)

  if (!dsig->VerifySignature(true)) {
    std::printf("%s: INVALID (%s)\n", path, dsig->lastErrorLine().c_str());
    return 1;
  }

  RcPtr<ClsPublicKey> signer(dsig->GetSignerKey());
  XString source;
  dsig->get_SignerSource(source);
  for (size_t i = 0; signer && i < trusted.size(); ++i) {
    if (sameKey(*signer, *trusted[i])) {
      std::printf("%s: valid, signed with the trusted key %s (found as %s)\n", path, argv[2 + i], source.getUtf8());
      return 0;
    }
  }
  XString subject;
  dsig->get_SignerSubject(subject);
  std::printf(
      "%s: NOT TRUSTED: the signature is intact, but the key that made it (%s%s%s) is in none of the "
      "trusted files\n",
      path, source.getUtf8(), subject.isEmpty() ? "" : ", ", subject.getUtf8());
  return 1;
}
