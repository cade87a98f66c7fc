#include "support/ClsHttp.h"

#include <memory>
#include <new>
#include <string>

#include "support/CurlLibrary.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

// Handles are freed through the loaded library's own functions.
struct CurlEasyDeleter {
  const CurlLibrary* curl;
  void operator()(CURL* h) const { curl->easy_cleanup(h); }
};
struct CurlListDeleter {
  const CurlLibrary* curl;
  void operator()(curl_slist* l) const { curl->slist_free_all(l); }
};

size_t appendToDataBuffer(char* ptr, size_t size, size_t nmemb, void* userdata) {
  auto* out = static_cast<DataBuffer*>(userdata);
  const size_t n = size * nmemb;
  return out->append(ptr, n) ? n : 0;
}

}  // namespace

ClsHttp* ClsHttp::createNewCls() {
  try {
    return new (std::nothrow) ClsHttp();
  } catch (...) {
    return nullptr;
  }
}

bool ClsHttp::postBinary(const char* url, const DataBuffer& body, const char* contentType, DataBuffer& response,
                         std::string& responseContentType, LogBase& log) {
  LogContextExitor ctx(log, "httpPost");
  response.clear();
  responseContentType.clear();
  if (!url || !*url) {
    log.LogError("No URL to send the request to.");
    return false;
  }
  log.LogDataStr("url", url);
  std::string loadError;
  const CurlLibrary* lib = loadCurlLibrary(loadError);
  if (!lib) {
    log.LogError(loadError.c_str());
    return false;
  }
  std::unique_ptr<CURL, CurlEasyDeleter> curl(lib->easy_init(), CurlEasyDeleter{lib});
  if (!curl) {
    log.LogError("Failed to create an HTTP handle.");
    return false;
  }
  std::string header = std::string("Content-Type: ") + (contentType ? contentType : "application/octet-stream");
  std::unique_ptr<curl_slist, CurlListDeleter> headers(lib->slist_append(nullptr, header.c_str()),
                                                       CurlListDeleter{lib});
  char errorBuffer[CURL_ERROR_SIZE] = {0};

  CURL* h = curl.get();
  lib->easy_setopt(h, CURLOPT_URL, url);
  lib->easy_setopt(h, CURLOPT_POST, 1L);
  lib->easy_setopt(h, CURLOPT_POSTFIELDS, reinterpret_cast<const char*>(body.getData2()));
  lib->easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.getSize()));
  lib->easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());
  lib->easy_setopt(h, CURLOPT_WRITEFUNCTION, appendToDataBuffer);
  lib->easy_setopt(h, CURLOPT_WRITEDATA, &response);
  lib->easy_setopt(h, CURLOPT_ERRORBUFFER, errorBuffer);
  lib->easy_setopt(h, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeoutSeconds));
  lib->easy_setopt(h, CURLOPT_TIMEOUT, static_cast<long>(connectTimeoutSeconds + readTimeoutSeconds));
  lib->easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  lib->easy_setopt(h, CURLOPT_FOLLOWLOCATION, 1L);
  lib->easy_setopt(h, CURLOPT_MAXREDIRS, 5L);
  lib->easy_setopt(h, CURLOPT_SSL_VERIFYPEER, verifyTls ? 1L : 0L);
  lib->easy_setopt(h, CURLOPT_SSL_VERIFYHOST, verifyTls ? 2L : 0L);
  if (!login.empty()) {
    lib->easy_setopt(h, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    lib->easy_setopt(h, CURLOPT_USERNAME, login.c_str());
    lib->easy_setopt(h, CURLOPT_PASSWORD, password.c_str());
  }

  const CURLcode rc = lib->easy_perform(h);
  if (rc != CURLE_OK) {
    std::string msg = std::string("HTTP request failed: ") + (errorBuffer[0] ? errorBuffer : lib->easy_strerror(rc));
    log.LogError(msg.c_str());
    return false;
  }
  long status = 0;
  lib->easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
  char* type = nullptr;
  lib->easy_getinfo(h, CURLINFO_CONTENT_TYPE, &type);
  if (type) responseContentType = type;
  log.LogDataLong("httpStatus", status);
  log.LogDataStr("responseContentType", responseContentType.c_str());
  if (status != 200) {
    std::string msg = "The server answered with HTTP status " + std::to_string(status) + ".";
    log.LogError(msg.c_str());
    return false;
  }
  return true;
}
