// Documents signed by xmlsec1 and openssl at test time (tests/tools/make_verify_fixtures.sh),
// made once per test process, with a scratch directory beside them. Shared by the verifier
// and the command-line tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace signedfixtures {

class Fixtures {
 public:
  Fixtures() : dir_(testsupport::makeTempDir("signed-fixtures")) {
    const std::string script = testsupport::sourceDir() + "/tests/tools/make_verify_fixtures.sh";
    ok_ = std::system(("bash '" + script + "' '" + dir_ + "/fx' >/dev/null 2>&1").c_str()) == 0;
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
  static const Fixtures f;
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

#define REQUIRE_FIXTURES() \
  ASSERT_TRUE(signedfixtures::fixtures().ok()) << "make_verify_fixtures.sh failed (needs xmlsec1 and openssl)"
