// The signing certificate a XAdES signature names in its signed properties
// (SigningCertificate or SigningCertificateV2) must be the certificate whose key verified
// the signature: otherwise the certificate could have been swapped for another one with
// the same key, or the signed properties describe a different signer.
#pragma once

#include <string>
#include <vector>

class ClsXml;
class DataBuffer;

namespace xades {

// True when the signature names no signing certificate, or when one of the certificates
// it names has the signer certificate's digest and, when given, its issuer and serial.
// signerTexts: the base64 texts the document carries the signer certificate in (some
// signers digest that text rather than the DER). False with a reason in error otherwise,
// also when a signing certificate is named but the signer has no certificate (signerDer empty).
bool signingCertificateMatches(ClsXml& signature, const DataBuffer& signerDer,
                               const std::vector<std::string>& signerTexts, std::string& error);

}  // namespace xades
