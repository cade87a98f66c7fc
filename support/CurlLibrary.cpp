#include "support/CurlLibrary.h"

#include <dlfcn.h>

#include <mutex>

namespace {

// The shared object names a Debian system provides for the runtime library (libcurl4 and
// its GnuTLS/NSS flavours); the unversioned name is only present with the development files.
constexpr const char* kLibraryNames[] = {"libcurl.so.4", "libcurl-gnutls.so.4", "libcurl-nss.so.4", "libcurl.so"};

template <typename Fn>
bool bind(void* handle, const char* name, Fn& out, std::string& error) {
  out = reinterpret_cast<Fn>(dlsym(handle, name));
  if (!out) error = std::string("libcurl lacks ") + name;
  return out != nullptr;
}

struct LoadedCurl {
  CurlLibrary api{};
  std::string error;
  bool ok = false;

  LoadedCurl() {
    void* handle = nullptr;
    for (const char* name : kLibraryNames)
      if ((handle = dlopen(name, RTLD_NOW | RTLD_LOCAL)) != nullptr) break;
    if (!handle) {
      const char* why = dlerror();
      error = std::string("libcurl could not be loaded: ") + (why ? why : "not found");
      return;
    }
    ok = bind(handle, "curl_global_init", api.global_init, error) &&
         bind(handle, "curl_easy_init", api.easy_init, error) &&
         bind(handle, "curl_easy_cleanup", api.easy_cleanup, error) &&
         bind(handle, "curl_easy_setopt", api.easy_setopt, error) &&
         bind(handle, "curl_easy_perform", api.easy_perform, error) &&
         bind(handle, "curl_easy_getinfo", api.easy_getinfo, error) &&
         bind(handle, "curl_easy_strerror", api.easy_strerror, error) &&
         bind(handle, "curl_slist_append", api.slist_append, error) &&
         bind(handle, "curl_slist_free_all", api.slist_free_all, error);
    if (ok && api.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
      error = "libcurl failed to initialise";
      ok = false;
    }
  }
};

}  // namespace

const CurlLibrary* loadCurlLibrary(std::string& error) {
  // One load per process: libcurl's global initialisation must happen once, before any
  // handle is made, and is not itself thread-safe.
  static const LoadedCurl loaded;
  if (!loaded.ok) {
    error = loaded.error;
    return nullptr;
  }
  return &loaded.api;
}
