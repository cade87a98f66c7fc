#include "dsig/keys/KeyInfoIndirect.h"

#include <cstring>

#include "crypto/CertRecord.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/SystemCerts.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace keyinfo {

void appendDerEncodedKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log) {
  LogNull quiet;
  for (int i = 0;; ++i) {
    RcPtr<ClsXml> element(keyInfo.getNthChildWithTagUtf8("*:DEREncodedKeyValue", i, quiet));
    if (!element) return;
    StringBuffer text;
    element->getContentSb(text);
    DataBuffer der;
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (!key || !ContentCoding::decodeBase64ToDb(text.getString(), text.getSize(), der) || !key->loadAnyDer(der, log)) {
      log.LogError("Failed to load the key of a DEREncodedKeyValue.");
      if (key) dsig.noteRefusedKey(*key);
      continue;
    }
    log.LogInfo("Loaded public key from DEREncodedKeyValue in KeyInfo.");
    keys.appendRefCounted(key.release());
  }
}

void appendX509DigestKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log) {
  SystemCerts* store = dsig.systemCerts();
  if (!store) return;
  LogNull quiet;
  for (int d = 0;; ++d) {
    RcPtr<ClsXml> x509Data(keyInfo.getNthChildWithTagUtf8("*:X509Data", d, quiet));
    if (!x509Data) return;
    for (int i = 0;; ++i) {
      RcPtr<ClsXml> element(x509Data->getNthChildWithTagUtf8("*:X509Digest", i, quiet));
      if (!element) break;
      DSigReference method;  // the digest-method table of references names the algorithm
      element->getAttrValue("Algorithm", method.digestMethod);
      const int hashId = method.getHashAlg();
      StringBuffer text;
      element->getContentSb(text);
      DataBuffer digest;
      if (hashId <= 0 || !ContentCoding::decodeBase64ToDb(text.getString(), text.getSize(), digest)) {
        log.LogError("Unusable X509Digest.");
        log.LogDataSb("algorithm", method.digestMethod);
        continue;
      }
      CertRecord* record = store->findByCertDigest(hashId, digest);
      BrantelX509* cert = record ? record->getX509Ptr() : nullptr;
      if (!cert) continue;
      if (ClsPublicKey* key = dsig.publicKeyFromX509(cert, log)) {
        log.LogInfo("Loaded public key of the certificate an X509Digest names.");
        keys.appendRefCounted(key);
      }
    }
  }
}

ClsXml* sameDocumentElement(ClsXml& root, const char* uri) {
  if (!uri || uri[0] != '#' || uri[1] == '\0') return nullptr;
  const char* id = uri + 1;
  // The search takes a pattern; the exact value is compared here.
  RcPtr<ClsXml> element(root.searchForAttribute(nullptr, "*", "Id", false, id));
  StringBuffer value;
  while (element) {
    value.clear();
    if (element->getAttrValue("Id", value) && std::strcmp(value.getString(), id) == 0) return element.release();
    element.reset(root.searchForAttribute(element.get(), "*", "Id", false, id));
  }
  return nullptr;
}

}  // namespace keyinfo
