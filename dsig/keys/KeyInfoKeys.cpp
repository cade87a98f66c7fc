// Candidate verifying keys of the selected signature: everything its KeyInfo yields, in a
// fixed order of sources, followed by the key the caller set for that signature.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/BrantelX509.h"
#include "crypto/CertRecord.h"
#include "crypto/CertificateHolder.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/DistinguishedName.h"
#include "crypto/StringHashSet.h"
#include "crypto/SystemCerts.h"
#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/keys/KeyInfoIndirect.h"
#include "dsig/keys/KeyInfoSources.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/XString.h"
#include "support/xml/XmlTree.h"

namespace keyinfo {

bool issuerSerialToLookUp(ClsXml& keyInfo, const StringHashSet& seen, StringBuffer& issuerCN, StringBuffer& serialHex,
                          LogBase& log) {
  StringBuffer issuerName;
  StringBuffer serial;
  if (!keyInfo.getChildContentUtf8("*:X509Data|*:X509IssuerSerial|*:X509IssuerName", issuerName, false) ||
      issuerName.isEmpty())
    return false;
  if (!keyInfo.getChildContentUtf8("*:X509Data|*:X509IssuerSerial|*:X509SerialNumber", serial, false) ||
      serial.isEmpty())
    return false;

  // Documents write the serial in decimal; the store and the certificates speak hex.
  log.LogDataSb("sbSerialNumber_dec", serial);
  XString converted;
  converted.setFromSbUtf8(serial);
  converted.reencode("decimal", "hex");
  serialHex.setString(converted.getUtf8Sb());
  log.LogDataSb("sbSerialNumber_hex", serialHex);

  // Certificates are found by the issuer's CN only, not the whole issuer name.
  issuerCN.clear();
  if (!DistinguishedName::getDnPart(issuerName.getString(), "CN", issuerCN, log)) return false;
  issuerCN.trim2();

  StringBuffer seenKey;
  seenKey.append3(issuerCN.getString(), ":", serialHex.getString());
  return !seen.contains(seenKey.getString());
}

bool subjectNameToLookUp(ClsXml& keyInfo, const StringHashSet& seen, StringBuffer& reversedDn, LogBase& log) {
  StringBuffer subject;
  if (!keyInfo.getChildContentUtf8("*:X509Data|*:X509SubjectName", subject, false) || subject.isEmpty()) return false;
  StringBuffer canonKey;
  DistinguishedName::toBtCanonHashKey(subject.getString(), canonKey, log);
  if (seen.contains(canonKey.getString())) return false;
  reversedDn.clear();
  ClsXmlDSig::reverseSubjectNameDN(subject, reversedDn);
  return true;
}

bool readTokenReference(ClsXml& reference, StringBuffer& uri, StringBuffer& valueType, LogBase& log) {
  const bool hasUri = reference.getAttrValue("URI", uri);
  const bool hasValueType = reference.getAttrValue("ValueType", valueType);
  if (hasUri && hasValueType && uri.beginsWith("#") && valueType.containsSubstring("#X509")) return true;
  log.LogError("Unhandled security token reference.");
  log.LogDataSb("uri", uri);
  log.LogDataSb("valueType", valueType);
  return false;
}

ClsXml* findTokenById(ClsXml& root, const StringBuffer& uri, LogBase& log) {
  const xml::XmlTree* tree = root.tree();
  if (!tree) return nullptr;
  const std::string_view id = uri.beginsWith("#") ? uri.view().substr(1) : uri.view();
  const std::vector<uint32_t>& carriers = tree->elementsWithId(id);
  const xml::XmlNode* node = carriers.size() == 1 ? tree->nodeAt(carriers.front()) : nullptr;
  std::string_view tag = node ? tree->tagOf(*node) : std::string_view();
  if (tag.find(':') != std::string_view::npos) tag.remove_prefix(tag.find(':') + 1);
  if (tag != "BinarySecurityToken") {
    log.LogError(("Security token reference: \"" + std::string(id) + "\" identifies " +
                  std::to_string(carriers.size()) + " elements; exactly one, a BinarySecurityToken, must carry it.")
                     .c_str());
    return nullptr;
  }
  return root.handleOnNode(carriers.front());
}

bool tokenCertificateText(ClsXmlDSig& dsig, ClsXml& token, const StringBuffer& valueType, StringBuffer& out,
                          LogBase& log) {
  out.clear();
  token.getContentSb(out);
  if (!valueType.containsSubstring("X509PKIPathv1")) return true;
  StringBuffer lastCert;
  if (!dsig.pkiPathV1_to_cert(out, lastCert, log)) return false;
  out.takeSb(lastCert);
  return true;
}

}  // namespace keyinfo

