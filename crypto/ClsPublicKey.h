// ClsPublicKey: a public key object of the library (RSA, DSA or EC). Loads what a user
// has: a PEM or DER public key, an X.509 certificate (PEM or DER) whose key it takes,
// or the XML key-value forms of XML-Signature. Reference counted: createNewCls gives
// one reference to the caller, decRefCount releases it.
#pragma once

#include <string>

#include "crypto/_btPublicKey.h"
#include "support/CritSec.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"

class DataBuffer;
class StringBuffer;
class XString;

class ClsPublicKey : public RefCountedObject, public BrantelCritSec {
 public:
  // A new empty key (one reference), or null when out of memory.
  static ClsPublicKey* createNewCls();

  // ---- public operations (lock, own log) ----
  // An RSAKeyValue, DSAKeyValue or ECKeyValue element, any namespace prefix.
  bool LoadXml(const XString& xml);
  // A file holding a PEM or DER public key or X.509 certificate.
  bool LoadFromFile(const XString& path);
  // PEM text, or base64 of the DER of a public key or certificate.
  bool LoadFromString(const XString& text);
  // "rsa", "dsa", "ec", or "" when no key is loaded.
  void get_KeyType(XString& out);
  int get_NumBits();
  // The log of the most recent public call, as indented text.
  std::string lastErrorText() const { return m_log.renderText(); }

  // ---- internal operations (the caller's log) ----
  bool loadXml(const StringBuffer& xml, LogBase& log);
  // SubjectPublicKeyInfo DER, PKCS#1 RSAPublicKey DER, or a DER certificate.
  bool loadAnyDer(const DataBuffer& der, LogBase& log);
  // PEM or DER bytes of a public key or certificate.
  bool loadAnyBytes(const DataBuffer& bytes, LogBase& log);
  // SubjectPublicKeyInfo DER (PKCS#1 RSAPublicKey for an RSA key when pkcs1 is set).
  bool getPublicKeyDer(bool pkcs1, DataBuffer& out, LogBase& log);

  // Where a verifier found the key (a short label such as "KeyValue"; "" when unknown), and
  // the DER of the certificate the key was taken from (empty when there is none). A key
  // loaded from a certificate remembers that certificate.
  const std::string& origin() const { return m_origin; }
  void setOrigin(const std::string& origin) { m_origin = origin; }
  const DataBuffer& certificateDer() const { return m_certDer; }
  void setCertificateDer(const DataBuffer& der) {
    m_certDer.clear();
    m_certDer.append(der);
  }

  _btPublicKey& getPubKey() { return m_key; }
  const _btPublicKey& getPubKey() const { return m_key; }

  _btLogger m_log;

 protected:
  ClsPublicKey() = default;
  ~ClsPublicKey() override = default;

 private:
  _btPublicKey m_key;
  std::string m_origin;
  DataBuffer m_certDer;
};
