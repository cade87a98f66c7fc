// Helpers shared by the subcommands: exit codes, reading inputs, writing output (text or
// one JSON object per line), reporting errors and running files in parallel.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/Args.h"

namespace cli {

constexpr int kExitOk = 0;       // success; signatures valid
constexpr int kExitInvalid = 1;  // a signature is invalid
constexpr int kExitUsage = 2;    // usage error, or an input that cannot be read or parsed

// Prints "xmldsig: <reason>" as one line on standard error and returns kExitUsage.
int usageError(const std::string& reason);
int usageError(const std::string& command, const std::string& reason);

// Standard output or the file named by -o.
class Output {
 public:
  // False with a one-line reason when the output file cannot be opened.
  bool open(const Args& args, std::string& error);
  ~Output();
  void write(const std::string& text);
  // One JSON object on one line; text that is not UTF-8 is replaced, never fatal.
  void jsonLine(const nlohmann::ordered_json& obj);
  bool json() const { return m_json; }

 private:
  FILE* m_file = stdout;
  bool m_owned = false;
  bool m_json = false;
};

// Number of parallel jobs from -j (at least 1); false with a reason for a bad value.
bool jobsFromArgs(const Args& args, unsigned& jobs, std::string& error);

// Runs work(i) for i in [0, count) on up to jobs threads and calls emit(i) in index order
// as soon as each result and all before it are ready (emit runs on the calling thread).
void runInOrder(size_t count, unsigned jobs, const std::function<void(size_t)>& work,
                const std::function<void(size_t)>& emit);

}  // namespace cli