namespace {

struct KeyValueForm {
  const char* tag;
  bool isRsa;  // RSA goes through the key's public loader, which keeps its own log
  const char* loadedMsg;
  const char* failedMsg;
};

// Fixed order: RSA, DSA, EC (the XML-Signature 1.1 form, then the older one).
constexpr KeyValueForm kKeyValueForms[] = {
    {"RSAKeyValue", true, "Loaded public key from RSA XML in KeyInfo.", "Failed to parse public key RSA XML"},
    {"DSAKeyValue", false, "Loaded public key from DSA XML in KeyInfo.", "Failed to parse public key DSA XML"},
    {"ECKeyValue", false, "Loaded public key from ECDSA XML in KeyInfo.", "Failed to parse public key ECDSA XML"},
    {"ECDSAKeyValue", false, "Loaded public key from ECDSA XML in KeyInfo.", "Failed to parse public key ECDSA XML"},
};

const KeyValueForm* keyValueForm(std::string_view localName) {
  for (const KeyValueForm& form : kKeyValueForms)
    if (localName == form.tag) return &form;
  return nullptr;
}

// One key-value element (RSAKeyValue, ...). False when a key object cannot be made or
// the key value is malformed.
bool appendKeyValue(ClsXmlDSig& dsig, ClsXml& element, const KeyValueForm& form, ExtPtrArrayRc& keys, LogBase& log) {
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  if (!key) return false;
  XString xml;
  element.GetXml(xml);
  const bool loaded = form.isRsa ? key->LoadXml(xml) : key->loadXml(xml.getUtf8Sb(), log);
  if (!loaded) {
    // The RSA loader logs to the key's own log: bring its reason (a refused key) here.
    const std::string why = form.isRsa ? key->m_log.lastErrorLine() : std::string();
    if (!why.empty()) log.LogError(why.c_str());
    log.LogError(form.failedMsg);
    dsig.noteRefusedKey(*key);
    return false;
  }
  log.LogInfo(form.loadedMsg);
  keys.appendRefCounted(key.release());
  return true;
}

// The key values of a KeyValue element. False when a key value is malformed: that ends
// the whole resolution.
bool appendKeyValueContent(ClsXmlDSig& dsig, ClsXml& keyValue, ExtPtrArrayRc& keys, LogBase& log) {
  for (const KeyValueForm& form : kKeyValueForms) {
    const std::string tag = std::string("*:") + form.tag;
    RcPtr<ClsXml> element(keyValue.getChildWithTagUtf8(tag.c_str()));
    if (element && !appendKeyValue(dsig, *element, form, keys, log)) return false;
  }
  return true;
}

bool appendKeyValues(ClsXmlDSig& dsig, ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log) {
  RcPtr<ClsXml> keyValue(keyInfo.getChildWithTagUtf8("*:KeyValue"));
  return !keyValue || appendKeyValueContent(dsig, *keyValue, keys, log);
}

void appendX509DataCerts(ClsXmlDSig& dsig, ClsXml& x509Data, StringHashSet& seen, ExtPtrArrayRc& keys, LogBase& log) {
  const int n = x509Data.numChildrenHavingTagUtf8("*:X509Certificate", log);
  log.LogDataLong("numX509Certificates", n);
  for (int i = 0; i < n; ++i) {
    x509Data.put_I(i);
    StringBuffer certText;
    if (!x509Data.getChildContentUtf8("*:X509Certificate[i]", certText, false) || certText.isEmpty()) continue;
    if (ClsPublicKey* key = dsig.publicKeyFromCertBase64(certText, seen, log)) keys.appendRefCounted(key);
  }
}

// The certificates of every X509Data of the KeyInfo, in document order.
void appendEmbeddedCerts(ClsXmlDSig& dsig, ClsXml& keyInfo, StringHashSet& seen, ExtPtrArrayRc& keys, LogBase& log) {
  LogNull quiet;
  for (int d = 0;; ++d) {
    RcPtr<ClsXml> x509Data(keyInfo.getNthChildWithTagUtf8("*:X509Data", d, quiet));
    if (!x509Data) return;
    appendX509DataCerts(dsig, *x509Data, seen, keys, log);
  }
}

void appendStoreKeyByIdentifier(ClsXmlDSig& dsig, SystemCerts& store, ClsXml& tokenRef, ExtPtrArrayRc& keys,
                                LogBase& log) {
  StringBuffer identifier;
  if (!tokenRef.getChildContentUtf8("*:KeyIdentifier", identifier, false) || identifier.isEmpty()) return;
  StringBuffer valueType;
  tokenRef.getChildAttrValue("*:KeyIdentifier", "ValueType", valueType);
  log.LogDataSb("ValueType", valueType);

  ClsPublicKey* key = nullptr;
  if (valueType.endsWith("#X509v3")) {
    // The identifier carries the whole certificate.
    std::unique_ptr<CertificateHolder> holder = CertificateHolder::createFromBase64(identifier.getString(),
                                                                                    identifier.getSize(), &store, log);
    CertRecord* record = holder ? holder->getCertPtr(log) : nullptr;
    if (BrantelX509* cert = record ? record->getX509Ptr() : nullptr) key = dsig.publicKeyFromX509(cert, log);
  } else {
    CertRecord* record = store.findBySubjectKeyId(identifier.getString(), log);
    if (BrantelX509* cert = record ? record->getX509Ptr() : nullptr) key = dsig.publicKeyFromX509(cert, log);
  }
  if (key) keys.appendRefCounted(key);
}

// SecurityTokenReference/Reference to the one BinarySecurityToken of the document that carries
// the referenced Id. No other token is ever taken in its place: the key would not be the one
// the signer named.
bool appendReferencedTokenKey(ClsXmlDSig& dsig, ClsXml& reference, StringHashSet& seen, ExtPtrArrayRc& keys,
                              LogBase& log) {
  StringBuffer uri;
  StringBuffer valueType;
  if (!keyinfo::readTokenReference(reference, uri, valueType, log)) return false;
  log.LogInfo("Need to locate BinarySecurityToken within XML...");
  log.LogDataSb("URI", uri);
  if (!dsig.m_xmlRoot) return false;

  RcPtr<ClsXml> token(keyinfo::findTokenById(*dsig.m_xmlRoot, uri, log));
  if (!token) return false;
  StringBuffer certText;
  if (!keyinfo::tokenCertificateText(dsig, *token, valueType, certText, log)) return false;
  ClsPublicKey* key = dsig.publicKeyFromCertBase64(certText, seen, log);
  if (!key) {
    log.LogError("Failed to get public key from cert.");
    return false;
  }
  keys.appendRefCounted(key);
  return true;
}

// SecurityTokenReference/KeyIdentifier holding a SHA-1 thumbprint: the key of the document's
// X.509 token whose certificate has that thumbprint.
bool appendThumbprintTokenKey(ClsXmlDSig& dsig, ClsXml& tokenRef, StringHashSet& seen, ExtPtrArrayRc& keys,
                              LogBase& log) {
  RcPtr<ClsXml> identifier(tokenRef.getChildWithTagUtf8("*:KeyIdentifier"));
  if (!identifier) return true;
  log.LogInfo("We have a *:SecurityTokenReference/KeyIdentifier...");
  StringBuffer encodingType;
  StringBuffer valueType;
  StringBuffer identData;
  identifier->getAttrValue("EncodingType", encodingType);
  identifier->getAttrValue("ValueType", valueType);
  identifier->getContentSb(identData);
  if (!valueType.containsSubstring("ThumbprintSHA1")) return true;

  log.LogInfo("Need to find the cert from the binary security token with a given SHA1 thumbprint...");
  log.LogDataSb("sbKeyIdentData", identData);
  log.LogInfo("Need to locate BinarySecurityToken within XML...");
  if (!dsig.m_xmlRoot) return false;
  // The X.509 token whose certificate has that thumbprint; no other token is taken instead.
  identData.removeCharOccurances(' ');
  identData.removeCharOccurances('\n');
  identData.removeCharOccurances('\r');
  identData.removeCharOccurances('\t');
  StringBuffer certText;
  bool found = false;
  for (RcPtr<ClsXml> token(
           dsig.m_xmlRoot->searchForAttribute(nullptr, "*:BinarySecurityToken", "*:ValueType", false, "*#X509v3"));
       token && !found; token.reset(dsig.m_xmlRoot->searchForAttribute(token.get(), "*:BinarySecurityToken",
                                                                       "*:ValueType", false, "*#X509v3"))) {
    certText.clear();
    token->getContentSb(certText);
    DataBuffer der;
    ContentCoding::decodeBase64ToDb(certText.getString(), certText.getSize(), der);
    DataBuffer sha1;
    _btHash::doHash(der.getData2(), der.getSize(), 1, sha1);
    StringBuffer sha1Base64;
    sha1.encodeDB("base64", sha1Base64);
    found = sha1Base64.equals(identData);
  }
  if (!found) {
    log.LogError("No X.509 BinarySecurityToken of the document has the SHA-1 thumbprint the KeyIdentifier names.");
    return false;
  }

  ClsPublicKey* key = dsig.publicKeyFromCertBase64(certText, seen, log);
  if (!key) {
    log.LogError("Failed to get public key from cert.");
    return false;
  }
  log.LogInfo("Got public key from base64 cert.");
  keys.appendRefCounted(key);
  return true;
}

bool appendSecurityTokenKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, StringHashSet& seen, ExtPtrArrayRc& keys,
                             LogBase& log) {
  RcPtr<ClsXml> tokenRef(keyInfo.getChildWithTagUtf8("*:SecurityTokenReference"));
  if (!tokenRef) return true;
  if (log.m_verboseLogging) log.LogInfo("Check for and handle SecurityTokenReference cases..");

  if (SystemCerts* store = dsig.systemCerts()) appendStoreKeyByIdentifier(dsig, *store, *tokenRef, keys, log);

  RcPtr<ClsXml> reference(tokenRef->getChildWithTagUtf8("*:Reference"));
  if (reference) {
    if (log.m_verboseLogging) log.LogInfo("We have a *:Reference...");
    if (!appendReferencedTokenKey(dsig, *reference, seen, keys, log)) return false;
  }
  return appendThumbprintTokenKey(dsig, *tokenRef, seen, keys, log);
}

