#include "crypto/ClsXmlCertVault.h"

#include <algorithm>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "crypto/PemFile.h"
#include "support/DataBuffer.h"
#include "support/XString.h"

namespace fs = std::filesystem;

ClsXmlCertVault::ClsXmlCertVault() : m_certMgr(CertMgr::create()) {}

ClsXmlCertVault* ClsXmlCertVault::createNewCls() {
  try {
    return new (std::nothrow) ClsXmlCertVault();
  } catch (const std::bad_alloc&) {  // the certificate manager could not be allocated
    return nullptr;
  }
}

bool ClsXmlCertVault::AddCertFile(const XString& path) {
  CritSecExitor lock(*this);
  LogContextExitor ctx(m_log, "AddCertFile");
  m_log.LogDataX("path", path);
  DataBuffer bytes;
  const bool ok = pem::readFile(path.getUtf8(), bytes, m_log) && m_certMgr->addCertBytes(bytes, m_log) > 0;
  m_log.logResult(ok);
  return ok;
}

bool ClsXmlCertVault::AddCertDir(const XString& dir) {
  CritSecExitor lock(*this);
  LogContextExitor ctx(m_log, "AddCertDir");
  m_log.LogDataX("dir", dir);
  std::error_code ec;
  std::vector<std::string> files;
  for (fs::directory_iterator it(dir.getUtf8(), ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec)) files.push_back(it->path().string());
  if (ec) {
    m_log.LogError("Failed to read the directory.");
    m_log.LogDataStr("reason", ec.message().c_str());
    m_log.logResult(false);
    return false;
  }
  std::sort(files.begin(), files.end());  // a stable order, whatever the file system gives
  int count = 0;
  LogNull quiet;  // files that are not certificates are expected in a directory
  for (const std::string& file : files) {
    DataBuffer bytes;
    if (pem::readFile(file.c_str(), bytes, quiet)) count += m_certMgr->addCertBytes(bytes, quiet);
  }
  m_log.LogDataLong("numCertsRead", count);
  const bool ok = count > 0;
  if (!ok) m_log.LogError("No certificate found in the directory.");
  m_log.logResult(ok);
  return ok;
}

bool ClsXmlCertVault::AddCertString(const XString& text) {
  CritSecExitor lock(*this);
  LogContextExitor ctx(m_log, "AddCertString");
  const bool ok = m_certMgr->addCertText(text.getUtf8Sb(), m_log);
  m_log.logResult(ok);
  return ok;
}

int ClsXmlCertVault::get_NumCerts() {
  CritSecExitor lock(*this);
  return m_certMgr->numCerts();
}
