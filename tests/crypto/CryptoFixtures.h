// Keys, certificates and signatures made by the openssl command line
// (fixtures/make_sig_fixtures.sh), generated once per build tree and shared by the tests.
#pragma once

#include <string>

#include "support/DataBuffer.h"

namespace cryptofixtures {

// Directory holding the generated files, or "" when generation failed.
const std::string& dir();
// The bytes of a generated file (empty when missing).
DataBuffer file(const std::string& name);
std::string path(const std::string& name);

}  // namespace cryptofixtures

// Skips the test when the openssl command line could not make the fixtures.
#define REQUIRE_SIG_FIXTURES()                                                        \
  do {                                                                                \
    if (cryptofixtures::dir().empty()) GTEST_SKIP() << "openssl fixtures unavailable"; \
  } while (0)
