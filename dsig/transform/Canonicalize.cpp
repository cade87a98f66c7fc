// The canonicalization transform of reference verification and the public
// canonicalization operations. All three hand the work to XmlCanon; the transform adds
// what verification needs on top: the InclusiveNamespaces list of the Transform element,
// the attribute-sorting emulation of certain document families, the EBICS road (one
// canonicalizer call per authenticated element, concatenated) and the CMA STP cut.
#include "dsig/ClsXmlDSig.h"
#include "dsig/_clsXmlDSigBase.h"
#include "dsig/family/FamilyCuts.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "xml/XmlCanon.h"

namespace {

// EBICS requests sign every element carrying authenticate="true"; the reference names
// them with an XPointer, or the caller passes "EBICS".
bool isEbicsFragment(const StringBuffer& fragmentId) {
  if (fragmentId.equals("EBICS")) return true;
  return fragmentId.containsSubstring("xpointer") && fragmentId.containsSubstring("authenticate") &&
         fragmentId.containsSubstring("true");
}

// The canonicalization method the public operations take from their version argument.
int methodFromVersion(const XString& version) {
  StringBuffer v;
  v.append(version.getUtf8Sb());
  v.trim2();
  v.toLowerCase();
  return v.equals("excl_c14n") ? 2 : 1;
}

constexpr int kMaxEbicsCalls = 100;

}  // namespace

bool _clsXmlDSigBase::transformCanonicalize(ClsXml* transform, StringBuffer& xml, const StringBuffer& algorithm,
                                            const StringBuffer& fragmentId, LogBase& log) {
  StringBuffer out;
  if (!canonicalizeTransformInput(transform, xml, 0, 0, algorithm, fragmentId, out, {}, log)) return false;
  xml.takeSb(out);
  return true;
}

bool _clsXmlDSigBase::canonicalizeTransformInput(ClsXml* transform, const StringBuffer& input, size_t cutStart,
                                                 size_t cutLength, const StringBuffer& algorithm,
                                                 const StringBuffer& fragmentId, StringBuffer& out,
                                                 const std::function<void(std::string_view)>& sink, LogBase& log,
                                                 size_t startOffset) {
  LogContextExitor ctx(log, "transformCanonicalize");

  const bool exclusive = algorithm.containsSubstring("xml-exc-c14n");
  StringBuffer prefixList;
  if (transform != nullptr && exclusive) {
    RcPtr<ClsXml> inclusive(transform->getChildWithTagUtf8("*:InclusiveNamespaces"));
    if (inclusive) {
      inclusive->getAttrValue("PrefixList", prefixList);
      if (log.m_verboseLogging) log.LogDataSb("inclusiveNamespacesPrefixList", prefixList);
    }
  }

  XmlCanon canon;
  canon.canonMethod = 1;
  canon.withComments = algorithm.containsSubstringNoCase("WithComments");
  if (exclusive) {
    canon.canonMethod = 2;
    if (!prefixList.isEmpty()) prefixList.split(canon.inclusivePrefixes, ' ', true, true);
  }
  if (family().emulatesAttrSortBug()) {
    log.LogInfo("Will duplicate the XML canonicalization attribute sorting bug...");
    canon.emulateAttrSortBug = true;
  }

  canon.outputSink = sink;
  canon.cutStart = cutStart;
  canon.cutLength = cutLength;

  if (isEbicsFragment(fragmentId)) {
    log.LogInfo("Canonicalizing for EBICS...");
    canon.ebicsCount = 0;
    canon.ebicsMode = true;
    canon.ebicsIndex = 0;
    if (!canon.xmlCanonicalize(input, fragmentId.getString(), 0, out, log)) {
      log.LogError("Failed to canonicalize XML fragment.");
      return false;
    }
    // Each further call appends the next authenticated element; the first call that
    // finds none ends the loop.
    for (int index = 1; index < kMaxEbicsCalls; ++index) {
      canon.ebicsCount = 0;
      canon.ebicsIndex = index;
      if (!canon.xmlCanonicalize(input, fragmentId.getString(), 0, out, log)) break;
    }
    return true;
  }

  // CMA STP messages sign only their Document element; whatever surrounds it (prolog,
  // SOAP envelope, trailing text) is left out.
  StringBuffer cut;
  const StringBuffer* source = &input;
  if (family().canonicalizesCmaStpDocument() && fragmentId.isEmpty()) {
    // The cut-out span is taken out of the copy, which is then read whole.
    cut.append(input.substr(0, cutStart));
    cut.append(input.substr(cutStart + cutLength));
    dsig_family::ElementSpan document;
    const dsig_family::CutResult found = dsig_family::cmaStpDocumentSpan(cut.view(), document, log);
    if (found == dsig_family::CutResult::Refused) {
      noteFamilyRefusal("the CMA STP Document element is not the one the text delimits", log);
      return false;
    }
    if (found == dsig_family::CutResult::Found) {
      StringBuffer only(cut.substr(document.start, document.end - document.start));
      cut.takeSb(only);
    }
    source = &cut;
    canon.cutStart = canon.cutLength = 0;
  }
  if (!canon.xmlCanonicalize(*source, fragmentId.getString(), startOffset, out, log)) {
    log.LogError("Failed to canonicalize XML fragment.");
    return false;
  }
  return true;
}

bool ClsXmlDSig::CanonicalizeXml(XString& xml, XString& version, bool withComments, XString& outXml) {
  OperationFrame frame(*this, "CanonicalizeXml", true);
  outXml.clear();
  XmlCanon canon;
  canon.withComments = withComments;
  canon.canonMethod = methodFromVersion(version);
  return canon.xmlCanonicalize(xml.getUtf8Sb(), nullptr, 0, outXml.getUtf8Sb_rw(), m_log);
}

bool ClsXmlDSig::CanonicalizeFragment(XString& xml, XString& fragmentId, XString& version, XString& prefixList,
                                      bool withComments, XString& outXml) {
  OperationFrame frame(*this, "CanonicalizeFragment", true);
  m_log.LogDataX("fragmentId", fragmentId);
  m_log.LogDataX("canonicalization", version);
  m_log.LogDataX("prefixList", prefixList);
  outXml.clear();
  XmlCanon canon;
  canon.withComments = withComments;
  canon.canonMethod = methodFromVersion(version);
  if (canon.canonMethod == 2) prefixList.getUtf8Sb().split(canon.inclusivePrefixes, ' ', true, true);
  return canon.xmlCanonicalize(xml.getUtf8Sb(), fragmentId.getUtf8(), 0, outXml.getUtf8Sb_rw(), m_log);
}
