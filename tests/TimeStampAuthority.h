// A real RFC 3161 time-stamp authority for tests (tests/tools/tsa_server.py: openssl ts
// behind a small HTTP server on 127.0.0.1) and documents signed by xmlsec1 in each XAdES
// shape (tests/tools/make_xades_fixtures.sh). One of each per test process; the authority
// is stopped when the process ends.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "TestSupport.h"

namespace testsupport {

class TimeStampAuthority {
 public:
  static TimeStampAuthority& instance() {
    static TimeStampAuthority tsa;
    return tsa;
  }
  std::string url() const { return "http://127.0.0.1:" + port_ + "/"; }
  std::string fixturePath(const std::string& name) const { return fixtures_ + "/" + name; }
  std::string fixture(const std::string& name) const { return readFile(fixturePath(name)); }
  // Empty when the authority and the fixtures are ready; else why not.
  const std::string& error() const { return error_; }

 private:
  TimeStampAuthority() {
    dir_ = makeTempDir("tsa");
    fixtures_ = dir_ + "/docs";
    const std::string tools = sourceDir() + "/tests/tools";
    if (std::system(("bash " + tools + "/make_xades_fixtures.sh " + fixtures_ + " >/dev/null 2>&1").c_str()) != 0) {
      error_ = "could not sign the fixtures with xmlsec1";
      return;
    }
    const std::string cmd = "python3 " + tools + "/tsa_server.py " + dir_ +
                            " --lifetime 900 >/dev/null 2>&1 & echo $! > " + dir_ + "/pid";
    if (std::system(cmd.c_str()) != 0) {
      error_ = "could not start the time-stamp authority";
      return;
    }
    for (int i = 0; i < 300 && port_.empty(); ++i) {
      port_ = readFile(dir_ + "/port");
      if (port_.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (port_.empty()) error_ = "the time-stamp authority did not start";
  }
  ~TimeStampAuthority() {
    const std::string pid = readFile(dir_ + "/pid");
    if (!pid.empty()) {
      const int ignored = std::system(("kill " + pid + " 2>/dev/null").c_str());
      (void)ignored;
    }
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  std::string dir_, fixtures_, port_, error_;
};

}  // namespace testsupport

#define REQUIRE_TIMESTAMP_AUTHORITY()                                      \
  do {                                                                     \
    if (!testsupport::TimeStampAuthority::instance().error().empty())      \
      GTEST_SKIP() << testsupport::TimeStampAuthority::instance().error(); \
  } while (0)
