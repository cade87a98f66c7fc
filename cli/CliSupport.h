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

// Standard output or the file named by -o. A file is written under a temporary name in
// the target's directory and renamed over the target only by commit(), after every input
// was read: naming an input as the output never truncates it before it is read, and a
// command that fails leaves the target as it was.
// One JSON object as the commands print it on a line (without the newline): compact, text
// that is not UTF-8 replaced, never fatal.
std::string jsonLineText(const nlohmann::ordered_json& obj);

class Output {
 public:
  Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  // False with a one-line reason when the temporary file cannot be created.
  bool open(const Args& args, std::string& error);
  // The same for a file named otherwise than by -o ("" or "-" is standard output).
  bool openPath(const std::string& path, std::string& error);
  // Removes the temporary file when the output was not committed.
  ~Output();
  void write(const std::string& text);
  // jsonLineText and a newline.
  void jsonLine(const nlohmann::ordered_json& obj);
  bool json() const { return m_json; }
  // Makes the output final: flushes standard output, or moves the written file over the
  // target (with the target's permissions when it existed). False with a reason.
  bool commit(std::string& error);

 private:
  FILE* m_file = stdout;
  std::string m_target;  // empty for standard output
  std::string m_temp;    // the temporary file while not committed
  bool m_json = false;
};

// The end of a command that wrote to out: commits the output unless status is kExitUsage
// (the command failed), and returns status, or kExitUsage when the output cannot be written.
int finishOutput(Output& out, const std::string& command, int status);

// Number of parallel jobs from -j (at least 1); false with a reason for a bad value.
bool jobsFromArgs(const Args& args, unsigned& jobs, std::string& error);

// Runs work(i) for i in [0, count) on up to jobs threads and calls emit(i) in index order
// as soon as each result and all before it are ready (emit runs on the calling thread).
void runInOrder(size_t count, unsigned jobs, const std::function<void(size_t)>& work,
                const std::function<void(size_t)>& emit);

}  // namespace cli
