// ClsXmlDSig: creation, destruction and the simple properties of the verifier.
#include "dsig/ClsXmlDSig.h"

#include "dsig/keys/SignerState.h"
#include "dsig/reference/ReferenceResult.h"

#include <new>

#include "support/ClsXml.h"
#include "support/LogBase.h"

ClsXmlDSig* ClsXmlDSig::createNewCls() {
  try {
    return new (std::nothrow) ClsXmlDSig();
  } catch (...) {
    // A member's constructor failed (allocation inside it): the caller gets null.
    return nullptr;
  }
}

ClsXmlDSig::ClsXmlDSig()
    : m_recordOwned(std::make_unique<VerificationRecord>()),
      m_record(*m_recordOwned),
      m_signerPolicyOwned(std::make_unique<SignerPolicy>()),
      m_signerResultOwned(std::make_unique<SignerResult>()),
      m_signerPolicy(*m_signerPolicyOwned),
      m_signerResult(*m_signerResultOwned) {}

ClsXmlDSig::~ClsXmlDSig() {
  try {
    CritSecExitor lock(*this);
    // The tree's root goes before the signature handles taken from it.
    if (m_xmlRoot) {
      m_xmlRoot->decRefCount();
      m_xmlRoot = nullptr;
    }
    m_signatures.removeAllObjects();
    m_selector = 0;
    m_publicKeys.removeAllObjects();
  } catch (...) {
    // Taking the lock can only fail if the system is out of resources; the members
    // are still destroyed below.
  }
}

void ClsXmlDSig::put_Selector(int index) {
  CritSecExitor lock(*this);
  const int count = m_signatures.getSize();
  if (index >= count) index = count - 1;
  if (index < 0) index = 0;
  m_selector = index;
}

int ClsXmlDSig::get_NumSignatures() {
  CritSecExitor lock(*this);
  return m_signatures.getSize();
}

int ClsXmlDSig::get_NumReferences() {
  CritSecExitor lock(*this);
  LogNull quiet;  // a property read leaves the log of the last call as it was
  return numReferences(selectedSignature(), quiet);
}

void ClsXmlDSig::get_VerifyOptions(XString& out) {
  CritSecExitor lock(*this);
  get_CmsOptions(out);
}

void ClsXmlDSig::put_VerifyOptions(const XString& options) {
  CritSecExitor lock(*this);
  put_CmsOptions(options);
}

void ClsXmlDSig::get_ExternalRefDirs(XString& out) {
  CritSecExitor lock(*this);
  out.copyFromX(m_externalRefDirs);
}

void ClsXmlDSig::put_ExternalRefDirs(const XString& dirs) {
  CritSecExitor lock(*this);
  m_externalRefDirs.copyFromX(dirs);
}

bool ClsXmlDSig::SelectSignatureById(const XString& id) {
  OperationFrame frame(*this, "SelectSignatureById", false);
  return selectBySignatureId(id.getUtf8Sb(), m_log);
}
