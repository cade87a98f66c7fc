// ClsXmlDSig: the verifier. Load XML carrying one or more XML-Signature elements,
// select one, verify it (every reference digest and the signature value), read facts
// about it, canonicalize XML on request, and add or check a XAdES encapsulated
// timestamp. Every public operation takes the object's lock, logs under a context named
// after itself, never throws, and explains a failure in the log.
#pragma once

#include <memory>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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
class ReferencePipeline;
struct Coverage;
struct ReferenceResult;
struct SignatureLocation;
struct TransformStep;
struct VerificationRecord;
class StringHashSet;
class XmlCanon;
class XmlSigLocate;
namespace dsig_family {
struct ElementSpan;
}
namespace sigvalue {
struct Method;
struct Signed;
}  // namespace sigvalue

// The signer policy and result, kept behind pointers so that this header needs no
// OpenSSL headers.
struct SignerPolicy;
struct SignerResult;

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
  // RefFailReason of a same-document reference whose Id is carried by several elements.
  static constexpr int kRefFailAmbiguousId = 6;
  // RefFailReason of a reference that would exceed a work limit (MaxTransforms, MaxCanonicalBytes).
  static constexpr int kRefFailLimit = 7;
  bool get_WithComments() const { return m_withComments; }
  void put_WithComments(bool v) { m_withComments = v; }
  // Limits on the work one verification may do; exceeding one fails it with a clear reason.
  int get_MaxReferences() const { return m_maxReferences; }
  void put_MaxReferences(int n) { m_maxReferences = n > 0 ? n : 1; }
  int get_MaxTransforms() const { return m_maxTransforms; }
  void put_MaxTransforms(int n) { m_maxTransforms = n > 0 ? n : 1; }
  int64_t get_MaxCanonicalBytes() const { return m_maxCanonicalBytes; }
  void put_MaxCanonicalBytes(int64_t n) { m_maxCanonicalBytes = n > 0 ? n : 1; }

  // ---- public operations ----
  bool LoadSignature(XString& xml);
  bool LoadSignatureSb(ClsStringBuilder& xml);
  bool LoadSignatureBd(ClsBinData& xml);
  // Selects the signature whose Id attribute equals id (first match); false if none.
  bool SelectSignatureById(const XString& id);
  bool VerifySignature(bool verifyReferenceDigests);
  bool VerifyReferenceDigest(int index);
  bool CanonicalizeXml(XString& xml, XString& version, bool withComments, XString& outXml);
  bool CanonicalizeFragment(XString& xml, XString& fragmentId, XString& version, XString& prefixList, bool withComments,
                            XString& outXml);
  bool AddEncapsulatedTimeStamp(ClsJsonObject& options, ClsStringBuilder& sbOut);
  bool HasEncapsulatedTimeStamp();
  // The time-stamp of the selected signature as it reads, verified or not: the time it
  // states (ISO 8601 UTC) and the authority that signed it (the token's TSA name, else the
  // subject of the token's signer certificate; "" when neither is known). False when the
  // signature carries no time-stamp or its token does not parse.
  bool GetTimeStampInfo(XString& time, XString& authority);
  // Whether the last VerifySignature verified the signature's time-stamp (its token's
  // signature, over this signature value). A signature that carries one always has it
  // checked; only with VerifyEncapsulatedTimeStamp does a failing one fail the signature.
  bool get_TimeStampVerified() const;
  // Why the time-stamp of the last VerifySignature did not verify; "" when it did or the
  // signature carries none.
  void get_TimeStampError(XString& out);
  void SetHttpObj(ClsHttp* http);
  ClsXml* GetKeyInfo();
  ClsPublicKey* GetPublicKey();
  bool SetPublicKey(ClsPublicKey& key);
  // Makes key a candidate for every signature whose KeyInfo has a KeyName equal to name
  // (white space at its ends ignored). Replaces an earlier key of the same name.
  bool AddNamedPublicKey(const XString& name, ClsPublicKey& key);
  bool SetHmacKey(XString& key, XString& encoding);
  bool GetCerts(ClsStringArray& certs);
  bool UseCertVault(ClsXmlCertVault& vault);
  bool SetRefDataFile(int index, XString& path);
  bool SetRefDataSb(int index, ClsStringBuilder& data, XString& charset);
  bool SetRefDataBd(int index, ClsBinData& data);
  bool ReferenceUri(int index, XString& out);
  bool IsReferenceExternal(int index);

  // ---- what the last verification found, as data ----
  // The last result of reference `index` of the selected signature (from VerifySignature
  // or VerifyReferenceDigest) as one JSON object; false when the index is out of range.
  bool GetReferenceResultJson(int index, XString& outJson);
  // A handle on the element reference `index` covered in the loaded document (the
  // document element for a whole-document reference); null for an external reference or
  // one not resolved. The caller owns the handle.
  ClsXml* GetCoveredElement(int index);
  // Keep the exact bytes each reference digested, and the canonical SignedInfo, during the
  // next verifications (off by default: nothing is kept otherwise).
  bool get_KeepDigestedBytes() const;
  void put_KeepDigestedBytes(bool keep);
  bool GetDigestedBytes(int index, ClsBinData& out);  // false when not kept / not digested
  bool GetCanonicalSignedInfo(ClsBinData& out);       // false when not kept
  // Why the last VerifySignature failed, as one word ("" when it passed): structure,
  // no-such-reference, ambiguous-id, digest-mismatch, external-data-missing,
  // unsupported-algorithm, canonicalization-failed, limit-exceeded, no-key, wrong-key,
  // untrusted-signer, signer-not-pinned, other; and one line for a user.
  void get_FailureCause(XString& out);
  void get_FailureText(XString& out);
  // The reference whose failure is the cause of the last failed VerifySignature, else -1.
  int get_FailedReference();
  // The last result of reference `index` of the selected signature, or null (borrowed;
  // valid until the next verification or selection).
  const ReferenceResult* referenceResult(int index) const;

  // ---- the signer: who verified the last VerifySignature, and what it must be ----
  // The key that verified the last valid signature (a new reference), or null.
  ClsPublicKey* GetSignerKey();
  // Where that key came from: KeyValue, X509Certificate, X509IssuerSerial, X509SubjectName,
  // X509SKI, SecurityToken, CallerKey, PinnedKey or HmacKey; "" when nothing verified.
  void get_SignerSource(XString& out);
  bool get_HasSignerCert();
  // The signer's certificate as base64 DER; false when the key that verified has none.
  bool GetSignerCert(XString& base64Der);
  // Facts of the signer's certificate ("" when there is none): names as
  // "CN=..., O=..., C=...", the serial in decimal, times in ISO 8601 UTC, SHA-256 in hex.
  void get_SignerSubject(XString& out);
  void get_SignerIssuer(XString& out);
  void get_SignerSerial(XString& out);
  void get_SignerNotBefore(XString& out);
  void get_SignerNotAfter(XString& out);
  void get_SignerSha256(XString& out);
  // Pins a signer (a public key, or the key of a certificate): once any is pinned, only
  // pinned keys are tried and a signature made with any other key is invalid.
  bool AddPinnedSigner(ClsPublicKey& key);
  void ClearPinnedSigners();
  int get_NumPinnedSigners();
  // Trust anchors (a certificate file, PEM or DER, or a directory of them): once any is
  // given, a signature is valid only when the signer's certificate chains to one.
  bool AddTrustAnchors(const XString& fileOrDir);
  // Revocation lists (PEM or DER file) for the chain check; nothing is fetched, ever.
  bool AddCrlFile(const XString& path);
  void ClearTrust();
  // The time the chain is checked at, ISO 8601 UTC ("2025-03-01T12:00:00Z"); "" for the
  // default (a verified signature time-stamp's time, else the time of verification).
  bool SetValidationTime(const XString& isoUtc);
  // Results of the chain check of the last VerifySignature.
  bool get_TrustChecked() const;
  bool get_Trusted() const;
  bool GetTrustChain(ClsStringArray& subjects);
  void get_TrustError(XString& out);
  void get_ValidationTime(XString& out);
  // caller, timestamp or now.
  void get_ValidationTimeSource(XString& out);

  // ---- loading and selection ----
  bool loadSignature(XString& xml, LogBase& log);
  bool loadSignatureBd(ClsBinData& xml, LogBase& log);
  // LoadSignatureBd for bytes the caller hands over (moved in, emptied): converted to UTF-8
  // where they lie and kept as the document text, so a large file is held once.
  bool loadSignatureOwned(std::string& bytes);
  bool loadTree(LogBase& log);  // the tree over m_xmlSb and its signatures
  bool selectBySignatureId(const StringBuffer& id, LogBase& log);
  bool selectedSignatureId(StringBuffer& out, LogBase& log);
  ClsXml* getReference(int index, LogBase& log);  // new handle or null
  int numReferences(ClsXml* signature, LogBase& log);
  ClsXml* selectedSignature() const;  // borrowed, or null

  // ---- SignedInfo and signature fields ----
  bool getCanonicalizationMethod(StringBuffer& algorithm, StringBuffer& prefixList, LogBase& log);
  bool getSignatureMethod(StringBuffer& out, LogBase& log);
  bool getSignedInfoField(const char* childName, const char* attrName, StringBuffer& out, LogBase& log);
  bool getSignatureValue(StringBuffer& out, LogBase& log);
  static bool captureUniqueTagContent(const char* tagStart, const StringBuffer& xml, StringBuffer& out, LogBase& log);
  static bool captureUniqueAttrContent(const char* tagStart, const char* attrName, const StringBuffer& xml,
                                       StringBuffer& out, LogBase& log);

  // ---- verification ----
  bool verifySignature(bool verifyReferenceDigests, LogBase& log);
  // Records why the verification under way failed, unless a cause is recorded already
  // (an empty text is the last error logged).
  void noteFailure(const char* cause, const std::string& text = std::string());
  // The cause when references failed: the first reference whose digest did not match,
  // whose algorithm is not supported or whose data is missing, else the first that failed.
  void noteReferenceFailure();
  // The cause when no candidate key verified the signature value.
  void noteKeyFailure(bool hmac, int keysTried);
  // Remembers why a key the signature offered was refused by the key checks (the first
  // such reason of the verification stands), for the failure a user reads.
  void noteRefusedKey(const ClsPublicKey& key);
  // The selected signature and its SignedInfo as spans of the document text, taken from
  // the parsed tree. With m_recordXadesPositions the text scan also records the XAdES
  // positions, and must have found that same element (named by its Id, else by the digest
  // of its first reference).
  bool locateSignature(XmlSigLocate& locator, const StringBuffer& signatureId, const StringBuffer& firstRefDigest,
                       int infoTag, LogBase& log);
  // Whether the selected signature is built as a signature must be: exactly one
  // SignedInfo, then exactly one SignatureValue, at most one KeyInfo, then Objects, all of
  // the XML-Signature namespace. Logs what is wrong.
  bool checkSignatureStructure(LogBase& log);
  // A byte range [start, end) of the document text.
  struct TextSpan {
    size_t start = 0;
    size_t end = 0;
  };
  // The element a same-document fragment ("X" or "xpointer(id('X'))") names, by the Id
  // index: exactly one element must carry the value. False (with m_refFailReason and the
  // log saying why) when none or several do.
  bool resolveIdTarget(const StringBuffer& id, uint32_t& nodeIndex, LogBase& log);
  // A small document holding the element (node index) inside its ancestors' start tags,
  // which keep only what a canonicalized descendant inherits (namespace declarations,
  // xml:* attributes), with the cut spans inside the element left out; offset is where
  // the element starts in it. False when the tree cannot vouch for that being equivalent
  // to the whole document (a DTD).
  bool elementInContext(uint32_t nodeIndex, const std::vector<TextSpan>& cuts, StringBuffer& text, size_t& offset);

  // ---- references ----
  // Reference `index` of the signature at `location` (the selected one).
  bool verifyReferenceDigest(int index, const SignatureLocation& location, bool& externalDataMissing,
                             ExtPtrArraySb& dirs, LogBase& log);
  // The attempts at one reference: again with the attribute-sorting emulation switched
  // when the digest did not match; `result` is the last attempt's.
  bool verifyReferenceDigestRetrying(int index, const SignatureLocation& location, ReferenceResult& result,
                                     bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log);
  // One attempt at reference `index`, its result left in `result`.
  bool referenceAttempt(int index, const SignatureLocation& location, ReferenceResult& result,
                        bool& externalDataMissing, ExtPtrArraySb& dirs, LogBase& log);
  bool verifyInternalReference(int index, StringBuffer& uri, ReferencePipeline& pipe, LogBase& log);
  // One pass of the same-document pipeline; keepComments lets a WithComments method keep
  // the comments of a whole-document reference, droppedComments says whether it mattered.
  bool internalReferencePass(StringBuffer& uri, ReferencePipeline& pipe, bool keepComments, bool& droppedComments,
                             LogBase& log);
  // What a declared chain leaves for the digest step.
  struct ChainOutcome {
    bool base64 = false;            // the digest is over the base64-decoded text
    bool myInvoisDocument = false;  // the MyInvois document reference
  };
  // The chain of a reference without a Transforms element.
  bool impliedChain(const StringBuffer& uri, ReferencePipeline& pipe, StringBuffer& data, bool streams, LogBase& log);
  // The declared chain, in document order (the enveloped signature of a whole-document
  // reference always cut, and an inclusive canonicalization implied when none is declared).
  bool declaredChain(const StringBuffer& uri, ReferencePipeline& pipe, StringBuffer& data, bool streams,
                     ChainOutcome& outcome, LogBase& log);
  // One declared step, dispatched on the kind the algorithm table gives it.
  bool runStep(const TransformStep& step, const StringBuffer& uri, ReferencePipeline& pipe, StringBuffer& data,
               bool toDigest, LogBase& log);
  // The digest of the transformed data (or the streamed one), in the form the signer stored.
  bool digestTransformed(ReferencePipeline& pipe, StringBuffer& data, bool streamedDigest, const ChainOutcome& chain,
                         DataBuffer& digest, bool& hasSignedProperties, LogBase& log);
  // What a same-document reference covers, from the parsed tree: the element its fragment
  // names or the whole document.
  void recordSameDocumentCoverage(const StringBuffer& fragment, Coverage& coverage);
  // The elements under the covered data that an XPath exclusion of this form names.
  void recordXPathRemovals(const StringBuffer& xpath, const char* by, Coverage& coverage);
  // A family exclusion (UBL blocks, the QR reference) cut from the loaded tree into the
  // pipeline's in-place cuts, each noted as removed by the family; false when refused.
  bool cutExclusionInPlace(ClsXml* transform, const std::string& excluded, ReferencePipeline& pipe, LogBase& log);
  // Notes the elements of the loaded document a family cut takes out of the covered data.
  void recordFamilyRemovals(const std::vector<dsig_family::ElementSpan>& spans, Coverage& coverage);
  // Notes the element of the loaded tree that starts at `start` as removed by `by`.
  void recordRemovedElement(size_t start, const char* by, Coverage& coverage);
  bool verifyExternalReference(int index, const StringBuffer& uri, ReferencePipeline& pipe, bool& externalDataMissing,
                               ExtPtrArraySb& dirs, LogBase& log);
  // Compares a same-document reference's computed digest with its stored value, through
  // the fallbacks for signers that store it in other forms; sets m_refFailReason.
  // transformedHasSignedProperties: the data that was digested contains "SignedProperties".
  bool compareSameDocumentDigest(const StringBuffer& uri, ReferencePipeline& pipe, bool transformedHasSignedProperties,
                                 const DataBuffer& digest, LogBase& log);
  // One canonicalization step of the same-document pipeline: reads the working text (the
  // document in place while it still is the document, less its cut-out span) and leaves the
  // result in data, or only feeds it to the pipeline's streamed digest with toDigest (the
  // final step).
  // The text a canonicalization step reads, and where: the document read in place with one
  // cut, an element in its context, or the working copy (materialized when needed).
  struct CanonicalInput {
    const StringBuffer* text = nullptr;
    size_t cutStart = 0, cutLength = 0;
    size_t startOffset = 0;  // above 0: the element that starts there
  };
  bool selectCanonicalInput(bool byId, uint32_t target, ReferencePipeline& pipe, StringBuffer& data,
                            StringBuffer& context, CanonicalInput& in, LogBase& log);
  bool canonicalizeStep(ClsXml* transform, StringBuffer& data, const StringBuffer& algorithm, const StringBuffer& uri,
                        ReferencePipeline& pipe, bool toDigest, LogBase& log);
  // Runs a reference's transforms on the node-set of data (the document text) and leaves
  // the canonical octets in data. For chains with a general XPath expression, which
  // selects nodes rather than cutting text (see needsNodeSet); the enveloped-signature
  // transform removes the signature at `location`.
  bool nodeSetTransforms(ClsXml* transforms, const SignatureLocation& location, const StringBuffer& uri,
                         StringBuffer& data, LogBase& log);
  DSigRefExternalData* getExtRef(int index, bool create, LogBase& log);
  bool getReferenceUri(int index, StringBuffer& out, LogBase& log);
  // Splits ExternalRefDirs at ';' (pieces trimmed, empty ones dropped).
  void splitExternalRefDirs(ExtPtrArraySb& dirs) const;

  // ---- transforms on document text ----
  // Cuts what the pipeline's signature location says the transform cuts.
  bool transformEnvelopedSignature(StringBuffer& xml, ReferencePipeline& pipe, LogBase& log);
  // Whether the canonicalization byte budget of this verification still holds after
  // `bytes` more; logs the failure.
  bool chargeCanonicalBytes(size_t bytes, LogBase& log);
  bool canonicalizeXml(XString& xml, XString& version, bool withComments, XString& outXml, LogBase& log);
  bool canonicalizeFragment(XString& xml, XString& fragmentId, XString& version, XString& prefixList, bool withComments,
                            XString& outXml, LogBase& log);

  // ---- keys and certificates ----
  ClsXml* getKeyInfo(LogBase& log);
  bool publicKeyFromKeyInfo(ClsXml* keyInfo, ExtPtrArrayRc& keys, LogBase& log);
  bool getPublicKey(bool bKeyInfoOnly, ExtPtrArrayRc& keys, LogBase& log);
  // The caller's named keys (AddNamedPublicKey) that a KeyName of the KeyInfo names.
  void appendNamedKeys(ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log);
  ClsPublicKey* getPublicKeyByIssuerNameAndSerial(const char* issuerCN, const char* serialHex, LogBase& log);
  bool getCertByIssuerNameAndSerial(const char* issuerCN, const char* serialHex, StringBuffer& out, LogBase& log);
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

  // ---- the signer (dsig/keys/Signer*.cpp) ----
  // When signers are pinned, keeps only the candidates that are pinned keys, then adds the
  // pinned keys no candidate matched.
  void pinCandidateKeys(ExtPtrArrayRc& keys, LogBase& log);
  // After the signature value check: records the key that verified (null with hmac for an
  // HMAC secret) and applies the signer checks (pinning, the signed signing certificate,
  // chain trust). Returns the final verdict; a failure's reason is the last error logged.
  bool settleSigner(bool valid, ClsPublicKey* verifiedBy, bool hmac, LogBase& log);
  bool checkSignerTrust(const std::vector<std::string>& keyInfoCerts, LogBase& log);

  // ---- encapsulated timestamps ----
  bool hasEncapsulatedTimeStamp(LogBase& log);
  bool verifyEncapsulatedTimeStamp(StringBuffer& sigText, ClsXml* sigXml, LogBase& log);
  // Checks the selected signature's time-stamp, when it carries one, and records the
  // outcome; false only when VerifyEncapsulatedTimeStamp is set and it does not verify.
  bool checkSignatureTimeStamp(ClsXml& signature, LogBase& log);
  void noteTimeStampVerified(long long genTime, std::vector<std::string> certs);
  // Whether the verified time-stamp's authority chains to a trust anchor at its own time,
  // so that its time may serve as the signer's validation time.
  bool timeStampAuthorityTrusted(LogBase& log);
  bool addEncapsulatedTimeStamp(ClsJsonObject& options, XString& out, LogBase& log);
  static void appendXmlAttrId(StringBuffer& sb, LogBase& log);

  // ---- fields, in declaration order ----
  bool m_withComments = false;
  bool m_ignoreExternalRefs = false;
  int32_t m_refFailReason = 0;
  StringBuffer m_xmlSb;         // UTF-8 text of the loaded document, exactly as loaded
  ClsXml* m_xmlRoot = nullptr;  // one reference held
  XString m_externalRefDirs;
  ExtPtrArrayRc m_signatures;           // every Signature element, document order
  ExtPtrArrayRc m_publicKeys;           // caller keys by signature index (SetPublicKey)
  std::vector<std::string> m_keyNames;  // names of m_namedKeys, same order (AddNamedPublicKey)
  ExtPtrArrayRc m_namedKeys;
  ExtPtrArray m_refExternalData;  // DSigExternalData by signature index
  bool m_constructed = true;      // set at construction; read by nothing
  DataBuffer m_hmacKey;
  int32_t m_selector = 0;
  int32_t m_maxReferences = 100000;
  int32_t m_maxTransforms = 100;
  int64_t m_maxCanonicalBytes = 32LL * 1024 * 1024;
  int64_t m_canonicalBytesUsed = 0;  // by the verification under way
  std::string m_limitExceeded;       // the message of the last limit exceeded
  std::unique_ptr<VerificationRecord> m_recordOwned;
  VerificationRecord& m_record;  // *m_recordOwned: results of the last verification
  std::unique_ptr<SignerPolicy> m_signerPolicyOwned;
  std::unique_ptr<SignerResult> m_signerResultOwned;
  SignerPolicy& m_signerPolicy;  // *m_signerPolicyOwned
  SignerResult& m_signerResult;  // *m_signerResultOwned

 private:
  // ---- the steps of verifySignature, in their order ----
  // Clears the results of the last verification; logs the options it runs with.
  void beginVerification(bool verifyReferenceDigests, LogBase& log);
  // The signature's structure, and its number of references within MaxReferences.
  bool checkStructure(ClsXml& signature, int& numRefs, LogBase& log);
  // Every reference, none skipped after a failure; notes the cause when any fails.
  bool verifyReferences(const SignatureLocation& location, int numRefs, LogBase& log);
  // The signature and its SignedInfo as spans of the document text (SignatureLocation.cpp).
  bool locateSignedInfo(SignatureLocation& location, LogBase& log);
  // The bytes the signature value covers: the canonical SignedInfo, or what the document
  // family signs instead (SignedBytes.cpp).
  bool canonicalSignedInfo(ClsXml& signature, const SignatureLocation& location, StringBuffer& canonAlgorithm,
                           StringBuffer& out, LogBase& log);
  // A canonicalizer set up as SignedInfo's CanonicalizationMethod and the family say.
  bool signedInfoCanonicalizer(XmlCanon& canon, StringBuffer& canonAlgorithm, LogBase& log);
  // The decoded SignatureValue and the signature method that checks it (SignedInfoAccess.cpp).
  bool readSignatureValue(ClsXml& signature, sigvalue::Method& method, DataBuffer& value, LogBase& log);
  // The hash the signature value was made over (SignedBytes.cpp).
  void hashSignedBytes(const sigvalue::Method& method, sigvalue::Signed& data);
  // The keys (or the HMAC secret) to check under; notes why there are none (keys/CandidateKeys.cpp).
  bool candidateKeys(const sigvalue::Method& method, ExtPtrArrayRc& keys, LogBase& log);
  // The signature value under the candidate keys or the HMAC secret; verifiedBy is the key
  // that verified (borrowed from keys; null for a secret).
  bool checkSignatureValue(const sigvalue::Method& method, const sigvalue::Signed& data, const ExtPtrArrayRc& keys,
                           const StringBuffer& canonAlgorithm, ClsPublicKey*& verifiedBy, LogBase& log);
  // The signer checks after the value check, and the failure cause; the final verdict.
  bool settleVerdict(bool valid, ClsPublicKey* verifiedBy, const sigvalue::Method& method, int keysTried, LogBase& log);
};
