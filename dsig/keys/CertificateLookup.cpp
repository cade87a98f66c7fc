// Certificates for key resolution: decoding the base64 certificates a document carries,
// reading the last certificate of an X509PKIPathv1 token, and finding certificates in the
// certificate store by issuer and serial, subject name or subject key identifier.
#include "crypto/Asn1Xml.h"
#include "crypto/BrantelX509.h"
#include "crypto/CertRecord.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "crypto/DistinguishedName.h"
#include "crypto/StringHashSet.h"
#include "crypto/SystemCerts.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/ExtPtrArray.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace {

// Base64 DER of a certificate into out; false when the certificate gives no DER.
bool encodeCertBase64(BrantelX509& cert, StringBuffer& out) {
  DataBuffer der;
  cert.getCertDer(der);
  if (der.isEmpty()) return false;
  return der.encodeDB("base64", out);
}

BrantelX509* certOfRecord(CertRecord* record) { return record ? record->getX509Ptr() : nullptr; }

BrantelX509* findBySubjectName(SystemCerts& store, const char* dn, LogBase& log) {
  XString tagFree;
  tagFree.appendUtf8(dn);
  DistinguishedName::removeDnTags(tagFree);
  return store.findBySubjectDN_x509(tagFree.getUtf8(), dn, true, log);
}

// Cleans the text in the caller's buffer (signing software on Windows leaves "&#13;"
// character references at its line ends), decodes and parses it. On success the
// certificate is in holder and recorded in the set under the two keys that X509IssuerSerial
// and X509SubjectName references are later checked against.
bool decodeCertText(StringBuffer& text, StringHashSet& seen, BrantelX509Holder& holder, LogBase& log) {
  if (text.containsSubstring("&#13;")) text.replaceAllOccurances("&#13;", "");
  if (text.containsSubstring("&#xD;")) text.replaceAllOccurances("&#xD;", "");

  DataBuffer der;
  if (!ContentCoding::decodeBase64ToDb(text.getString(), text.getSize(), der)) {
    log.LogError("Failed to decode base64 cert.");
    return false;
  }
  if (!holder.loadX509Der(der, log)) {
    log.LogError("Failed to parse X.509 certificate.");
    return false;
  }
  BrantelX509* cert = holder.getX509Ptr();

  StringBuffer issuerSerialKey;
  cert->get_IssuerCN(issuerSerialKey, log);
  issuerSerialKey.appendChar(':');
  cert->get_SerialNumber(issuerSerialKey);
  seen.add(issuerSerialKey.getString());

  StringBuffer subjectDn;
  cert->getDN(true, true, subjectDn, log, 0);
  StringBuffer subjectKey;
  DistinguishedName::toBtCanonHashKey(subjectDn.getString(), subjectKey, log);
  seen.add(subjectKey.getString());
  return true;
}

}  // namespace

ClsPublicKey* ClsXmlDSig::publicKeyFromX509(BrantelX509* cert, LogBase& log) {
  LogContextExitor ctx(log, "publicKeyFromX509");
  DataBuffer spki;
  if (!cert || !cert->get_PublicKey(spki, log)) {
    log.LogError("Failed to get public key from X.509 certificate.");
    return nullptr;
  }
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  if (!key) return nullptr;
  if (!key->loadAnyDer(spki, log)) {
    log.LogError("Failed to parse public key DER");
    noteRefusedKey(*key);
    return nullptr;
  }
  DataBuffer certDer;
  if (cert->getCertDer(certDer)) key->setCertificateDer(certDer);
  log.LogInfo("Loaded public key from X.509 certificate in KeyInfo.");
  return key.release();
}

ClsPublicKey* ClsXmlDSig::publicKeyFromCertBase64(StringBuffer& text, StringHashSet& set, LogBase& log) {
  LogContextExitor ctx(log, "publicKeyFromCertBase64");
  BrantelX509Holder holder;
  if (!decodeCertText(text, set, holder, log)) return nullptr;
  return publicKeyFromX509(holder.getX509Ptr(), log);
}

bool ClsXmlDSig::processCertBase64(StringBuffer& text, StringHashSet& set, LogBase& log) {
  LogContextExitor ctx(log, "processCertBase64");
  BrantelX509Holder holder;
  return decodeCertText(text, set, holder, log);
}

