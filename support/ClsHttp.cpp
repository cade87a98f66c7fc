#include "support/ClsHttp.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

struct CurlEasyDeleter {
  void operator()(CURL* h) const { curl_easy_cleanup(h); }
};
struct CurlListDeleter {
  void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

// libcurl must be initialised once per process before the first handle is made.
void ensureCurlGlobalInit() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

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
  ensureCurlGlobalInit();
  std::unique_ptr<CURL, CurlEasyDeleter> curl(curl_easy_init());
  if (!curl) {
    log.LogError("Failed to create an HTTP handle.");
    return false;
  }
  std::string header = std::string("Content-Type: ") + (contentType ? contentType : "application/octet-stream");
  std::unique_ptr<curl_slist, CurlListDeleter> headers(curl_slist_append(nullptr, header.c_str()));
  char errorBuffer[CURL_ERROR_SIZE] = {0};

  CURL* h = curl.get();
  curl_easy_setopt(h, CURLOPT_URL, url);
  curl_easy_setopt(h, CURLOPT_POST, 1L);
  curl_easy_setopt(h, CURLOPT_POSTFIELDS, reinterpret_cast<const char*>(body.getData2()));
  curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.getSize()));
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, appendToDataBuffer);
  curl_easy_setopt(h, CURLOPT_WRITEDATA, &response);
  curl_easy_setopt(h, CURLOPT_ERRORBUFFER, errorBuffer);
  curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeoutSeconds));
  curl_easy_setopt(h, CURLOPT_TIMEOUT, static_cast<long>(connectTimeoutSeconds + readTimeoutSeconds));
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(h, CURLOPT_MAXREDIRS, 5L);
  curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, verifyTls ? 1L : 0L);
  curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, verifyTls ? 2L : 0L);
  if (!login.empty()) {
    curl_easy_setopt(h, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
    curl_easy_setopt(h, CURLOPT_USERNAME, login.c_str());
    curl_easy_setopt(h, CURLOPT_PASSWORD, password.c_str());
  }

  const CURLcode rc = curl_easy_perform(h);
  if (rc != CURLE_OK) {
    std::string msg = std::string("HTTP request failed: ") + (errorBuffer[0] ? errorBuffer : curl_easy_strerror(rc));
    log.LogError(msg.c_str());
    return false;
  }
  long status = 0;
  curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
  char* type = nullptr;
  curl_easy_getinfo(h, CURLINFO_CONTENT_TYPE, &type);
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
