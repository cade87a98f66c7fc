#include "dsig/SignatureLocation.h"

#include <string_view>

#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/xml/XmlScanner.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlSigLocate.h"

namespace {

constexpr std::string_view kDsigNamespace = "http://www.w3.org/2000/09/xmldsig#";

bool onlyWhiteSpace(std::string_view s) {
  for (char c : s)
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') return false;
  return true;
}

bool isDsigSignature(const xml::XmlTree& tree, const xml::XmlNode& node) {
  return xml::localNameOf(tree.tagOf(node)) == "Signature" && tree.namespaceOfElement(node) == kDsigNamespace;
}

void appendEnvelopedCuts(const xml::XmlTree& tree, const xml::XmlNode& node, std::vector<ClsXmlDSig::TextSpan>& cuts) {
  cuts.push_back({node.start, node.end});
  const xml::XmlNode* parent = tree.parentOf(node);
  if (!parent) return;
  uint32_t i = 0;
  while (i < parent->numChildren && tree.child(*parent, i) != &node) ++i;
  const std::string_view text = tree.text();
  size_t previousEnd = node.end;
  for (++i; i < parent->numChildren; ++i) {
    const xml::XmlNode& next = *tree.child(*parent, i);
    // Only white space may stand between them: a comment, a processing instruction or
    // text there ends the run of following signatures.
    if (!onlyWhiteSpace(text.substr(previousEnd, next.start - previousEnd))) break;
    if (!isDsigSignature(tree, next)) break;
    cuts.push_back({next.start, next.end});
    previousEnd = next.end;
  }
}

}  // namespace

SignatureLocation locateInTree(ClsXml& signature) {
  SignatureLocation location;
  signature.getAttrValue("Id", location.id);
  location.signature = {signature.sourceStart(), signature.sourceEnd()};
  if (signature.tree() && signature.node())
    appendEnvelopedCuts(*signature.tree(), *signature.node(), location.envelopedCuts);
  return location;
}

bool ClsXmlDSig::locateSignature(XmlSigLocate& locator, const StringBuffer& signatureId,
                                 const StringBuffer& firstRefDigest, int /*infoTag*/, LogBase& log) {
  ClsXml* signature = selectedSignature();
  if (!signature || !checkSignatureStructure(log)) {
    log.LogError("Unable to find the Signature.");
    return false;
  }
  RcPtr<ClsXml> signedInfo(signature->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) return false;

  if (locator.m_recordXadesPositions) {
    // The scan gives the XAdES positions; it must have found the selected element.
    _btXmlDtd dtd;
    const bool found = signatureId.isEmpty()
                           ? locator.FindXmlSigByRefDigest(firstRefDigest.getString(), m_xmlSb, dtd, log)
                           : locator.FindXmlSigById(signatureId.getString(), m_xmlSb, dtd, log);
    if (!found || locator.m_sigStart != signature->sourceStart() ||
        locator.m_sigStart + locator.m_sigLength != signature->sourceEnd()) {
      log.LogError("The signature found in the text is not the selected Signature element.");
      return false;
    }
  }
  locator.m_sigStart = static_cast<unsigned>(signature->sourceStart());
  locator.m_sigLength = static_cast<unsigned>(signature->sourceEnd() - signature->sourceStart());
  locator.m_signedInfoStart = static_cast<unsigned>(signedInfo->sourceStart());
  locator.m_signedInfoLength = static_cast<unsigned>(signedInfo->sourceEnd() - signedInfo->sourceStart());
  return true;
}

bool ClsXmlDSig::locateSignedInfo(SignatureLocation& location, LogBase& log) {
  // The first reference is what names a signature without Id to the text locator.
  DSigReference firstRef;
  {
    RcPtr<ClsXml> refElement(getReference(0, log));
    if (!refElement) {
      log.LogError("No Reference at index 0");
      return false;
    }
    firstRef.parseReference(refElement.get(), log);
  }
  XmlSigLocate locator;
  if (!locateSignature(locator, location.id, firstRef.digestValue, 3, log)) return false;
  location.signature = {locator.m_sigStart, locator.m_sigStart + size_t{locator.m_sigLength}};
  location.signedInfo = {locator.m_signedInfoStart, locator.m_signedInfoStart + size_t{locator.m_signedInfoLength}};
  return true;
}
