#include "crypto/RsaVerifier.h"

#include <openssl/rsa.h>

#include <cstring>
#include <vector>

#include "crypto/Der.h"
#include "crypto/KeyData.h"
#include "crypto/OsslPtr.h"
#include "crypto/_btHash.h"
#include "support/LogBase.h"

namespace {

// DigestInfo ::= SEQUENCE { SEQUENCE { OID, parameters }, OCTET STRING digest }.
bool buildDigestInfo(int hashId, const uint8_t* hash, size_t hashLen, bool withNullParams, der::Bytes& out) {
  der::Bytes oid;
  if (!der::encodeOid(_btHash::hashAlgToOid(hashId), oid)) return false;
  der::Bytes algId;
  der::appendTlv(algId, der::kOid, oid);
  if (withNullParams) der::appendTlv(algId, der::kNull, nullptr, 0);
  der::Bytes body;
  der::appendTlv(body, der::kSequence, algId);
  der::appendTlv(body, der::kOctetString, hash, hashLen);
  out.clear();
  der::appendTlv(out, der::kSequence, body);
  return true;
}

bool sameBytes(const std::vector<unsigned char>& a, size_t aLen, const uint8_t* b, size_t bLen) {
  return aLen == bLen && std::memcmp(a.data(), b, bLen) == 0;
}

// PKCS#1 v1.5: recover the DigestInfo with the public key and compare it ourselves, so
// that every digest (also MD2 and RIPEMD-128, which OpenSSL cannot encode) is handled alike.
bool verifyPkcs1(EVP_PKEY* key, const std::vector<unsigned char>& sig, int hashId, const uint8_t* hash, size_t hashLen,
                 bool lenient, bool& valid, LogBase& log) {
  der::Bytes expected;
  if (!buildDigestInfo(hashId, hash, hashLen, true, expected)) {
    log.LogError("Unsupported hash algorithm.");
    log.LogDataLong("hashAlg", hashId);
    return false;
  }
  ossl::PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  if (!ctx || EVP_PKEY_verify_recover_init(ctx.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) != 1) {
    ossl::drainErrors(log);
    log.LogError("Failed to set up RSA verification.");
    return false;
  }
  std::vector<unsigned char> recovered(sig.size());
  size_t recoveredLen = recovered.size();
  if (EVP_PKEY_verify_recover(ctx.get(), recovered.data(), &recoveredLen, sig.data(), sig.size()) != 1) {
    // Bad padding or a value beyond the modulus: made with another key or corrupted.
    ossl::clearErrors();
    log.LogInfo("The signature does not decode to PKCS#1 v1.5 padding under this key.");
    return true;
  }
  valid = sameBytes(recovered, recoveredLen, expected.data(), expected.size());
  if (!valid && lenient) {
    der::Bytes noParams;
    buildDigestInfo(hashId, hash, hashLen, false, noParams);
    if (sameBytes(recovered, recoveredLen, noParams.data(), noParams.size())) {
      valid = true;
      log.LogInfo("The DigestInfo omits the NULL algorithm parameters.");
    } else if (sameBytes(recovered, recoveredLen, hash, hashLen)) {
      valid = true;
      log.LogInfo("The signature holds the bare digest without a DigestInfo.");
    }
  }
  return true;
}

bool verifyPss(EVP_PKEY* key, const std::vector<unsigned char>& sig, int hashId, int mgfHashId, int saltLen,
               const uint8_t* hash, size_t hashLen, bool& valid, LogBase& log) {
  ossl::MdPtr md = ossl::fetchDigest(_btHash::hashIdToName(hashId));
  ossl::MdPtr mgfMd = ossl::fetchDigest(_btHash::hashIdToName(mgfHashId));
  if (!md || !mgfMd) {
    log.LogError("PSS padding is not available with this hash algorithm.");
    log.LogDataLong("hashAlg", hashId);
    log.LogDataLong("mgfHashAlg", mgfHashId);
    return false;
  }
  if (hashLen != static_cast<size_t>(EVP_MD_get_size(md.get()))) {
    log.LogInfo("The hash length does not fit the PSS hash algorithm.");
    return true;
  }
  ossl::PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PSS_PADDING) != 1 ||
      EVP_PKEY_CTX_set_signature_md(ctx.get(), md.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_mgf1_md(ctx.get(), mgfMd.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_pss_saltlen(ctx.get(), saltLen > 0 ? saltLen : RSA_PSS_SALTLEN_AUTO) != 1) {
    ossl::drainErrors(log);
    log.LogError("Failed to set up RSA-PSS verification.");
    return false;
  }
  valid = EVP_PKEY_verify(ctx.get(), sig.data(), sig.size(), hash, hashLen) == 1;
  ossl::clearErrors();
  return true;
}

}  // namespace

bool RsaVerifier::verifyHashExt(const void* sig, size_t sigLen, const void* hash, size_t hashLen, int hashId,
                                int padding, int mgfHashId, bool& valid, const RsaKeyData& key, int pssSaltLen,
                                bool lenientDigestInfo, bool& keyMismatch, LogBase& log) {
  LogContextExitor ctx(log, "rsaVerifyHash");
  valid = false;
  keyMismatch = false;
  EVP_PKEY* pkey = key.pkey();
  if (!pkey || !(EVP_PKEY_is_a(pkey, "RSA") || EVP_PKEY_is_a(pkey, "RSA-PSS"))) {
    keyMismatch = true;
    log.LogError("The key is not an RSA key.");
    return false;
  }
  const size_t modulusBytes = key.modulusBytes();
  // A signature is as long as the modulus. Some signers drop leading zero bytes, so a
  // value up to two bytes shorter is left-padded; anything else belongs to another key.
  if (!sig || sigLen == 0 || sigLen > modulusBytes || sigLen + 2 < modulusBytes) {
    keyMismatch = true;
    log.LogInfo("The signature size does not match the RSA modulus size.");
    log.LogDataLong("signatureSize", static_cast<long long>(sigLen));
    log.LogDataLong("modulusSize", static_cast<long long>(modulusBytes));
    return false;
  }
  if (padding != kPkcs1v15 && padding != kPss) {
    log.LogError("Unsupported RSA padding.");
    log.LogDataLong("padding", padding);
    return false;
  }
  if (!hash || hashLen == 0) {
    log.LogInfo("No hash to verify against.");
    return true;
  }
  std::vector<unsigned char> fullSig(modulusBytes - sigLen, 0);
  const unsigned char* sigBytes = static_cast<const unsigned char*>(sig);
  fullSig.insert(fullSig.end(), sigBytes, sigBytes + sigLen);
  const uint8_t* hashBytes = static_cast<const uint8_t*>(hash);
  if (padding == kPkcs1v15)
    return verifyPkcs1(pkey, fullSig, hashId, hashBytes, hashLen, lenientDigestInfo, valid, log);
  return verifyPss(pkey, fullSig, hashId, mgfHashId ? mgfHashId : hashId, pssSaltLen, hashBytes, hashLen, valid, log);
}
