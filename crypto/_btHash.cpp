#include "crypto/_btHash.h"

#include <cstring>
#include <vector>

#include "crypto/DigestEngine.h"
#include "crypto/Md2.h"
#include "crypto/OsslPtr.h"
#include "crypto/Ripemd.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

struct HashInfo {
  int id;
  const char* name;
  const char* opensslName;  // null: only our own implementation exists
  const char* oid;
  size_t length;
};

const HashInfo kHashes[] = {
    {1, "sha1", "SHA1", "1.3.14.3.2.26", 20},
    {2, "sha384", "SHA384", "2.16.840.1.101.3.4.2.2", 48},
    {3, "sha512", "SHA512", "2.16.840.1.101.3.4.2.3", 64},
    {4, "md2", nullptr, "1.2.840.113549.2.2", 16},
    {5, "md5", "MD5", "1.2.840.113549.2.5", 16},
    {7, "sha256", "SHA256", "2.16.840.1.101.3.4.2.1", 32},
    {9, "ripemd128", nullptr, "1.3.36.3.2.2", 16},
    {10, "ripemd160", "RIPEMD160", "1.3.36.3.2.1", 20},
    {11, "sha224", "SHA224", "2.16.840.1.101.3.4.2.4", 28},
    {12, "sha3-224", "SHA3-224", "2.16.840.1.101.3.4.2.7", 28},
    {13, "sha3-256", "SHA3-256", "2.16.840.1.101.3.4.2.8", 32},
    {14, "sha3-384", "SHA3-384", "2.16.840.1.101.3.4.2.9", 48},
    {15, "sha3-512", "SHA3-512", "2.16.840.1.101.3.4.2.10", 64},
};

const HashInfo* findHash(int hashId) {
  for (const HashInfo& h : kHashes)
    if (h.id == hashId) return &h;
  return nullptr;
}

class EvpDigestEngine : public DigestEngine {
 public:
  EvpDigestEngine(ossl::MdPtr md, ossl::MdCtxPtr ctx) : m_md(std::move(md)), m_ctx(std::move(ctx)) {}
  bool update(const void* data, size_t n) override {
    if (n == 0) return true;
    if (EVP_DigestUpdate(m_ctx.get(), data, n) == 1) return true;
    ossl::clearErrors();
    return false;
  }
  bool finish(unsigned char* out) override {
    unsigned int len = 0;
    if (EVP_DigestFinal_ex(m_ctx.get(), out, &len) == 1) return true;
    ossl::clearErrors();
    return false;
  }
  size_t outputSize() const override { return static_cast<size_t>(EVP_MD_get_size(m_md.get())); }
  size_t blockSize() const override { return static_cast<size_t>(EVP_MD_get_block_size(m_md.get())); }

 private:
  ossl::MdPtr m_md;
  ossl::MdCtxPtr m_ctx;
};

std::unique_ptr<DigestEngine> makeEvpEngine(const char* name) {
  ossl::MdPtr md = ossl::fetchDigest(name);
  if (!md) return nullptr;
  ossl::MdCtxPtr ctx(EVP_MD_CTX_new());
  if (!ctx || EVP_DigestInit_ex2(ctx.get(), md.get(), nullptr) != 1) {
    ossl::clearErrors();
    return nullptr;
  }
  return std::make_unique<EvpDigestEngine>(std::move(md), std::move(ctx));
}

}  // namespace

std::unique_ptr<DigestEngine> makeDigestEngine(int hashId) {
  const HashInfo* info = findHash(hashId);
  if (!info) return nullptr;
  if (hashId == 4) return std::make_unique<Md2Engine>();
  if (hashId == 9) return std::make_unique<RipemdEngine>(128);
  std::unique_ptr<DigestEngine> engine = makeEvpEngine(info->opensslName);
  // RIPEMD-160 is absent from some OpenSSL builds' default provider.
  if (!engine && hashId == 10) engine = std::make_unique<RipemdEngine>(160);
  return engine;
}

bool _btHash::doHash(const void* data, size_t n, int hashId, DataBuffer& out) {
  out.clear();
  std::unique_ptr<DigestEngine> engine = makeDigestEngine(hashId);
  if (!engine) return false;
  std::vector<unsigned char> digest(engine->outputSize());
  if (!engine->update(data, n) || !engine->finish(digest.data())) return false;
  return out.append(digest.data(), digest.size());
}

bool _btHash::hashChunks(const ChunkReader& readChunk, int hashId, DataBuffer& out, LogBase& log) {
  out.clear();
  _btIncrementalHash hasher;
  if (!hasher.begin(hashId, log)) return false;
  std::vector<unsigned char> chunk(64 * 1024);
  for (;;) {
    size_t got = 0;
    if (!readChunk(chunk.data(), chunk.size(), got)) {
      log.LogError("Failed to read data to hash.");
      return false;
    }
    if (got == 0) break;
    if (!hasher.update(chunk.data(), got)) {
      log.LogError("Failed to hash data.");
      return false;
    }
  }
  return hasher.finish(out);
}

int _btHash::oidToHashAlg(const char* oid) {
  if (!oid) return 0;
  for (const HashInfo& h : kHashes)
    if (std::strcmp(h.oid, oid) == 0) return h.id;
  return 0;
}

const char* _btHash::hashAlgToOid(int hashId) {
  const HashInfo* info = findHash(hashId);
  return info ? info->oid : nullptr;
}

const char* _btHash::hashIdToName(int hashId) {
  if (hashId == 0) return "none";
  const HashInfo* info = findHash(hashId);
  return info ? info->name : "";
}

size_t _btHash::hashLength(int hashId) {
  const HashInfo* info = findHash(hashId);
  return info ? info->length : 0;
}

_btIncrementalHash::_btIncrementalHash() = default;
_btIncrementalHash::~_btIncrementalHash() = default;

bool _btIncrementalHash::begin(int hashId, LogBase& log) {
  m_engine = makeDigestEngine(hashId);
  if (m_engine) return true;
  log.LogError("Unsupported hash algorithm.");
  log.LogDataLong("hashAlg", hashId);
  return false;
}

bool _btIncrementalHash::update(const void* data, size_t n) { return m_engine && m_engine->update(data, n); }

bool _btIncrementalHash::finish(DataBuffer& out) {
  out.clear();
  if (!m_engine) return false;
  std::vector<unsigned char> digest(m_engine->outputSize());
  const bool ok = m_engine->finish(digest.data());
  m_engine.reset();
  return ok && out.append(digest.data(), digest.size());
}
