#include "TestSupport.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace testsupport {

std::string sharedDir() {
  const char* env = std::getenv("XMLDSIG_SHARED");
  std::string dir = env && *env ? env : XMLDSIG_SHARED_DIR;
  std::error_code ec;
  return fs::is_directory(dir, ec) ? dir : std::string();
}

std::string corpusDir() {
  std::string shared = sharedDir();
  if (shared.empty()) return {};
  std::error_code ec;
  std::string dir = shared + "/corpus";
  return fs::is_directory(dir, ec) ? dir : std::string();
}

std::string sourceDir() { return XMLDSIG_SOURCE_DIR; }
std::string binaryDir() { return XMLDSIG_BINARY_DIR; }

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool writeFile(const std::string& path, const std::string& data) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  return static_cast<bool>(out);
}

std::string makeTempDir(const std::string& tag) {
  std::string templ = (fs::temp_directory_path() / ("xmldsig-" + tag + "-XXXXXX")).string();
  char* made = mkdtemp(templ.data());
  return made ? std::string(made) : std::string();
}

TempDir::~TempDir() {
  std::error_code ec;
  if (!path.empty()) fs::remove_all(path, ec);
}

}  // namespace testsupport
