// _clsXmlDSigBase: the document-family state of the verifier and the text operations
// (canonicalization transform, XPath transform, family adjustments) that read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "dsig/ClsBase.h"
#include "dsig/_clsCades.h"
#include "dsig/family/FamilyProfile.h"
#include "support/DataBuffer.h"
#include "support/StringBuffer.h"

class ClsXml;
class DSigReference;
class LogBase;

class _clsXmlDSigBase : public ClsBase, public _clsCades {
 public:
  _clsXmlDSigBase();
  ~_clsXmlDSigBase() override;

  // Sets the document-family flags from markers in the document text.
  void detectSpecial(const StringBuffer& text, LogBase& log);
  // Set the ZATCA / MyInvois mode from the uncommon options the log carries.
  void checkSetZatca(LogBase& log);
  void checkSetMyInvois(LogBase& log);
  // What the family of the loaded document changes, stage by stage. Only the loader, the
  // detection and the profile read the flags below; everything else asks the profile.
  const dsig_family::FamilyProfile& family() const { return m_family; }
  // The family state the digest retries change.
  void setAttrSortBugEmulation(bool on);
  void adoptZatcaRules();

  // Canonicalization transform of a same-document reference (in place on success).
  bool transformCanonicalize(ClsXml* transform, StringBuffer& xml, const StringBuffer& algorithm,
                             const StringBuffer& fragmentId, LogBase& log);
  // The same transform reading `input` as if the span [cutStart, cutStart + cutLength) had
  // been cut out of it (the span holds whole elements), and writing to out, or piece by
  // piece to sink when one is given. A startOffset above 0 selects the element that starts
  // there instead of the one fragmentId names.
  bool canonicalizeTransformInput(ClsXml* transform, const StringBuffer& input, size_t cutStart, size_t cutLength,
                                  const StringBuffer& algorithm, const StringBuffer& fragmentId, StringBuffer& out,
                                  const std::function<void(std::string_view)>& sink, LogBase& log,
                                  size_t startOffset = 0);
  // XPath / XPath Filter 2.0 transform by recognised expression patterns (in place).
  bool transformXPath(ClsXml* transform, StringBuffer& xml, const StringBuffer& algorithm, const StringBuffer& xpath,
                      LogBase& log);
  // Which text pattern transformXPath recognises the expression as (0: none; 1 signature
  // exclusions, 2 SOAP next-actor blocks, 3 UBLDocumentSignatures, 4 Filter 2.0 signature
  // subtraction, 5 Filter 2.0 UBL extensions, 6 and 7 not(//ancestor-or-self::...)); for a
  // family exclusion, `excluded` names what it excludes ("cac:Signature", "p:E[q:N='v']").
  static int textXPathPattern(ClsXml* transform, const StringBuffer& algorithm, const StringBuffer& xpath,
                              std::string& excluded);
  // Cuts what a family exclusion names out of xml, decided on its parsed structure; false
  // (the reason in m_familyRefusal) when the structure refuses the cut.
  bool cutExclusionFromText(ClsXml* transform, const std::string& excluded, StringBuffer& xml, LogBase& log);
  // Whether the expression is one transformXPath applies as a cut of the text (signature
  // exclusions and the document conventions); any other is evaluated on the node-set.
  static bool isTextXPathPattern(ClsXml* transform, const StringBuffer& algorithm, const StringBuffer& xpath);
  // Whether a Transforms element holds an XPath transform that is not such a pattern.
  static bool needsNodeSet(ClsXml* transforms);

  // Family adjustments on document text.
  bool preprocessXmlToTransform(const StringBuffer& fragmentId, DSigReference& ref, StringBuffer& xml, LogBase& log);
  bool postProcessTransformedXml(StringBuffer& unused, DSigReference& ref, StringBuffer& xml, LogBase& log);
  bool extract_sii_cl_dte(StringBuffer& xml, const char* id, bool keepCopy, LogBase& log);
  // A family cut refused: the reason (one line) is kept for the reference's result.
  void noteFamilyRefusal(const std::string& why, LogBase& log);
  std::string m_familyRefusal;  // why the current reference's family cut was refused ("" when none was)

  // Document-family fields, in declaration order.
  int32_t m_specialDocKind = 0;  // 3 = Peruvian SUNAT UBL document
  bool m_isSiiCl = false;
  int32_t m_siiDteOffset = 0;  // offset of the extracted "<DTE " in the text it was cut from
  StringBuffer m_siiDteXml;
  bool m_isDoda = false;
  bool m_isCsioz = false;
  bool m_isSunatPeru = false;
  bool m_isZatca = false;
  bool m_isMyInvois = false;
  bool m_dupAttrSortBug = false;
  bool m_noSortBugRetry = false;
  bool m_isSkXmlSignedDoc = false;
  bool m_isCmaStp = false;
  DataBuffer m_myInvoisDigest;

 private:
  const dsig_family::FamilyProfile m_family{*this};
};