// Every key the KeyInfo's own content yields (not following references). False when a
// key value is malformed or a security token reference cannot be resolved.
bool appendDirectKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, StringHashSet& seen, ExtPtrArrayRc& keys, LogBase& log) {
  // Every key is labelled with the KeyInfo source it came from (the signer record reports it).
  int labelled = keys.getSize();
  auto label = [&keys, &labelled](const char* origin) {
    for (; labelled < keys.getSize(); ++labelled)
      if (auto* key = static_cast<ClsPublicKey*>(keys.elementAt(labelled))) key->setOrigin(origin);
  };

  const bool keyValuesRead = appendKeyValues(dsig, keyInfo, keys, log);
  label("KeyValue");
  if (!keyValuesRead) return false;
  keyinfo::appendDerEncodedKeys(dsig, keyInfo, keys, log);
  label("KeyValue");
  appendEmbeddedCerts(dsig, keyInfo, seen, keys, log);
  label("X509Certificate");

  StringBuffer issuerCN;
  StringBuffer serialHex;
  if (keyinfo::issuerSerialToLookUp(keyInfo, seen, issuerCN, serialHex, log)) {
    if (ClsPublicKey* key = dsig.getPublicKeyByIssuerNameAndSerial(issuerCN.getString(), serialHex.getString(), log))
      keys.appendRefCounted(key);
  }
  label("X509IssuerSerial");

  StringBuffer subjectDn;
  if (keyinfo::subjectNameToLookUp(keyInfo, seen, subjectDn, log)) {
    if (ClsPublicKey* key = dsig.getPublicKeyBySubjectName(subjectDn.getString(), log)) keys.appendRefCounted(key);
  }
  label("X509SubjectName");

  StringBuffer ski;
  if (keyInfo.getChildContentUtf8("*:X509Data|*:X509SKI", ski, false) && !ski.isEmpty()) {
    if (ClsPublicKey* key = dsig.getPublicKeyBySKI(ski.getString(), log)) keys.appendRefCounted(key);
  }
  label("X509SKI");
  keyinfo::appendX509DigestKeys(dsig, keyInfo, keys, log);
  label("X509Digest");

  const bool tokensRead = appendSecurityTokenKeys(dsig, keyInfo, seen, keys, log);
  label("SecurityToken");
  return tokensRead;
}

