// Running the built xmldsig tool from tests: exit code, standard output and standard error.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace clirun {

struct RunResult {
  int exitCode = -1;
  std::string out;
  std::string err;
};

inline std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += (c == '\'') ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

// Runs a shell command line (stderr captured through a temporary file).
inline RunResult runShell(const std::string& command) {
  static const std::string errFile = testsupport::makeTempDir("cli") + "/stderr";
  RunResult r;
  FILE* p = popen((command + " 2>" + quote(errFile)).c_str(), "r");
  if (!p) return r;
  char buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  const int status = pclose(p);
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = testsupport::readFile(errFile);
  return r;
}

inline std::string binary() { return quote(std::string(XMLDSIG_BINARY_DIR) + "/xmldsig"); }

// Runs `xmldsig ARGS` (ARGS already quoted as needed).
inline RunResult xmldsig(const std::string& args) { return runShell(binary() + " " + args); }

// A bundled example file.
inline std::string example(const std::string& name) { return testsupport::sourceDir() + "/examples/" + name; }

inline std::vector<std::string> outputLines(const std::string& out) {
  std::vector<std::string> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace clirun
