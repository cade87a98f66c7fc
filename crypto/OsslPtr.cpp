#include "crypto/OsslPtr.h"

#include <openssl/err.h>

#include <string>

#include "support/LogBase.h"

namespace ossl {

void drainErrors(LogBase& log) {
  const char* file = nullptr;
  const char* func = nullptr;
  const char* data = nullptr;
  int line = 0;
  int flags = 0;
  while (unsigned long code = ERR_get_error_all(&file, &line, &func, &data, &flags)) {
    char text[256];
    ERR_error_string_n(code, text, sizeof(text));
    std::string entry(text);
    if (data && (flags & ERR_TXT_STRING) && *data) {
      entry += " (";
      entry += data;
      entry += ")";
    }
    log.LogDataStr("openSslError", entry.c_str());
  }
}

void clearErrors() { ERR_clear_error(); }

MdPtr fetchDigest(const char* name) {
  MdPtr md(EVP_MD_fetch(nullptr, name, nullptr));
  if (!md) ERR_clear_error();
  return md;
}

}  // namespace ossl