ClsPublicKey* ClsXmlDSig::getPublicKeyByIssuerNameAndSerial(const char* issuerCN, const char* serialHex, LogBase& log) {
  LogContextExitor ctx(log, "getPublicKeyByIssuerNameAndSerial");
  SystemCerts* store = systemCerts();
  if (!store) return nullptr;
  BrantelX509* cert = store->findX509(serialHex, issuerCN, nullptr, log);
  return cert ? publicKeyFromX509(cert, log) : nullptr;
}

bool ClsXmlDSig::getCertByIssuerNameAndSerial(const char* issuerCN, const char* serialHex, StringBuffer& out,
                                              LogBase& log) {
  LogContextExitor ctx(log, "getCertByIssuerNameAndSerial");
  out.clear();
  SystemCerts* store = systemCerts();
  if (!store) return false;
  BrantelX509* cert = store->findX509(serialHex, issuerCN, nullptr, log);
  return cert && encodeCertBase64(*cert, out);
}

ClsPublicKey* ClsXmlDSig::getPublicKeyBySubjectName(const char* dn, LogBase& log) {
  LogContextExitor ctx(log, "getPublicKeyBySubjectName");
  SystemCerts* store = systemCerts();
  if (!store) return nullptr;
  BrantelX509* cert = findBySubjectName(*store, dn, log);
  return cert ? publicKeyFromX509(cert, log) : nullptr;
}

bool ClsXmlDSig::getCertBySubjectName(const char* dn, StringBuffer& out, LogBase& log) {
  LogContextExitor ctx(log, "getCertSubjectName");
  out.clear();
  SystemCerts* store = systemCerts();
  if (!store) return false;
  BrantelX509* cert = findBySubjectName(*store, dn, log);
  return cert && encodeCertBase64(*cert, out);
}

ClsPublicKey* ClsXmlDSig::getPublicKeyBySKI(const char* ski, LogBase& log) {
  LogContextExitor ctx(log, "getPublicKeyBySKI");
  SystemCerts* store = systemCerts();
  if (!store) return nullptr;
  BrantelX509* cert = certOfRecord(store->findBySubjectKeyId(ski, log));
  return cert ? publicKeyFromX509(cert, log) : nullptr;
}

bool ClsXmlDSig::getCertBySKI(const char* ski, StringBuffer& out, LogBase& log) {
  LogContextExitor ctx(log, "getCertBySKI");
  out.clear();
  SystemCerts* store = systemCerts();
  if (!store) return false;
  BrantelX509* cert = certOfRecord(store->findBySubjectKeyId(ski, log));
  return cert && encodeCertBase64(*cert, out);
}

bool ClsXmlDSig::pkiPathV1_to_cert(const StringBuffer& in, StringBuffer& out, LogBase& log) {
  LogContextExitor ctx(log, "pkiPathV1_to_cert");
  out.clear();
  DataBuffer der;
  ContentCoding::decodeBase64ToDb(in.getString(), in.getSize(), der);

  StringBuffer asn1Xml;
  if (!Asn1Xml::derToXml(der, false, true, asn1Xml, nullptr, log)) {
    log.LogError("Invalid binary security token content.");
    return false;
  }
  // The path is a SEQUENCE of certificates, issuer first: the signer's is the last one.
  RcPtr<ClsXml> path(ClsXml::createNewCls());
  if (!path) return false;
  const int numCerts = path->loadXml(asn1Xml, false, log) ? path->get_NumChildren() : 0;
  if (numCerts <= 0) {
    log.LogError("Invalid binary security token content..");
    return false;
  }
  path->getChild2(numCerts - 1);
  log.LogInfo("Getting last cert from X509PKIPathv1...");

  der.clear();
  if (!Asn1Xml::xmlToDer(path.get(), der, log)) return false;
  return der.encodeDB("base64", out);
}

void ClsXmlDSig::reverseSubjectNameDN(const StringBuffer& dn, StringBuffer& out) {
  ExtPtrArraySb parts;
  dn.split(parts, ',', true, true);
  const int n = parts.getSize();
  if (n == 0) {
    out.append(dn);
    return;
  }
  for (int i = n - 1; i >= 0; --i) {
    StringBuffer part(parts.strAt(i));
    part.trim2();
    out.append(part);
    if (i > 0) out.append(", ");
  }
}

bool ClsXmlDSig::UseCertVault(ClsXmlCertVault& vault) {
  OperationFrame frame(*this, "UseCertVault", false);
  SystemCerts* store = systemCerts();
  CertMgr* certMgr = vault.getCertMgr();
  const bool added = store && certMgr && store->addCertVault(certMgr, m_log);
  logSuccessFailure(added);
  return added;
}
