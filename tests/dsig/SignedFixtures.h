// Documents signed by xmlsec1 and openssl at test time, made once per test process by a
// script of tests/tools/, with a scratch directory beside them: the verification set
// (make_verify_fixtures.sh) and a small PKI with documents signed in it
// (make_trust_fixtures.sh). Shared by the verifier and the command-line tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace signedfixtures {

class Fixtures {
 public:
  explicit Fixtures(const std::string& script) : dir_(testsupport::makeTempDir("signed-fixtures")) {
    const std::string path = testsupport::sourceDir() + "/tests/tools/" + script;
    ok_ = std::system(("bash '" + path + "' '" + dir_ + "/fx' >/dev/null 2>&1").c_str()) == 0;
  }
  ~Fixtures() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  bool ok() const { return ok_; }
  std::string path(const std::string& name) const { return dir_ + "/fx/" + name; }
  std::string text(const std::string& name) const { return testsupport::readFile(path(name)); }
  std::string scratch(const std::string& name) const { return dir_ + "/" + name; }

 private:
  std::string dir_;
  bool ok_ = false;
};

inline const Fixtures& fixtures() {
  static const Fixtures f("make_verify_fixtures.sh");
  return f;
}

// The text with the first occurrence of `from` replaced (which must occur).
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

}  // namespace signedfixtures

namespace trustfixtures {
inline const signedfixtures::Fixtures& fixtures() {
  static const signedfixtures::Fixtures f("make_trust_fixtures.sh");
  return f;
}
}  // namespace trustfixtures

#define REQUIRE_FIXTURES() \
  ASSERT_TRUE(signedfixtures::fixtures().ok()) << "make_verify_fixtures.sh failed (needs xmlsec1 and openssl)"
#define REQUIRE_TRUST_FIXTURES() \
  ASSERT_TRUE(trustfixtures::fixtures().ok()) << "make_trust_fixtures.sh failed (needs openssl and xmlsec1)"
