// ClsXmlCertVault: a collection of certificates a caller assembles (from PEM or DER
// files, a directory of them, or text) and hands to a verifier's certificate store.
// Reference counted: createNewCls gives one reference to the caller.
#pragma once

#include <memory>
#include <string>

#include "crypto/CertMgr.h"
#include "support/CritSec.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"

class XString;

class ClsXmlCertVault : public RefCountedObject, public BrantelCritSec {
 public:
  static ClsXmlCertVault* createNewCls();

  // A PEM file (any number of certificates) or a DER certificate file. True when at
  // least one certificate was read.
  bool AddCertFile(const XString& path);
  // Every file of the directory (not its subdirectories) that holds certificates;
  // other files are skipped. True when at least one certificate was read.
  bool AddCertDir(const XString& dir);
  // PEM text or the base64 of a DER certificate.
  bool AddCertString(const XString& text);
  int get_NumCerts();

  // The manager holding the certificates (shared with the stores it is attached to).
  CertMgr* getCertMgr() const { return m_certMgr.get(); }
  std::string lastErrorText() const { return m_log.renderText(); }

  _btLogger m_log;

 protected:
  ClsXmlCertVault();
  ~ClsXmlCertVault() override = default;

 private:
  std::shared_ptr<CertMgr> m_certMgr;
};
