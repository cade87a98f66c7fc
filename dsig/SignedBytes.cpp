// The bytes a signature value covers and their hash. As a rule they are the canonical
// SignedInfo, read inside its ancestors' inherited context; document families differ: a
// SII DTE or a doda document canonicalizes SignedInfo inside the fragment it was cut from,
// a ZATCA invoice signs the hash of its invoice hash, and a MyInvois document signs the
// digest of the document itself.
#include <string>

#include "crypto/_btHash.h"
#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/SignatureLocation.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/keys/SignatureValueCheck.h"
#include "dsig/reference/ReferenceResult.h"
#include "dsig/transform/TransformAlgorithms.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlCanon.h"

namespace {

// The SII web domain without its leading host label ("www.sii.cl" -> "sii.cl"), as the
// SII failure message names it.
std::string siiDomainWithoutHost() {
  std::string domain = dsig_family::kChileSiiDomain;
  size_t dot = domain.find('.');
  return dot == std::string::npos ? domain : domain.substr(dot + 1);
}

}  // namespace

bool ClsXmlDSig::signedInfoCanonicalizer(XmlCanon& canon, StringBuffer& canonAlgorithm, LogBase& log) {
  StringBuffer prefixList;
  if (!getCanonicalizationMethod(canonAlgorithm, prefixList, log)) {
    noteFailure("structure");
    log.LogError("Unable to get SignedInfo CanonicalizationMethod.");
    return false;
  }
  if (!prefixList.isEmpty()) prefixList.split(canon.inclusivePrefixes, ' ', true, true);
  const dsig_algorithms::AlgorithmRow* c14nRow = dsig_algorithms::findAlgorithm(canonAlgorithm.view());
  if (!c14nRow || c14nRow->kind != dsig_algorithms::StepKind::Canonical) {
    noteFailure("unsupported-algorithm",
                "unsupported canonicalization algorithm \"" + std::string(canonAlgorithm.view()) + "\"");
    log.LogError(("Unknown canonicalization method: " + std::string(canonAlgorithm.view())).c_str());
    logSuccessFailure2(false, log);
    return false;
  }
  canon.canonMethod = c14nRow->form == dsig_algorithms::CanonicalForm::Exclusive10 ? 2 : 1;
  canon.withComments = c14nRow->withComments;
  canon.canonFlagSignedInfo = false;
  if (family().emulatesAttrSortBug()) {
    log.LogInfo("Will duplicate the XML canonicalization attribute sorting bug...");
    canon.emulateAttrSortBug = true;
  }
  if (!family().signedInfoNonSkXml()) canon.canonFlagNonSkXml = false;
  return true;
}

bool ClsXmlDSig::canonicalSignedInfo(ClsXml& signature, const SignatureLocation& location, StringBuffer& canonAlgorithm,
                                     StringBuffer& out, LogBase& log) {
  const size_t signedInfoStart = location.signedInfo.start;
  if (family().logsSignedInfo())
    log.LogBracketed("signedInfo", m_xmlSb.substr(signedInfoStart, location.signedInfo.end - signedInfoStart));
  XmlCanon canon;
  if (!signedInfoCanonicalizer(canon, canonAlgorithm, log)) return false;

  using dsig_family::SignedBytes;
  const SignedBytes signedBytes = family().signedBytes();
  const bool siiCase = signedBytes == SignedBytes::SignedInfoInSiiDte && !m_siiDteXml.isEmpty() &&
                       m_siiDteOffset != 0 && static_cast<size_t>(m_siiDteOffset) < signedInfoStart;
  if (siiCase) {
    const size_t offset = signedInfoStart - static_cast<size_t>(m_siiDteOffset);
    if (!canon.xmlCanonicalize(m_siiDteXml, nullptr, offset, out, log)) {
      noteFailure("canonicalization-failed");
      std::string msg = "Failed to canonicalize " + siiDomainWithoutHost() + " SignedInfo fragment.";
      log.LogError(msg.c_str());
      return false;
    }
  } else if (signedBytes == SignedBytes::SignedInfoInDoda) {
    StringBuffer doda;
    size_t dodaPos = 0;
    if (!dsig_family::dodaElementText(&signature, doda, dodaPos, log)) {
      noteFailure("structure", "the doda element is not the one written around the signature");
      return false;
    }
    const size_t offset = signedInfoStart - dodaPos;
    if (!canon.xmlCanonicalize(doda, nullptr, offset, out, log)) {
      noteFailure("canonicalization-failed");
      log.LogError("Failed to canonicalize doda SignedInfo fragment.");
      return false;
    }
  } else if (signedBytes == SignedBytes::ZatcaInvoiceHash) {
    RcPtr<ClsXml> refElement(getReference(0, log));
    if (!refElement) {
      log.LogError("Failed to get first reference for signature verification.");
      return false;
    }
    if (!dsig_family::zatcaInvoiceChainIsFixed(refElement.get(), log)) {
      noteFailure("structure",
                  "the invoice reference does not carry exactly the ZATCA transform chain, which the "
                  "signature value does not cover");
      return false;
    }
    if (!refElement->getChildContentUtf8("*:DigestValue", out, false)) {
      log.LogError("Failed to get invoiceHash for signature verification.");
      return false;
    }
  } else {
    // SignedInfo inside its ancestors' inherited context reads as it does in the whole
    // document, without canonicalizing everything that comes before it. The canonicalizer
    // logs only failures; a failure there is left to the whole document to report.
    StringBuffer context;
    size_t contextOffset = 0;
    LogNull quietCanon;
    RcPtr<ClsXml> signedInfo(signature.getChildWithTagUtf8("*:SignedInfo"));
    const xml::XmlTree* tree = signedInfo ? signedInfo->tree() : nullptr;
    const bool done = tree && elementInContext(tree->indexOf(*signedInfo->node()), {}, context, contextOffset) &&
                      canon.xmlCanonicalize(context, nullptr, contextOffset, out, quietCanon);
    if (!done && !canon.xmlCanonicalize(m_xmlSb, nullptr, signedInfoStart, out, log)) {
      noteFailure("canonicalization-failed");
      log.LogError("Failed to canonicalize SignedInfo fragment.");
      return false;
    }
  }
  if (log.m_verboseLogging) log.LogBracketed("canonicalizedSignedInfo", out);
  if (m_record.keepDigestedBytes) {
    m_record.canonicalSignedInfo.assign(out.getString(), out.getSize());
    m_record.signedInfoKept = true;
  }
  return true;
}

void ClsXmlDSig::hashSignedBytes(const sigvalue::Method& method, sigvalue::Signed& data) {
  switch (family().signedBytes()) {
    case dsig_family::SignedBytes::ZatcaInvoiceHash: {
      DataBuffer invoiceHash;
      ContentCoding::decodeBase64ToDb(data.bytes.getString(), data.bytes.getSize(), invoiceHash);
      _btHash::doHash(invoiceHash.getData2(), invoiceHash.getSize(), method.hashId, data.hash);
      return;
    }
    case dsig_family::SignedBytes::MyInvoisDocumentDigest: data.hash = m_myInvoisDigest; return;
    case dsig_family::SignedBytes::CanonicalSignedInfo:
    case dsig_family::SignedBytes::SignedInfoInSiiDte:
    case dsig_family::SignedBytes::SignedInfoInDoda: break;
  }
  _btHash::doHash(data.bytes.getString(), data.bytes.getSize(), method.hashId, data.hash);
}
