// ClsXmlDSig: the verifier. Load XML carrying one or more XML-Signature elements,
// select one, verify it (every reference digest and the signature value), read facts
// about it, canonicalize XML on request, and add or check a XAdES encapsulated
// timestamp. Every public operation takes the object's lock, logs under a context named
// after itself, never throws, and explains a failure in the log.
#pragma once

#include <cstdint>

#include "dsig/SystemCertsHolder.h"
#include "dsig/_clsXmlDSigBase.h"
#include "support/DataBuffer.h"
#include "support/ExtPtrArray.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

class BrantelX509;
class ClsBinData;
class ClsHttp;
class ClsJsonObject;
class ClsPublicKey;
class ClsStringArray;
class ClsStringBuilder;
class ClsXml;
class ClsXmlCertVault;
class DSigReference;
class DSigRefExternalData;
class StreamedDigest;
class StringHashSet;
class XmlSigLocate;

class ClsXmlDSig : public _clsXmlDSigBase, public SystemCertsHolder {
 public:
  // Returns null instead of propagating a construction failure.
  static ClsXmlDSig* createNewCls();
  ClsXmlDSig();
  ~ClsXmlDSig() override;

  // ---- properties ----
  int get_Selector() const { return m_selector; }
  void put_Selector(int index);
  int get_NumSignatures();
  int get_NumReferences();
  void get_VerifyOptions(XString& out);
  void put_VerifyOptions(const XString& options);
  void get_ExternalRefDirs(XString& out);
  void put_ExternalRefDirs(const XString& dirs);
  bool get_IgnoreExternalRefs() const { return m_ignoreExternalRefs; }
  void put_IgnoreExternalRefs(bool v) { m_ignoreExternalRefs = v; }
  int get_RefFailReason() const { return m_refFailReason; }
  // RefFailReason of a reference whose algorithm URI (digest method) is not known.
  static constexpr int kRefFailUnknownAlgorithm = 4;
  bool get_WithComments() const { return m_withComments; }
  void put_WithComments(bool v) { m_withComments = v; }

  // ---- public operations ----
  bool LoadSignature(XString& xml);
  bool LoadSignatureSb(ClsStringBuilder& xml);
  bool LoadSignatureBd(ClsBinData& xml);
  // Selects the signature whose Id attribute equals id (first match); false if none.
  bool SelectSignatureById(const XString& id);
  bool VerifySignature(bool verifyReferenceDigests);
  bool VerifyReferenceDigest(int index);
  bool CanonicalizeXml(XString& xml, XString& version, bool withComments, XString& outXml);
  bool CanonicalizeFragment(XString& xml, XString& fragmentId, XString& version, XString& prefixList,
                            bool withComments, XString& outXml);
  bool AddEncapsulatedTimeStamp(ClsJsonObject& options, ClsStringBuilder& sbOut);
  bool HasEncapsulatedTimeStamp();
  void SetHttpObj(ClsHttp* http);
  ClsXml* GetKeyInfo();
  ClsPublicKey* GetPublicKey();
  bool SetPublicKey(ClsPublicKey& key);
  bool SetHmacKey(XString& key, XString& encoding);
  bool GetCerts(ClsStringArray& certs);
  bool UseCertVault(ClsXmlCertVault& vault);
  bool SetRefDataFile(int index, XString& path);
  bool SetRefDataSb(int index, ClsStringBuilder& data, XString& charset);
  bool SetRefDataBd(int index, ClsBinData& data);
  bool ReferenceUri(int index, XString& out);
  bool IsReferenceExternal(int index);

  // ---- loading and selection ----
  bool loadSignature(XString& xml, LogBase& log);
  bool loadSignatureBd(ClsBinData& xml, LogBase& log);
  bool selectBySignatureId(const StringBuffer& id, LogBase& log);
  bool selectedSignatureId(StringBuffer& out, LogBase& log);
  ClsXml* getReference(int index, LogBase& log);  // new handle or null
  int numReferences(ClsXml* signature, LogBase& log);
  ClsXml* selectedSignature() const;              // borrowed, or null

