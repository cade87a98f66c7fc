// _btPublicKey: the material of one public key (RSA, DSA, EC, Ed25519 or Ed448), loaded from DER, from
// key components or from an EC point, with the typed views the verifiers take.
#pragma once

#include <memory>
#include <string>

#include "crypto/EccKey.h"
#include "crypto/EdDsaKey.h"
#include "crypto/KeyData.h"
#include "crypto/OsslPtr.h"

class DataBuffer;
class LogBase;

class _btPublicKey {
 public:
  enum KeyType { kNone = 0, kRsa = 1, kDsa = 2, kEcc = 3, kEdDsa = 4 };

  _btPublicKey();
  ~_btPublicKey();
  _btPublicKey(const _btPublicKey&) = delete;
  _btPublicKey& operator=(const _btPublicKey&) = delete;

  void clear();
  bool isEmpty() const { return keyType() == kNone; }

  // Each loader replaces the current key only on success.
  // SubjectPublicKeyInfo DER, PKCS#1 RSAPublicKey DER, or a DER X.509 certificate (its key).
  bool loadAnyDer(const DataBuffer& der, LogBase& log);
  // RSA from the big-endian modulus and public exponent.
  bool loadRsa(const DataBuffer& modulus, const DataBuffer& exponent, LogBase& log);
  // DSA from the big-endian domain parameters and public value.
  bool loadDsa(const DataBuffer& p, const DataBuffer& q, const DataBuffer& g, const DataBuffer& y, LogBase& log);
  // EC from a curve OID (dotted, with or without "urn:oid:") and an encoded point
  // (uncompressed 04||X||Y or compressed).
  bool loadEcPoint(const char* curveOid, const DataBuffer& point, LogBase& log);
  // EC from a curve OID and the affine coordinates as big-endian integers.
  bool loadEcXY(const char* curveOid, const DataBuffer& x, const DataBuffer& y, LogBase& log);
  // Takes an OpenSSL key of a supported type whose values pass the checks of
  // PublicKeyCheck.h; a refused key is logged with the reason and not taken.
  bool setKey(ossl::PkeyPtr key, LogBase& log);
  // Why the last key offered was refused by those checks ("" when it was taken, or failed
  // for another reason), so that a caller can tell a user.
  const std::string& refusal() const { return m_refusal; }

  KeyType keyType() const;
  // "rsa", "dsa", "ec", "ed25519", "ed448", or "" when empty.
  const char* keyTypeName() const;
  int numBits() const;
  EVP_PKEY* pkey() const;
  // SubjectPublicKeyInfo DER (or, for RSA with pkcs1 set, the PKCS#1 RSAPublicKey DER).
  bool toDer(bool pkcs1, DataBuffer& out, LogBase& log) const;

  // The key material of one kind, or null when the key is of another kind.
  RsaKeyData* getRsaKey() { return m_rsa.get(); }
  DsaKeyData* getDsaKey() { return m_dsa.get(); }
  EccKey* getEccKey() { return m_ecc.get(); }
  EdDsaKey* getEdDsaKey() { return m_ed.get(); }
  const RsaKeyData* getRsaKey() const { return m_rsa.get(); }
  const DsaKeyData* getDsaKey() const { return m_dsa.get(); }
  const EccKey* getEccKey() const { return m_ecc.get(); }
  const EdDsaKey* getEdDsaKey() const { return m_ed.get(); }

 private:
  std::unique_ptr<RsaKeyData> m_rsa;
  std::unique_ptr<DsaKeyData> m_dsa;
  std::unique_ptr<EccKey> m_ecc;
  std::unique_ptr<EdDsaKey> m_ed;
  std::string m_refusal;
};
