// Helpers shared by the test suites: locating the shared corpus and reading files.
#pragma once
#include <string>

namespace testsupport {

// Directory of the shared checkout that holds the corpus (sibling of the repo),
// overridable with the XMLDSIG_SHARED environment variable. Empty when absent.
std::string sharedDir();
// Directory of the corpus inside it, or empty when absent.
std::string corpusDir();
std::string sourceDir();
std::string binaryDir();
// Whole file as bytes; empty string when it cannot be read.
std::string readFile(const std::string& path);
bool writeFile(const std::string& path, const std::string& data);
// A fresh empty temporary directory, removed by the caller if it wishes.
std::string makeTempDir(const std::string& tag);

// A fresh temporary directory, removed with its contents when the object goes.
struct TempDir {
  explicit TempDir(const std::string& tag) : path(makeTempDir(tag)) {}
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string path;
};

}  // namespace testsupport

// Skips the current test with a clear message when the shared corpus is not beside the checkout.
#define REQUIRE_CORPUS()                                                                 \
  do {                                                                                   \
    if (testsupport::corpusDir().empty())                                                \
      GTEST_SKIP() << "shared corpus not found beside the checkout (../shared/corpus); " \
                      "set XMLDSIG_SHARED to its location to run this test";             \
  } while (0)