  // ---- SignedInfo and signature fields ----
  bool getCanonicalizationMethod(StringBuffer& algorithm, StringBuffer& prefixList, LogBase& log);
  bool getSignatureMethod(StringBuffer& out, LogBase& log);
  bool getSignedInfoField(const char* childName, const char* attrName, StringBuffer& out, LogBase& log);
  bool getSignatureValue(StringBuffer& out, LogBase& log);
  static bool captureUniqueTagContent(const char* tagStart, const StringBuffer& xml, StringBuffer& out,
                                      LogBase& log);
  static bool captureUniqueAttrContent(const char* tagStart, const char* attrName, const StringBuffer& xml,
                                       StringBuffer& out, LogBase& log);

  // ---- verification ----
  bool verifySignature(bool verifyReferenceDigests, LogBase& log);
  // Finds the selected signature in the document text: by its Id when it has one (a miss is
  // logged as information with infoTag), else by the digest value of its first reference.
  bool locateSignature(XmlSigLocate& locator, const StringBuffer& signatureId, const StringBuffer& firstRefDigest,
                       int infoTag, LogBase& log);
  // The same answer as the text scan of m_xmlSb, taken from the element spans of the parsed
  // tree (built from that text) when nothing in the document could make the two differ.
  // False means the scan must decide; the locator is then left as it was.
  bool locateSignatureInTree(XmlSigLocate& locator, const StringBuffer& signatureId,
                             const StringBuffer& firstRefDigest);
  // A small document holding the selected signature's SignedInfo (the span given) inside
  // its ancestors' start tags, which keep only what a canonicalized descendant inherits
  // (namespace declarations, xml:* attributes); offset is where SignedInfo starts in it.
  // False when the tree cannot vouch for that being equivalent to the whole document.
  bool signedInfoInContext(size_t signedInfoStart, size_t signedInfoLength, StringBuffer& text, size_t& offset);

  // ---- references ----
  bool verifyReferenceDigest(int index, bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log);
  bool verifyReferenceDigest2(int index, bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log);
  bool verifyInternalReference(int index, StringBuffer& uri, DSigReference& ref, LogBase& log);
  bool verifyExternalReference(int index, const StringBuffer& uri, DSigReference& ref,
                               bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log);
  // Compares a same-document reference's computed digest with its stored value, through
  // the fallbacks for signers that store it in other forms; sets m_refFailReason.
  // transformedHasSignedProperties: the data that was digested contains "SignedProperties".
  bool compareSameDocumentDigest(const StringBuffer& uri, DSigReference& ref, bool transformedHasSignedProperties,
                                 const DataBuffer& digest, LogBase& log);
  // One canonicalization step of the same-document pipeline: reads the working text (the
  // document in place while it still is the document, less its cut-out span) and leaves the
  // result in data, or only feeds it to `digest` when that is given (the final step).
  bool canonicalizeStep(ClsXml* transform, StringBuffer& data, const StringBuffer& algorithm,
                        const StringBuffer& uri, StreamedDigest* digest, LogBase& log);
  // Gives the working text a copy of its own when it is still read in place.
  void materializePipelineText(StringBuffer& data);
  DSigRefExternalData* getExtRef(int index, bool create, LogBase& log);
  bool getReferenceUri(int index, StringBuffer& out, LogBase& log);
  // Splits ExternalRefDirs at ';' (pieces trimmed, empty ones dropped).
  void splitExternalRefDirs(ExtPtrArraySb& dirs) const;

