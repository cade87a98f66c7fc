// Keys, certificates and signatures made by the openssl command line
// (fixtures/make_sig_fixtures.sh), generated once per build tree, and the helpers the
// crypto tests share.
#pragma once

#include <string>

#include "crypto/ClsPublicKey.h"
#include "support/SupportTestHelpers.h"

namespace cryptofixtures {

// Directory holding the generated files, or "" when generation failed.
const std::string& dir();
// The bytes of a generated file (empty when missing).
DataBuffer file(const std::string& name);
std::string path(const std::string& name);

std::string hex(const DataBuffer& db, bool lower = true);
DataBuffer fromHex(const std::string& hex);
std::string base64(const DataBuffer& db);
// Base64 as documents carry it ("&#13;" line ends included); empty when it does not decode.
DataBuffer fromBase64(const std::string& text);
// The bytes with one bit of the middle byte flipped.
DataBuffer tampered(DataBuffer db);
// A key loaded with LoadFromFile (fixture name or absolute path; none when empty).
struct Key {
  explicit Key(const std::string& nameOrPath = "");
  std::string type();
  DataBuffer spki();
  RcPtr<ClsPublicKey> obj;
  bool loaded = false;
};

// One verification over a hash: whether it ran, its verdict, and a key mismatch.
struct Verdict {
  bool ran = false, valid = false, keyMismatch = false;
};
Verdict verifyRsa(ClsPublicKey& key, const DataBuffer& sig, const DataBuffer& hash, int hashId, int padding = 1,
                  int mgfHashId = 0, bool lenient = true);
Verdict verifyDsa(ClsPublicKey& key, const DataBuffer& sig, const DataBuffer& hash, bool rawFirst = true);
Verdict verifyEcdsa(ClsPublicKey& key, const DataBuffer& sig, const DataBuffer& hash);

}  // namespace cryptofixtures

// Skips the test when the openssl command line could not make the fixtures.
#define REQUIRE_SIG_FIXTURES()                                                         \
  do {                                                                                 \
    if (cryptofixtures::dir().empty()) GTEST_SKIP() << "openssl fixtures unavailable"; \
  } while (0)
