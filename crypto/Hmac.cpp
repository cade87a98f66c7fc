#include "crypto/Hmac.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/params.h>

#include <algorithm>
#include <vector>

#include "crypto/DigestEngine.h"
#include "crypto/OsslPtr.h"
#include "crypto/_btHash.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

// OpenSSL's HMAC for the digests it has.
bool evpHmac(const char* digestName, const void* data, size_t dataLen, const void* key, size_t keyLen, DataBuffer& out,
             LogBase& log) {
  ossl::MacPtr mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
  ossl::MacCtxPtr ctx(mac ? EVP_MAC_CTX_new(mac.get()) : nullptr);
  if (!ctx) {
    ossl::drainErrors(log);
    return false;
  }
  OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, const_cast<char*>(digestName), 0),
                         OSSL_PARAM_construct_end()};
  // An empty key is legal in HMAC; OpenSSL wants a non-null pointer for it.
  static const unsigned char kNoKey[1] = {0};
  const unsigned char* keyBytes = keyLen ? static_cast<const unsigned char*>(key) : kNoKey;
  std::vector<unsigned char> mac_out(EVP_MAX_MD_SIZE);
  size_t macLen = 0;
  if (EVP_MAC_init(ctx.get(), keyBytes, keyLen, params) != 1 ||
      EVP_MAC_update(ctx.get(), static_cast<const unsigned char*>(data), dataLen) != 1 ||
      EVP_MAC_final(ctx.get(), mac_out.data(), &macLen, mac_out.size()) != 1) {
    ossl::drainErrors(log);
    return false;
  }
  return out.append(mac_out.data(), macLen);
}

// The RFC 2104 construction over one of our own digest engines:
// H((K ^ opad) || H((K ^ ipad) || data)), K hashed first when longer than a block.
bool constructedHmac(int hashId, const void* data, size_t dataLen, const void* key, size_t keyLen, DataBuffer& out) {
  std::unique_ptr<DigestEngine> inner = makeDigestEngine(hashId);
  std::unique_ptr<DigestEngine> outer = makeDigestEngine(hashId);
  if (!inner || !outer) return false;
  const size_t blockSize = inner->blockSize();
  std::vector<unsigned char> k(blockSize, 0);
  if (keyLen > blockSize) {
    DataBuffer hashedKey;
    if (!_btHash::doHash(key, keyLen, hashId, hashedKey)) return false;
    std::copy(hashedKey.getData2(), hashedKey.getData2() + hashedKey.getSize(), k.begin());
  } else if (keyLen) {
    const unsigned char* kb = static_cast<const unsigned char*>(key);
    std::copy(kb, kb + keyLen, k.begin());
  }
  std::vector<unsigned char> pad(blockSize);
  for (size_t i = 0; i < blockSize; ++i) pad[i] = k[i] ^ 0x36;
  std::vector<unsigned char> innerDigest(inner->outputSize());
  if (!inner->update(pad.data(), blockSize) || !inner->update(data, dataLen) || !inner->finish(innerDigest.data()))
    return false;
  for (size_t i = 0; i < blockSize; ++i) pad[i] = k[i] ^ 0x5c;
  std::vector<unsigned char> result(outer->outputSize());
  if (!outer->update(pad.data(), blockSize) || !outer->update(innerDigest.data(), innerDigest.size()) ||
      !outer->finish(result.data()))
    return false;
  return out.append(result.data(), result.size());
}

const char* opensslDigestName(int hashId) {
  switch (hashId) {
    case 1: return "SHA1";
    case 2: return "SHA384";
    case 3: return "SHA512";
    case 5: return "MD5";
    case 7: return "SHA256";
    case 10: return "RIPEMD160";
    default: return nullptr;  // MD2, RIPEMD-128: our own digests only
  }
}

}  // namespace

bool Hmac::doHMAC(const void* data, size_t dataLen, const void* key, size_t keyLen, int hashId, DataBuffer& out,
                  LogBase& log) {
  out.clear();
  if (_btHash::hashLength(hashId) == 0) {
    log.LogError("Unsupported HMAC hash algorithm.");
    log.LogDataLong("hashAlg", hashId);
    return false;
  }
  static const unsigned char kEmpty[1] = {0};
  if (!data) data = kEmpty;
  const char* name = opensslDigestName(hashId);
  if (name) {
    ossl::MdPtr md = ossl::fetchDigest(name);
    if (md) return evpHmac(name, data, dataLen, key, keyLen, out, log);
  }
  if (constructedHmac(hashId, data, dataLen, key, keyLen, out)) return true;
  out.clear();
  log.LogError("Failed to compute HMAC.");
  return false;
}

bool Hmac::matchesFullOutput(const DataBuffer& computed, const DataBuffer& presented) {
  return !computed.isEmpty() && presented.getSize() == computed.getSize() &&
         CRYPTO_memcmp(computed.getData2(), presented.getData2(), computed.getSize()) == 0;
}
