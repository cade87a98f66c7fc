#include "crypto/PemFile.h"

#include <fstream>
#include <iterator>
#include <string_view>

#include "crypto/Der.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace pem {

bool readFile(const char* path, DataBuffer& out, LogBase& log) {
  out.clear();
  std::ifstream in(path ? path : "", std::ios::binary);
  if (!in) {
    log.LogError("Failed to open file.");
    log.LogDataStr("path", path ? path : "");
    return false;
  }
  std::vector<unsigned char>& bytes = out.bytes();
  bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad()) {
    out.clear();
    log.LogError("Failed to read file.");
    log.LogDataStr("path", path);
    return false;
  }
  return true;
}

bool looksLikePem(const DataBuffer& bytes) { return bytes.view().find("-----BEGIN ") != std::string_view::npos; }

bool parse(const DataBuffer& bytes, std::vector<Block>& out, LogBase& log) {
  const std::string_view text = bytes.view();
  const size_t countBefore = out.size();
  size_t pos = 0;
  for (;;) {
    const size_t begin = text.find("-----BEGIN ", pos);
    if (begin == std::string_view::npos) break;
    const size_t labelStart = begin + 11;
    const size_t labelEnd = text.find("-----", labelStart);
    if (labelEnd == std::string_view::npos) break;
    Block block;
    block.label = std::string(text.substr(labelStart, labelEnd - labelStart));
    const std::string endLine = "-----END " + block.label + "-----";
    const size_t bodyStart = labelEnd + 5;
    const size_t end = text.find(endLine, bodyStart);
    if (end == std::string_view::npos) {
      log.LogError("PEM block without its END line.");
      log.LogDataStr("label", block.label.c_str());
      return false;
    }
    // Skip RFC 1421 header lines ("Proc-Type: ...") that precede the base64 body.
    std::string_view body = text.substr(bodyStart, end - bodyStart);
    const size_t colon = body.rfind(':');
    if (colon != std::string_view::npos) {
      const size_t lineEnd = body.find('\n', colon);
      body = lineEnd == std::string_view::npos ? std::string_view() : body.substr(lineEnd + 1);
    }
    DataBuffer der;
    if (!ContentCoding::decodeBase64ToDb(body.data(), body.size(), der)) {
      log.LogError("Invalid base64 in PEM block.");
      log.LogDataStr("label", block.label.c_str());
      return false;
    }
    block.der = der.bytes();
    out.push_back(std::move(block));
    pos = end + endLine.size();
  }
  if (out.size() == countBefore) {
    log.LogError("No PEM block found.");
    return false;
  }
  return true;
}

void stripTrustedCertAux(DataBuffer& der) {
  der::Tlv cert;
  if (der::readTlv(der.getData2(), der.getSize(), 0, cert) && cert.end < der.getSize()) der.resize(cert.end);
}

}  // namespace pem
