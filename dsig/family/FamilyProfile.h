// What the document family of the loaded document changes in verification, one question per
// stage. The family flags (set at load by the detection and by the caller's ZATCA / MyInvois
// options) are read here and in the loader only; every stage asks the profile. A family is one
// row of the table in FamilyProfile.cpp: adding one adds a row (and its detection rule).
#pragma once

class _clsXmlDSigBase;
class StringBuffer;

namespace dsig_family {

// The text a same-document reference starts from.
enum class StartingText {
  DocumentInPlace,  // the loaded document, read where it is
  DocumentCopy,     // a copy of the document, which the family's pre-processing cuts down
  DodaElement,      // the doda element around the signature
};

// The bytes the signature value is computed over.
enum class SignedBytes {
  CanonicalSignedInfo,     // SignedInfo canonicalized in its document context
  SignedInfoInSiiDte,      // SignedInfo canonicalized within the extracted DTE text
  SignedInfoInDoda,        // SignedInfo canonicalized within the doda element
  ZatcaInvoiceHash,        // the invoice hash (first reference's DigestValue); SignedInfo is not covered
  MyInvoisDocumentDigest,  // the digest of the document reference
};

class FamilyProfile {
 public:
  explicit FamilyProfile(const _clsXmlDSigBase& flags) : m_flags(flags) {}

  // The family recognised from the document text ("" for none); the caller's ZATCA and
  // MyInvois modes are not part of it.
  const char* detectedName() const;
  // The family whose rules apply, the caller's modes included ("" for none).
  const char* name() const;
  // Whether any family rule changes what a reference or the signature value digests.
  bool adjustsDigestedBytes() const;

  // ---- reference data ----
  StartingText startingText() const;
  // Whether the pre-processing cuts the Chilean DTE out of its envelope.
  bool extractsSiiDte() const;
  // Whether a reference's final canonicalization may be hashed as it is written; false when
  // a family step after it needs the text.
  bool digestMayStream() const;
  // Whether the enveloped-signature transform leaves the signature with this Id in place
  // (ZATCA invoices take theirs out through their XPath transforms).
  bool keepsSignatureForEnvelopedTransform(const StringBuffer& signatureId) const;
  // Whether a reference without Transforms canonicalizes exclusively (else inclusively).
  bool impliedCanonicalizationIsExclusive() const;
  // Whether a reference without Transforms digests MyInvois' rebuilt SignedProperties text.
  bool rebuildsMyInvoisSignedProperties() const;
  // Whether the MyInvois document reference (three transforms) gives the signed digest.
  bool documentReferenceIsSigned(int numTransforms) const;
  // Whether "not(//ancestor-or-self::ext:UBLExtensions)" keeps the first UBLExtensions block
  // and drops the second (MyInvois) instead of dropping every one.
  bool keepsFirstUblExtensions() const;
  // Whether a whole-document canonicalization reads only the CMA STP Document element.
  bool canonicalizesCmaStpDocument() const;

  // ---- canonicalizer settings ----
  bool emulatesAttrSortBug() const;
  // Whether SignedInfo keeps the canonicalizer's non-SK-XML handling.
  bool signedInfoNonSkXml() const;

  // ---- digest form ----
  // Whether SignedProperties is digested as ZATCA signers do (hex text of the digest).
  bool zatcaSignedPropertiesDigest() const;

  // ---- signature value ----
  SignedBytes signedBytes() const;
  // Whether SignedInfo's text is worth logging (it is not what a ZATCA signature covers).
  bool logsSignedInfo() const;

  // ---- the retries (the verifier switches the state they change) ----
  // How a digest mismatch may be retried: with the attribute-sorting emulation switched off
  // (it was on), switched on (the family allows trying it), or not at all.
  enum class SortBugRetry { None, Without, With };
  SortBugRetry attrSortBugRetry() const;
  // Whether a SignedProperties digest may be retried in the ZATCA form.
  bool mayRetryZatcaForm() const;

 private:
  const _clsXmlDSigBase& m_flags;
};

}  // namespace dsig_family
