// The base64 SHA-256 digest of canonicalized text, to compare with a DigestValue.
#pragma once

#include <openssl/evp.h>

#include <string>

#include "support/LogBase.h"
#include "xml/XmlCanon.h"

namespace digestprobe {

inline std::string sha256Base64(const std::string& data) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(data.data(), data.size(), md, &len, EVP_sha256(), nullptr);
  std::string b64(4 * ((len + 2) / 3) + 1, '\0');
  b64.resize(static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&b64[0]), md, static_cast<int>(len))));
  return b64;
}

// Canonicalizes the whole text (1 inclusive, 2 exclusive) and digests it; "" on failure.
inline std::string canonicalDigest(const StringBuffer& text, int method) {
  XmlCanon canon;
  canon.canonMethod = method;
  StringBuffer out;
  LogNull log;
  if (!canon.xmlCanonicalize(text, nullptr, 0, out, log)) return "";
  return sha256Base64(out.str());
}

}  // namespace digestprobe
