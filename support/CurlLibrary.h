// libcurl, loaded on first use. Only reaching a time-stamp authority needs HTTP, and linking
// libcurl pulls some thirty libraries (TLS stacks, LDAP, Kerberos, SSH...) into every start of
// the tool; loading it when the first request is made keeps verification's start-up small.
#pragma once

#include <curl/curl.h>

#include <string>

struct CurlLibrary {
  CURLcode (*global_init)(long flags);
  CURL* (*easy_init)();
  void (*easy_cleanup)(CURL*);
  CURLcode (*easy_setopt)(CURL*, CURLoption, ...);
  CURLcode (*easy_perform)(CURL*);
  CURLcode (*easy_getinfo)(CURL*, CURLINFO, ...);
  const char* (*easy_strerror)(CURLcode);
  curl_slist* (*slist_append)(curl_slist*, const char*);
  void (*slist_free_all)(curl_slist*);
};

// The process's libcurl, loaded and initialised once (thread-safe); null when it cannot be
// loaded, with the loader's reason in error. The library stays loaded until the process ends.
const CurlLibrary* loadCurlLibrary(std::string& error);