// The keys of an element a KeyInfoReference or RetrievalMethod names. Its own
// references are not followed, so references cannot chain or loop.
void appendRetrievedKeys(ClsXmlDSig& dsig, ClsXml& target, StringHashSet& seen, ExtPtrArrayRc& keys, LogBase& log) {
  const std::string_view name = target.localNameView();
  if (name == "KeyInfo") {
    appendDirectKeys(dsig, target, seen, keys, log);
  } else if (name == "KeyValue") {
    appendKeyValueContent(dsig, target, keys, log);
  } else if (name == "X509Data") {
    appendX509DataCerts(dsig, target, seen, keys, log);
  } else if (const KeyValueForm* form = keyValueForm(name)) {
    appendKeyValue(dsig, target, *form, keys, log);
  } else {
    log.LogError("The referenced element holds no key.");
    log.LogDataStr("element", std::string(name).c_str());
  }
}

// Whether a RetrievalMethod Type names the kind of element found ("...#X509Data" for an
// X509Data element). Without a Type the element itself says what it is.
bool retrievalTypeFits(const StringBuffer& type, std::string_view localName) {
  if (type.isEmpty()) return true;
  static const char* const kNamespaces[] = {"http://www.w3.org/2000/09/xmldsig#", "http://www.w3.org/2009/xmldsig11#"};
  for (const char* ns : kNamespaces)
    if (type.view() == std::string(ns) + std::string(localName)) return true;
  return false;
}

