#include "crypto/CertMgr.h"

#include <string>

#include "crypto/PemFile.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

bool certificatesFromBytes(const DataBuffer& bytes, std::vector<DataBuffer>& out, LogBase& log) {
  const size_t before = out.size();
  if (pem::looksLikePem(bytes)) {
    std::vector<pem::Block> blocks;
    if (!pem::parse(bytes, blocks, log)) return false;
    for (const pem::Block& b : blocks) {
      if (b.label != "CERTIFICATE" && b.label != "X509 CERTIFICATE" && b.label != "TRUSTED CERTIFICATE") continue;
      DataBuffer der(b.der.data(), b.der.size());
      if (b.label == "TRUSTED CERTIFICATE") pem::stripTrustedCertAux(der);
      out.push_back(std::move(der));
    }
  } else if (!bytes.isEmpty()) {
    out.push_back(bytes);
  }
  if (out.size() == before) {
    log.LogError("No certificate found.");
    return false;
  }
  return true;
}

bool certificatesFromText(const StringBuffer& text, std::vector<DataBuffer>& out, LogBase& log) {
  if (text.containsSubstring("-----BEGIN")) {
    DataBuffer bytes;
    bytes.append(text);
    return certificatesFromBytes(bytes, out, log);
  }
  StringBuffer clean(text);
  clean.replaceAllOccurances("&#13;", "");
  clean.replaceAllOccurances("&#xD;", "");
  clean.replaceAllOccurances("&#xd;", "");
  clean.replaceAllOccurances("&#10;", "");
  clean.replaceAllOccurances("&#xA;", "");
  DataBuffer der;
  if (!ContentCoding::decodeBase64ToDb(clean.getString(), clean.getSize(), der) || der.isEmpty()) {
    log.LogError("The certificate text is neither PEM nor base64.");
    return false;
  }
  out.push_back(std::move(der));
  return true;
}

bool CertMgr::addCertDer(const DataBuffer& der, LogBase& log) {
  bool added = false;
  return m_certs.addDer(der, added, log);
}

int CertMgr::addCertBytes(const DataBuffer& bytes, LogBase& log) {
  std::vector<DataBuffer> ders;
  if (!certificatesFromBytes(bytes, ders, log)) return 0;
  int count = 0;
  for (const DataBuffer& der : ders)
    if (addCertDer(der, log)) ++count;
  return count;
}

bool CertMgr::addCertText(const StringBuffer& text, LogBase& log) {
  std::vector<DataBuffer> ders;
  if (!certificatesFromText(text, ders, log)) return false;
  bool any = false;
  for (const DataBuffer& der : ders) any = addCertDer(der, log) || any;
  return any;
}
