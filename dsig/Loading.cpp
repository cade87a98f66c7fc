// Loading XML into the verifier, collecting its signatures and selecting one.
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsBinData.h"
#include "support/ClsStringBuilder.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

// ---- public loaders ----

bool ClsXmlDSig::LoadSignature(XString& xml) {
  OperationFrame frame(*this, "LoadSignature", false);
  // Text that arrives as Windows-1252 mistaken for UTF-8 is repaired before anything else.
  xml.checkFixUtf8Windows1252(m_log);
  m_log.clearLastJsonData();
  return loadSignature(xml, m_log);
}

bool ClsXmlDSig::LoadSignatureSb(ClsStringBuilder& xml) {
  OperationFrame frame(*this, "LoadSignatureSb", true);
  return loadSignature(xml.getXString(), m_log);
}

bool ClsXmlDSig::LoadSignatureBd(ClsBinData& xml) {
  OperationFrame frame(*this, "LoadSignatureBd", true);
  return loadSignatureBd(xml, m_log);
}

// ---- internal loaders ----

namespace {

// The tree reads m_xmlSb where it is (loadXmlBorrowed) instead of holding a second copy of a
// possibly huge document. So every handle on it (the root and the signatures, and any taken
// while an operation runs, which release theirs before returning) is dropped here, before
// m_xmlSb is replaced, and in the destructor; GetKeyInfo, the one call that hands an element
// to the caller, gives a handle on a tree of its own.
void releaseDocument(ClsXml*& root, ExtPtrArrayRc& signatures, int32_t& selector) {
  selector = 0;
  if (root) {
    root->decRefCount();
    root = nullptr;
  }
  signatures.removeAllObjects();
}

}  // namespace

bool ClsXmlDSig::loadSignature(XString& xml, LogBase& log) {
  releaseDocument(m_xmlRoot, m_signatures, m_selector);
  m_record.clear();  // results of the document loaded before

  // The keywords are the object's own, whatever log the caller passed.
  m_isZatca = m_log.hasUncommonOption("ZATCA", true);
  if (m_isZatca) {
    m_noSortBugRetry = true;
    log.LogInfo("Will validate according to ZATCA rules...");
  }
  m_isMyInvois = m_log.hasUncommonOption("MYINVOIS", true);
  if (m_isMyInvois) {
    m_noSortBugRetry = true;
    log.LogInfo("Will validate according to MyInvois rules...");
  }

  m_xmlSb.setString(xml.getUtf8Sb());
  // Detection clears m_noSortBugRetry again; the verification sets it for itself.
  detectSpecial(m_xmlSb, log);
  return loadTree(log);
}

// Bytes in any encoding. The ZATCA and MyInvois modes are not re-read from the options:
// they keep what the last text load set.
bool ClsXmlDSig::loadSignatureBd(ClsBinData& xml, LogBase& log) {
  releaseDocument(m_xmlRoot, m_signatures, m_selector);

  // The caller's bytes stay as they were; conversion works on a copy.
  DataBuffer utf8(xml.getDb());
  const bool converted = utf8.convertXmlToUtf8(log);
  m_xmlSb.clear();
  if (converted) m_xmlSb.takeFromDb(utf8);
  // Also on failure, so that no flag describes the previous document.
  detectSpecial(m_xmlSb, log);
  if (!converted) return false;
  return loadTree(log);
}

// A document without signatures still loads; NumSignatures tells the caller.
bool ClsXmlDSig::loadTree(LogBase& log) {
  m_xmlRoot = ClsXml::createNewCls();
  if (!m_xmlRoot) return false;
  if (!m_xmlRoot->loadXmlBorrowed(m_xmlSb, log)) return false;

  m_xmlRoot->findSignatures(m_signatures, log);
  return true;
}

bool ClsXmlDSig::loadSignatureOwned(std::string& bytes) {
  OperationFrame frame(*this, "LoadSignatureBd", true);
  releaseDocument(m_xmlRoot, m_signatures, m_selector);
  std::string text = std::move(bytes);
  bytes.clear();
  const bool converted = convertXmlTextToUtf8(text, m_log);
  m_xmlSb.clear();
  if (converted) m_xmlSb.takeString(std::move(text));
  detectSpecial(m_xmlSb, m_log);
  if (!converted) return false;
  return loadTree(m_log);
}

// ---- selection ----

ClsXml* ClsXmlDSig::selectedSignature() const { return static_cast<ClsXml*>(m_signatures.elementAt(m_selector)); }

bool ClsXmlDSig::selectBySignatureId(const StringBuffer& id, LogBase& log) {
  LogContextExitor ctx(log, "selectBySignatureId");
  log.LogDataSb("signatureId", id);

  StringBuffer sigId;
  const int count = m_signatures.getSize();
  for (int i = 0; i < count; ++i) {
    ClsXml* sig = static_cast<ClsXml*>(m_signatures.elementAt(i));
    if (!sig) continue;
    sigId.clear();
    if (sig->getAttrValue("Id", sigId) && sigId.equals(id)) {
      m_selector = i;
      return true;
    }
  }
  log.LogError("Signature with Id not found.");
  return false;
}

bool ClsXmlDSig::selectedSignatureId(StringBuffer& out, LogBase&) {
  out.clear();
  ClsXml* sig = selectedSignature();
  if (!sig) return false;
  return sig->getAttrValue("Id", out);
}

// ---- references of the selected signature ----

ClsXml* ClsXmlDSig::getReference(int index, LogBase& log) {
  LogContextExitor ctx(log, "getReference");
  if (log.m_verboseLogging) {
    log.LogDataLong("m_selector", m_selector);
    log.LogDataLong("index", index);
  }

  ClsXml* sig = selectedSignature();
  if (!sig) {
    log.LogError("No object in dsig array at the current selector index.");
    log.LogDataLong("selectorIndex", m_selector);
    return nullptr;
  }
  RcPtr<ClsXml> signedInfo(sig->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) {
    log.LogError("No SignedInfo child.");
    return nullptr;
  }
  ClsXml* reference = index >= 0 ? signedInfo->getNthChildWithTagUtf8("*:Reference", index, log) : nullptr;
  if (!reference) {
    log.LogError("No Reference element at the requested index.");
    log.LogDataLong("index", index);
  }
  return reference;
}

int ClsXmlDSig::numReferences(ClsXml* signature, LogBase& log) {
  if (!signature) return 0;
  RcPtr<ClsXml> signedInfo(signature->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) return 0;
  return signedInfo->numChildrenHavingTagUtf8("*:Reference", log);
}
