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
//  - after a valid verification, every key the signature names (GetPublicKey, GetCerts)
//    must be one of them. This last check is the caller's job: the verifier accepts any key the document
//    carries, so an attacker who re-signs a document with his own key and certificate gets
//    a valid signature.
// Exit status: 0 valid and signed with a trusted key, 1 invalid or signed with another
// key, 2 a file could not be read.
#include <cstdio>
#include <memory>
#include <vector>

#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/ClsStringArray.h"
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

  // The verifier tried every key that KeyInfo yields before the caller's: accept only when
  // each of them is trusted. GetPublicKey gives the first key (a key value, an embedded
  // certificate's key, or one found in the vault), GetCerts every certificate.
  RcPtr<ClsPublicKey> firstKey(dsig->GetPublicKey());
  RcPtr<ClsStringArray> certs(ClsStringArray::createNewCls());
  if (!certs) return 2;
  dsig->GetCerts(*certs);
  std::vector<RcPtr<ClsPublicKey>> named;
  if (firstKey) named.push_back(std::move(firstKey));
  for (int i = 0; i < certs->get_Count(); ++i) {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (key && key->LoadFromString(XString(certs->getStringUtf8(i)))) named.push_back(std::move(key));
  }
  if (named.empty()) {  // KeyInfo yields nothing: only the caller's key was tried
    std::printf("%s: valid, signed with the trusted key %s\n", path, argv[2]);
    return 0;
  }
  int match = -1;
  bool allTrusted = true;
  for (const RcPtr<ClsPublicKey>& key : named) {
    int found = -1;
    for (size_t i = 0; i < trusted.size() && found < 0; ++i)
      if (sameKey(*key, *trusted[i])) found = static_cast<int>(i);
    if (found < 0) allTrusted = false;
    if (match < 0) match = found;
  }
  if (allTrusted) {
    std::printf("%s: valid, signed with the trusted key %s\n", path, argv[2 + match]);
    return 0;
  }
  std::printf("%s: NOT TRUSTED: the signature is intact, but its KeyInfo names a key that none of the "
              "trusted files holds\n",
              path);
  return 1;
}
