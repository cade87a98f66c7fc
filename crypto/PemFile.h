// Reading files of keys and certificates: whole-file reads and PEM armour
// ("-----BEGIN label-----" ... "-----END label-----", base64 in between).
#pragma once

#include <string>
#include <vector>

class DataBuffer;
class LogBase;

namespace pem {

struct Block {
  std::string label;               // "CERTIFICATE", "PUBLIC KEY", ...
  std::vector<unsigned char> der;  // the decoded body
};

// The whole file; false (logged) when it cannot be read.
bool readFile(const char* path, DataBuffer& out, LogBase& log);
// True when the bytes contain a PEM begin line.
bool looksLikePem(const DataBuffer& bytes);
// Every PEM block in the text, in order. False (logged) when a block is malformed or
// none is found.
bool parse(const DataBuffer& bytes, std::vector<Block>& out, LogBase& log);
// A "TRUSTED CERTIFICATE" body is the certificate followed by trust settings: keep only
// the certificate.
void stripTrustedCertAux(DataBuffer& der);

}  // namespace pem
