// _btHash: message digests by hash identifier, the integer codes the verifier uses
// everywhere: 1 SHA-1, 2 SHA-384, 3 SHA-512, 4 MD2, 5 MD5, 7 SHA-256, 9 RIPEMD-128,
// 10 RIPEMD-160, 11 SHA-224,
// 12-15 SHA3-224, SHA3-256, SHA3-384, SHA3-512. Identifier 0 (no hash) and any other value are refused.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

class DataBuffer;
class DigestEngine;
class LogBase;
class _btFileDataSource;

class _btHash {
 public:
  // The digest of the bytes, replacing out's contents. False (out empty) for an
  // unknown identifier or when the digest cannot be computed.
  static bool doHash(const void* data, size_t n, int hashId, DataBuffer& out);

  // The digest of everything a file data source yields, read in chunks so that a file
  // of any size is hashed in little memory. Replaces out's contents.
  static bool hashDataSource(_btFileDataSource& source, int hashId, DataBuffer& out, LogBase& log);

  // Reads chunks through `readChunk(buffer, capacity, bytesRead)` until it reports 0
  // bytes; the callback returns false on a read error. Replaces out's contents.
  using ChunkReader = std::function<bool(unsigned char*, size_t, size_t&)>;
  static bool hashChunks(const ChunkReader& readChunk, int hashId, DataBuffer& out, LogBase& log);

  // Hash identifier of a digest algorithm OID in dotted text ("2.16.840.1.101.3.4.2.1"
  // gives 7); 0 when the OID names no supported digest.
  static int oidToHashAlg(const char* oid);
  // Dotted OID of a hash identifier, or null.
  static const char* hashAlgToOid(int hashId);
  // Lower-case name ("sha1", "sha256", "ripemd128", ...); "none" for 0, "" when unknown.
  static const char* hashIdToName(int hashId);
  // Digest length in bytes, 0 when unknown.
  static size_t hashLength(int hashId);
};

// A digest computed piece by piece, for data that arrives in parts.
class _btIncrementalHash {
 public:
  _btIncrementalHash();
  ~_btIncrementalHash();
  _btIncrementalHash(const _btIncrementalHash&) = delete;
  _btIncrementalHash& operator=(const _btIncrementalHash&) = delete;

  // Starts a new digest; false for an unknown identifier (logged).
  bool begin(int hashId, LogBase& log);
  bool update(const void* data, size_t n);
  // Replaces out's contents with the digest; a new begin is needed afterwards.
  bool finish(DataBuffer& out);

 private:
  std::unique_ptr<DigestEngine> m_engine;
};