// KeyInfoReference (to a KeyInfo) and RetrievalMethod (to KeyInfo content) within the
// document. Nothing is fetched from elsewhere, and a RetrievalMethod with transforms is
// not followed.
void appendReferencedKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, StringHashSet& seen, ExtPtrArrayRc& keys, LogBase& log) {
  if (!dsig.m_xmlRoot) return;
  LogNull quiet;
  StringBuffer uri, type;
  for (int i = 0;; ++i) {
    RcPtr<ClsXml> reference(keyInfo.getNthChildWithTagUtf8("*:KeyInfoReference", i, quiet));
    if (!reference) break;
    uri.clear();
    reference->getAttrValue("URI", uri);
    RcPtr<ClsXml> target(keyinfo::sameDocumentElement(*dsig.m_xmlRoot, uri.getString()));
    if (!target || target->localNameView() != "KeyInfo") {
      log.LogError("KeyInfoReference does not name a KeyInfo of this document.");
      log.LogDataSb("uri", uri);
      continue;
    }
    appendRetrievedKeys(dsig, *target, seen, keys, log);
  }
  for (int i = 0;; ++i) {
    RcPtr<ClsXml> method(keyInfo.getNthChildWithTagUtf8("*:RetrievalMethod", i, quiet));
    if (!method) break;
    uri.clear();
    type.clear();
    method->getAttrValue("URI", uri);
    method->getAttrValue("Type", type);
    RcPtr<ClsXml> transforms(method->getChildWithTagUtf8("*:Transforms"));
    RcPtr<ClsXml> target(transforms ? nullptr : keyinfo::sameDocumentElement(*dsig.m_xmlRoot, uri.getString()));
    if (!target || !retrievalTypeFits(type, target->localNameView())) {
      log.LogError(
          "Unsupported RetrievalMethod: only an untransformed reference to key content of this document is followed.");
      log.LogDataSb("uri", uri);
      log.LogDataSb("type", type);
      continue;
    }
    appendRetrievedKeys(dsig, *target, seen, keys, log);
  }
}

}  // namespace

