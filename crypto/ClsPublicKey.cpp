#include "crypto/ClsPublicKey.h"

#include <new>

#include "crypto/KeyValueXml.h"
#include "crypto/OsslPtr.h"
#include "crypto/PemFile.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

ClsPublicKey* ClsPublicKey::createNewCls() { return new (std::nothrow) ClsPublicKey(); }

bool ClsPublicKey::LoadXml(const XString& xml) {
  CritSecExitor lock(*this);
  LogContextExitor ctx(m_log, "LoadXml");
  const bool ok = loadXml(xml.getUtf8Sb(), m_log);
  m_log.logResult(ok);
  return ok;
}

bool ClsPublicKey::LoadFromFile(const XString& path) {
  CritSecExitor lock(*this);
  LogContextExitor ctx(m_log, "LoadFromFile");
  m_log.LogDataX("path", path);
  DataBuffer bytes;
  const bool ok = pem::readFile(path.getUtf8(), bytes, m_log) && loadAnyBytes(bytes, m_log);
  m_log.logResult(ok);
  return ok;
}

bool ClsPublicKey::LoadFromString(const XString& text) {
  CritSecExitor lock(*this);
  LogContextExitor ctx(m_log, "LoadFromString");
  DataBuffer bytes;
  const StringBuffer& sb = text.getUtf8Sb();
  bool ok;
  if (sb.containsSubstring("-----BEGIN")) {
    bytes.append(sb);
    ok = loadAnyBytes(bytes, m_log);
  } else if (ContentCoding::decodeBase64ToDb(sb.getString(), sb.getSize(), bytes) && !bytes.isEmpty()) {
    ok = loadAnyDer(bytes, m_log);
  } else {
    m_log.LogError("The text is neither PEM nor base64.");
    ok = false;
  }
  m_log.logResult(ok);
  return ok;
}

void ClsPublicKey::get_KeyType(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_key.keyTypeName());
}

int ClsPublicKey::get_NumBits() {
  CritSecExitor lock(*this);
  return m_key.numBits();
}

bool ClsPublicKey::loadXml(const StringBuffer& xml, LogBase& log) {
  LogContextExitor ctx(log, "loadPublicKeyXml");
  return keyxml::loadKeyValue(xml.view(), m_key, log);
}

bool ClsPublicKey::loadAnyDer(const DataBuffer& der, LogBase& log) {
  LogContextExitor ctx(log, "loadAnyDer");
  if (!m_key.loadAnyDer(der, log)) return false;
  m_certDer.clear();
  const unsigned char* p = der.getData2();
  ossl::X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(der.getSize())));
  if (cert && p == der.getData2() + der.getSize()) m_certDer.append(der);
  ossl::clearErrors();
  return true;
}

bool ClsPublicKey::loadAnyBytes(const DataBuffer& bytes, LogBase& log) {
  if (!pem::looksLikePem(bytes)) return loadAnyDer(bytes, log);
  std::vector<pem::Block> blocks;
  if (!pem::parse(bytes, blocks, log)) return false;
  // The first block that holds a public key or certificate gives the key.
  for (const pem::Block& block : blocks) {
    if (block.label == "PUBLIC KEY" || block.label == "RSA PUBLIC KEY" || block.label == "CERTIFICATE" ||
        block.label == "X509 CERTIFICATE" || block.label == "TRUSTED CERTIFICATE") {
      DataBuffer der(block.der.data(), block.der.size());
      if (block.label == "TRUSTED CERTIFICATE") pem::stripTrustedCertAux(der);
      return loadAnyDer(der, log);
    }
  }
  log.LogError("The PEM holds no public key or certificate.");
  return false;
}

bool ClsPublicKey::getPublicKeyDer(bool pkcs1, DataBuffer& out, LogBase& log) {
  CritSecExitor lock(*this);
  return m_key.toDer(pkcs1, out, log);
}
