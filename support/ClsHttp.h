// ClsHttp: the HTTP client object through which a time-stamp authority is reached.
// Built on libcurl: TLS certificate verification on by default, proxies taken from the
// usual environment variables, connect and overall timeouts, every failure explained in
// the log (no connection, HTTP status, unexpected content type).
#pragma once

#include <string>

#include "support/RefCountedObject.h"

class DataBuffer;
class LogBase;

class ClsHttp : public RefCountedObject {
 public:
  static ClsHttp* createNewCls();
  ClsHttp() = default;

  int connectTimeoutSeconds = 10;
  int readTimeoutSeconds = 30;
  bool verifyTls = true;
  std::string login;  // basic authentication, when not empty
  std::string password;

  // POSTs body with the given content type. True when the exchange completed with HTTP 200;
  // response and its content type are filled whenever a response arrived.
  bool postBinary(const char* url, const DataBuffer& body, const char* contentType, DataBuffer& response,
                  std::string& responseContentType, LogBase& log);

 protected:
  ~ClsHttp() override = default;
};