  // ---- transforms on document text ----
  bool transformEnvelopedSignature(StringBuffer& xml, StringBuffer& unused1, StringBuffer& unused2,
                                   DSigReference& ref, LogBase& log);
  bool removeSignatureAndFollowingSigs(StringBuffer& xml, unsigned start, unsigned length, LogBase& log);
  // Where the removal of the signature at [start, start + length) ends: past the signatures
  // that directly follow it.
  static size_t signatureRemovalEnd(const StringBuffer& xml, size_t start, size_t length);
  // Records the located signature as the working text's cut-out span, when the document
  // can be read in place that way; false when the text must be copied and cut instead.
  bool cutSignatureInPlace(size_t start, size_t length);
  bool canonicalizeXml(XString& xml, XString& version, bool withComments, XString& outXml, LogBase& log);
  bool canonicalizeFragment(XString& xml, XString& fragmentId, XString& version, XString& prefixList,
                            bool withComments, XString& outXml, LogBase& log);

  // ---- keys and certificates ----
  ClsXml* getKeyInfo(LogBase& log);
  bool publicKeyFromKeyInfo(ClsXml* keyInfo, ExtPtrArrayRc& keys, LogBase& log);
  bool getPublicKey(bool bKeyInfoOnly, ExtPtrArrayRc& keys, LogBase& log);
  ClsPublicKey* getPublicKeyByIssuerNameAndSerial(const char* issuerCN, const char* serialHex, LogBase& log);
  bool getCertByIssuerNameAndSerial(const char* issuerCN, const char* serialHex, StringBuffer& out,
                                    LogBase& log);
  ClsPublicKey* getPublicKeyBySubjectName(const char* dn, LogBase& log);
  bool getCertBySubjectName(const char* dn, StringBuffer& out, LogBase& log);
  ClsPublicKey* getPublicKeyBySKI(const char* ski, LogBase& log);
  bool getCertBySKI(const char* ski, StringBuffer& out, LogBase& log);
  ClsPublicKey* publicKeyFromX509(BrantelX509* cert, LogBase& log);
  ClsPublicKey* publicKeyFromCertBase64(StringBuffer& text, StringHashSet& set, LogBase& log);
  bool processCertBase64(StringBuffer& text, StringHashSet& set, LogBase& log);
  bool pkiPathV1_to_cert(const StringBuffer& in, StringBuffer& out, LogBase& log);
  static void reverseSubjectNameDN(const StringBuffer& dn, StringBuffer& out);
  bool certsFromKeyInfo(ClsXml* keyInfo, ClsStringArray& certs, LogBase& log);

  // ---- encapsulated timestamps ----
  bool hasEncapsulatedTimeStamp(LogBase& log);
  bool verifyEncapsulatedTimeStamp(StringBuffer& sigText, ClsXml* sigXml, LogBase& log);
  bool addEncapsulatedTimeStamp(ClsJsonObject& options, XString& out, LogBase& log);
  static void appendXmlAttrId(StringBuffer& sb, LogBase& log);

  // ---- fields, in declaration order ----
  bool m_withComments = false;
  bool m_ignoreExternalRefs = false;
  int32_t m_refFailReason = 0;
  StringBuffer m_xmlSb;              // UTF-8 text of the loaded document, exactly as loaded
  ClsXml* m_xmlRoot = nullptr;       // one reference held
  XString m_externalRefDirs;
  ExtPtrArrayRc m_signatures;        // every Signature element, document order
  ExtPtrArrayRc m_publicKeys;        // caller keys by signature index (SetPublicKey)
  ExtPtrArray m_refExternalData;     // DSigExternalData by signature index
  bool m_constructed = true;         // set at construction; read by nothing
  DataBuffer m_hmacKey;
  int32_t m_selector = 0;
  // While `inPlace`, the same-document pipeline's working text is m_xmlSb less the span
  // [cutStart, cutStart + cutLength): it is read where it is instead of being copied, and
  // while nothing is cut the enveloped-signature transform may locate the signature in the
  // tree. Transforms that need a text of their own copy it first.
  struct PipelineText {
    bool inPlace = false;
    size_t cutStart = 0;
    size_t cutLength = 0;
  };
  PipelineText m_pipelineText;
};
