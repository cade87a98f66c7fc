// _clsCades: the CMS options text and the HTTP object through which a time-stamp
// authority is reached; handed whole to the time-stamp operations.
#pragma once

#include "support/RefCountedObject.h"
#include "support/XString.h"

class ClsHttp;
class LogBase;

class _clsCades {
 public:
  _clsCades() = default;
  virtual ~_clsCades() = default;
  _clsCades(const _clsCades&) = delete;
  _clsCades& operator=(const _clsCades&) = delete;

  void get_CmsOptions(XString& out) const { out.copyFromX(m_cmsOptions); }
  void put_CmsOptions(const XString& options) { m_cmsOptions.copyFromX(options); }
  const XString& cmsOptions() const { return m_cmsOptions; }

  // Keeps a reference to the caller's HTTP object for later time-stamp requests.
  // Defined with the time-stamp code, where ClsHttp is a complete type.
  void setTsaHttpObj(ClsHttp* http, LogBase& log);
  ClsHttp* tsaHttpObj() const;

 protected:
  XString m_cmsOptions;
  RefCountedObjectOwner m_http;  // the caller's HTTP object, one reference held
};