ClsXml* ClsXmlDSig::getKeyInfo(LogBase& log) {
  LogContextExitor ctx(log, "getKeyInfo");
  log.LogDataLong("numSignatures", m_signatures.getSize());
  log.LogDataLong("selector", m_selector);
  ClsXml* signature = static_cast<ClsXml*>(m_signatures.elementAt(m_selector));
  if (!signature) return nullptr;
  ClsXml* keyInfo = signature->getChildWithTagUtf8("*:KeyInfo");
  if (!keyInfo) log.LogError("No KeyInfo child.");
  return keyInfo;
}

ClsXml* ClsXmlDSig::GetKeyInfo() {
  OperationFrame frame(*this, "GetKeyInfo", true);
  // The caller may keep the handle after the document is reloaded or the verifier is gone,
  // so it must not read the verifier's text.
  RcPtr<ClsXml> keyInfo(getKeyInfo(m_log));
  return keyInfo ? keyInfo->handleOwningText() : nullptr;
}

bool ClsXmlDSig::publicKeyFromKeyInfo(ClsXml* keyInfo, ExtPtrArrayRc& keys, LogBase& log) {
  LogContextExitor ctx(log, "publicKeyFromKeyInfo");
  if (!keyInfo) return false;
  StringHashSet seen(keyinfo::kSeenCertsCapacity);
  if (!appendDirectKeys(*this, *keyInfo, seen, keys, log)) return false;
  appendReferencedKeys(*this, *keyInfo, seen, keys, log);
  return true;
}

void ClsXmlDSig::appendNamedKeys(ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log) {
  if (m_keyNames.empty()) return;
  LogNull quiet;
  StringBuffer name;
  for (int i = 0;; ++i) {
    RcPtr<ClsXml> keyName(keyInfo.getNthChildWithTagUtf8("*:KeyName", i, quiet));
    if (!keyName) return;
    name.clear();
    keyName->getContentSb(name);
    name.trim2();
    for (size_t k = 0; k < m_keyNames.size(); ++k) {
      if (m_keyNames[k] != name.view()) continue;
      RefCountedObject* key = m_namedKeys.elementAt(static_cast<int>(k));
      if (!key) continue;
      key->incRefCount();
      keys.appendRefCounted(key);
      log.LogDataSb("keyFromKeyName", name);
    }
  }
}

bool ClsXmlDSig::getPublicKey(bool bKeyInfoOnly, ExtPtrArrayRc& keys, LogBase& log) {
  LogContextExitor ctx(log, "getXmlDsigPublicKey");
  if (log.m_verboseLogging) log.LogDataLong("bKeyInfoOnly", bKeyInfoOnly ? 1 : 0);

  if (ClsXml* keyInfo = getKeyInfo(log)) {
    publicKeyFromKeyInfo(keyInfo, keys, log);
    if (!bKeyInfoOnly) appendNamedKeys(*keyInfo, keys, log);
    if (log.m_verboseLogging) log.LogDataLong("numPublicKeys", keys.getSize());
    keyInfo->decRefCount();
  }

  // The caller's key for this signature is tried after every key KeyInfo gave.
  if (!bKeyInfoOnly) {
    if (RefCountedObject* callerKey = m_publicKeys.elementAt(m_selector)) {
      static_cast<ClsPublicKey*>(callerKey)->setOrigin("CallerKey");
      callerKey->incRefCount();
      keys.appendRefCounted(callerKey);
    }
  }
  return keys.getSize() > 0;
}
