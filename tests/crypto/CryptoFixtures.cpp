#include "CryptoFixtures.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace fs = std::filesystem;

namespace cryptofixtures {

namespace {

// Generates into a private directory and renames it into place, so that test processes
// running side by side never see a half-made set.
std::string generate() {
  const std::string script = testsupport::sourceDir() + "/tests/crypto/fixtures/make_sig_fixtures.sh";
  std::error_code ec;
  // Named after the script's modification time: an edited script makes a fresh set.
  const auto stamp = fs::last_write_time(script, ec).time_since_epoch().count();
  const std::string target = testsupport::binaryDir() + "/crypto-fixtures-" + std::to_string(stamp);
  if (fs::exists(target + "/complete", ec)) return target;
  const std::string tmp = testsupport::makeTempDir("cryptofx");
  if (tmp.empty()) return {};
  const std::string cmd = "bash '" + script + "' '" + tmp + "' >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0 || !fs::exists(tmp + "/complete", ec)) {
    fs::remove_all(tmp, ec);
    return {};
  }
  fs::rename(tmp, target, ec);
  if (ec) fs::remove_all(tmp, ec);  // another process won the race
  return fs::exists(target + "/complete", ec) ? target : std::string();
}

}  // namespace

const std::string& dir() {
  static const std::string d = generate();
  return d;
}

std::string path(const std::string& name) { return dir() + "/" + name; }

DataBuffer file(const std::string& name) {
  const std::string bytes = testsupport::readFile(path(name));
  return DataBuffer(bytes.data(), bytes.size());
}

}  // namespace cryptofixtures
