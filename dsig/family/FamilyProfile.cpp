#include "dsig/family/FamilyProfile.h"

#include "dsig/_clsXmlDSigBase.h"
#include "support/StringBuffer.h"

namespace dsig_family {
namespace {

// What a family changes; a row holds the traits that apply while its flag is set.
enum Trait : unsigned {
  kCopiesDocument = 1u << 0,           // the data starts from a copy of the document, cut to the DTE
  kStartsAtDoda = 1u << 1,             // ... from the doda element
  kNoStreaming = 1u << 2,              // a family step after the final canonicalization needs its text
  kKeepsZatcaSignature = 1u << 3,      // the enveloped transform leaves the signature "signature" alone
  kExclusiveImplied = 1u << 4,         // a reference without Transforms canonicalizes exclusively
  kRebuildsMyInvoisProps = 1u << 5,    // a reference without Transforms digests rebuilt SignedProperties
  kSignedDocumentReference = 1u << 6,  // the three-transform document reference gives the signed digest
  kCmaStpDocument = 1u << 7,           // a whole-document canonicalization reads only the Document element
  kAttrSortBug = 1u << 8,              // canonicalize with the attribute-sorting emulation
  kSkXmlSignedInfo = 1u << 9,          // SignedInfo without the non-SK-XML handling
  kZatcaDigestForm = 1u << 10,         // SignedProperties digested as hex text
  kQuietSignedInfo = 1u << 11,         // SignedInfo is not what the signature covers: not logged
  kFirstUblExtensions = 1u << 12,      // the UBLExtensions exclusion drops the second block only
};

struct FamilyRow {
  const char* name;
  bool _clsXmlDSigBase::*flag;
  bool fromText;  // recognised in the document (else a mode the caller's options set)
  unsigned traits;
  SignedBytes signedBytes;
};

// In the order of the detection rules; where two rows answer the same question differently,
// the earlier one wins.
constexpr FamilyRow kFamilies[] = {
    {"sii-cl", &_clsXmlDSigBase::m_isSiiCl, true, kCopiesDocument, SignedBytes::SignedInfoInSiiDte},
    {"sunat-pe", &_clsXmlDSigBase::m_isSunatPeru, true, 0, SignedBytes::CanonicalSignedInfo},
    {"csioz-pl", &_clsXmlDSigBase::m_isCsioz, true, kAttrSortBug, SignedBytes::CanonicalSignedInfo},
    {"attr-sort-bug", &_clsXmlDSigBase::m_dupAttrSortBug, true, kAttrSortBug, SignedBytes::CanonicalSignedInfo},
    {"cma-stp", &_clsXmlDSigBase::m_isCmaStp, true, kNoStreaming | kCmaStpDocument, SignedBytes::CanonicalSignedInfo},
    {"doda-mx", &_clsXmlDSigBase::m_isDoda, true, kStartsAtDoda, SignedBytes::SignedInfoInDoda},
    {"sk-xml", &_clsXmlDSigBase::m_isSkXmlSignedDoc, true, kSkXmlSignedInfo, SignedBytes::CanonicalSignedInfo},
    {"zatca", &_clsXmlDSigBase::m_isZatca, false,
     kNoStreaming | kKeepsZatcaSignature | kExclusiveImplied | kZatcaDigestForm | kQuietSignedInfo,
     SignedBytes::ZatcaInvoiceHash},
    {"myinvois", &_clsXmlDSigBase::m_isMyInvois, false,
     kNoStreaming | kRebuildsMyInvoisProps | kSignedDocumentReference | kFirstUblExtensions,
     SignedBytes::MyInvoisDocumentDigest},
};

template <typename Visit>
void forEachSet(const _clsXmlDSigBase& flags, Visit visit) {
  for (const FamilyRow& row : kFamilies)
    if (flags.*row.flag) visit(row);
}

const FamilyRow* firstSet(const _clsXmlDSigBase& flags, bool textOnly) {
  for (const FamilyRow& row : kFamilies)
    if ((flags.*row.flag) && (row.fromText || !textOnly)) return &row;
  return nullptr;
}

bool anyHas(const _clsXmlDSigBase& flags, unsigned trait) {
  bool found = false;
  forEachSet(flags, [&](const FamilyRow& row) { found = found || (row.traits & trait) != 0; });
  return found;
}

}  // namespace

const char* FamilyProfile::detectedName() const {
  const FamilyRow* row = firstSet(m_flags, true);
  return row ? row->name : "";
}

const char* FamilyProfile::name() const {
  const FamilyRow* row = firstSet(m_flags, false);
  return row ? row->name : "";
}

bool FamilyProfile::adjustsDigestedBytes() const {
  // The sorting emulation and the SK-XML handling change how bytes are written, never which.
  bool adjusts = false;
  forEachSet(m_flags, [&](const FamilyRow& row) {
    adjusts = adjusts || (row.traits & ~(kAttrSortBug | kSkXmlSignedInfo)) != 0 ||
              row.signedBytes != SignedBytes::CanonicalSignedInfo;
  });
  return adjusts;
}

StartingText FamilyProfile::startingText() const {
  StartingText start = StartingText::DocumentInPlace;
  for (const FamilyRow& row : kFamilies) {
    if (!(m_flags.*row.flag)) continue;
    if (row.traits & kStartsAtDoda) return StartingText::DodaElement;
    if ((row.traits & kCopiesDocument) && start == StartingText::DocumentInPlace) start = StartingText::DocumentCopy;
  }
  return start;
}

bool FamilyProfile::extractsSiiDte() const { return anyHas(m_flags, kCopiesDocument); }

bool FamilyProfile::digestMayStream() const { return !anyHas(m_flags, kNoStreaming); }

bool FamilyProfile::keepsSignatureForEnvelopedTransform(const StringBuffer& signatureId) const {
  return anyHas(m_flags, kKeepsZatcaSignature) && signatureId.equals("signature");
}

bool FamilyProfile::impliedCanonicalizationIsExclusive() const { return anyHas(m_flags, kExclusiveImplied); }

bool FamilyProfile::rebuildsMyInvoisSignedProperties() const { return anyHas(m_flags, kRebuildsMyInvoisProps); }

bool FamilyProfile::documentReferenceIsSigned(int numTransforms) const {
  return anyHas(m_flags, kSignedDocumentReference) && numTransforms == 3;
}

bool FamilyProfile::keepsFirstUblExtensions() const { return anyHas(m_flags, kFirstUblExtensions); }

bool FamilyProfile::canonicalizesCmaStpDocument() const { return anyHas(m_flags, kCmaStpDocument); }

bool FamilyProfile::emulatesAttrSortBug() const { return anyHas(m_flags, kAttrSortBug); }

bool FamilyProfile::signedInfoNonSkXml() const { return !anyHas(m_flags, kSkXmlSignedInfo); }

bool FamilyProfile::zatcaSignedPropertiesDigest() const { return anyHas(m_flags, kZatcaDigestForm); }

SignedBytes FamilyProfile::signedBytes() const {
  for (const FamilyRow& row : kFamilies)
    if ((m_flags.*row.flag) && row.signedBytes != SignedBytes::CanonicalSignedInfo) return row.signedBytes;
  return SignedBytes::CanonicalSignedInfo;
}

bool FamilyProfile::logsSignedInfo() const { return !anyHas(m_flags, kQuietSignedInfo); }

FamilyProfile::SortBugRetry FamilyProfile::attrSortBugRetry() const {
  if (m_flags.m_dupAttrSortBug) return SortBugRetry::Without;
  return m_flags.m_noSortBugRetry ? SortBugRetry::None : SortBugRetry::With;
}

bool FamilyProfile::mayRetryZatcaForm() const { return !m_flags.m_isZatca; }

}  // namespace dsig_family
