// A small PKI and documents signed with it (tests/tools/make_trust_fixtures.sh), made once
// per test process. Shared by the verifier and the command-line tests.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace trustfixtures {

class Fixtures {
 public:
  Fixtures() : dir_(testsupport::makeTempDir("trust-fixtures")) {
    const std::string script = testsupport::sourceDir() + "/tests/tools/make_trust_fixtures.sh";
    ok_ = std::system(("bash '" + script + "' '" + dir_ + "/fx' >/dev/null 2>&1").c_str()) == 0;
  }
  ~Fixtures() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  bool ok() const { return ok_; }
  std::string path(const std::string& name) const { return dir_ + "/fx/" + name; }

 private:
  std::string dir_;
  bool ok_ = false;
};

inline const Fixtures& fixtures() {
  static const Fixtures f;
  return f;
}

}  // namespace trustfixtures

#define REQUIRE_TRUST_FIXTURES() \
  ASSERT_TRUE(trustfixtures::fixtures().ok()) << "make_trust_fixtures.sh failed (needs openssl and xmlsec1)"
