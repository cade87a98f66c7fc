// The command line's promises about the user's files and the meaning of its verdicts: -o
// never loses an input, every input gets a result line in input order whatever it is
// (directory, FIFO, missing), verdicts say what was not checked, option keywords are
// validated, reasons name the cause, and JSON output has one error shape. The cases are
// data: tests/cli/data/safety.cases (its header describes the format).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "CliRun.h"
#include "TestSupport.h"
#include "dsig/SignedFixtures.h"

namespace {

using clirun::quote;
using clirun::RunResult;

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

// Splits "word rest of line" at the first space.
std::pair<std::string, std::string> head(const std::string& line) {
  const size_t sp = line.find(' ');
  if (sp == std::string::npos) return {line, ""};
  return {line.substr(0, sp), line.substr(sp + 1)};
}

class Cases {
 public:
  Cases() : m_dir("cli-safety") {}

  std::string expand(const std::string& text) const {
    std::string t = replaceAll(text, "{s}", m_dir.path);
    t = replaceAll(t, "{ex}", testsupport::sourceDir() + "/examples");
    return replaceAll(t, "{fx}", signedfixtures::fixtures().path(""));
  }
  std::string path(const std::string& name) const { return m_dir.path + "/" + name; }

  void setUp(const std::string& line) {
    const auto [verb, rest] = head(line);
    const auto [name, arg] = head(rest);
    if (verb == "copy") {
      testsupport::writeFile(path(name), testsupport::readFile(expand(arg)));
    } else if (verb == "edit") {
      const auto [source, change] = head(arg);
      const size_t arrow = change.find(" => ");
      ASSERT_NE(arrow, std::string::npos) << line;
      testsupport::writeFile(path(name), signedfixtures::replaced(testsupport::readFile(expand(source)),
                                                                  change.substr(0, arrow), change.substr(arrow + 4)));
    } else if (verb == "text") {
      testsupport::writeFile(path(name), replaceAll(arg, "\\n", "\n"));
    } else if (verb == "mkdir") {
      std::filesystem::create_directory(path(name));
    } else if (verb == "fifo") {
      ASSERT_EQ(::mkfifo(path(name).c_str(), 0600), 0) << line;
      m_fifoSources[path(name)] = expand(arg);
    } else {
      FAIL() << "unknown set-up line: " << line;
    }
  }

  // Runs xmldsig; every FIFO the arguments name is fed its source by a writer started first
  // (detached from the output, so a tool that never opens the FIFO cannot hang the test).
  RunResult run(const std::string& args) {
    std::string feeders;
    std::vector<std::string> used;
    for (const auto& [fifo, source] : m_fifoSources)
      if (args.find(fifo) != std::string::npos) {
        feeders += "{ cat " + quote(source) + " > " + quote(fifo) + "; } >/dev/null 2>&1 & ";
        used.push_back(fifo);
      }
    const RunResult r = clirun::runShell(feeders + clirun::binary() + " " + args);
    // A writer still waiting for a reader gets one that closes at once, and ends.
    for (const std::string& fifo : used) {
      const int fd = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
      if (fd >= 0) ::close(fd);
    }
    return r;
  }

  std::map<std::string, std::string> snapshot() const {
    std::map<std::string, std::string> bytes;
    for (const auto& e : std::filesystem::directory_iterator(m_dir.path))
      if (e.is_regular_file()) bytes[e.path().filename().string()] = testsupport::readFile(e.path().string());
    return bytes;
  }

 private:
  testsupport::TempDir m_dir;
  std::map<std::string, std::string> m_fifoSources;
};

// Checks one line of a case against the last run.
void check(const std::string& verb, const std::string& arg, const RunResult& r, size_t& nextLine,
           const std::map<std::string, std::string>& before, const Cases& cases) {
  const std::vector<std::string> lines = clirun::outputLines(r.out);
  if (verb == "exit") {
    EXPECT_EQ(r.exitCode, std::stoi(arg)) << r.err;
  } else if (verb == "out") {
    ASSERT_LT(nextLine, lines.size()) << "missing line: " << arg << "\n" << r.out;
    const std::string& got = lines[nextLine++];
    if (!arg.empty() && arg.back() == '*') EXPECT_EQ(got.rfind(arg.substr(0, arg.size() - 1), 0), 0u) << got;
    else EXPECT_EQ(got, arg);
  } else if (verb == "no-more-out") {
    EXPECT_EQ(lines.size(), nextLine) << r.out;
  } else if (verb == "err-has") {
    EXPECT_NE(r.err.find(arg), std::string::npos) << r.err;
  } else if (verb == "json") {
    const auto [index, rest] = head(arg);
    const auto [key, value] = head(rest);
    ASSERT_LT(static_cast<size_t>(std::stoi(index)), lines.size()) << r.out;
    const nlohmann::json got = nlohmann::json::parse(lines[std::stoi(index)]);
    const nlohmann::json::json_pointer pointer("/" + key);
    ASSERT_TRUE(got.contains(pointer)) << key << " in " << got.dump();
    EXPECT_EQ(got.at(pointer), nlohmann::json::parse(value)) << key;
  } else if (verb == "unchanged") {
    ASSERT_TRUE(before.count(arg)) << arg;
    EXPECT_EQ(testsupport::readFile(cases.path(arg)), before.at(arg)) << arg << " changed";
  } else if (verb == "file-is" || verb == "file-has") {
    const auto [name, text] = head(arg);
    const std::string content = testsupport::readFile(cases.path(name));
    const std::string want = replaceAll(text, "\\n", "\n");
    if (verb == "file-is") EXPECT_EQ(content, want);
    else EXPECT_NE(content.find(want), std::string::npos) << content;
  } else {
    FAIL() << "unknown case line: " << verb;
  }
}

}  // namespace

TEST(CliSafety, FilesAndVerdictsAsTheCasesFileDescribes) {
  REQUIRE_FIXTURES();
  Cases cases;
  std::istringstream in(testsupport::readFile(testsupport::sourceDir() + "/tests/cli/data/safety.cases"));
  std::string title;
  RunResult last;
  size_t nextLine = 0;
  std::map<std::string, std::string> before;
  int runs = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    const auto [verb, rest] = head(line);
    const std::string arg = cases.expand(rest);
    if (verb == "case") {
      title = rest;
      continue;
    }
    if (title.empty()) {
      cases.setUp(line);
      continue;
    }
    SCOPED_TRACE(title + ": " + line);
    if (verb == "run") {
      before = cases.snapshot();
      last = cases.run(arg);
      nextLine = 0;
      ++runs;
    } else if (verb == "same-as") {
      const RunResult again = cases.run(arg);
      EXPECT_EQ(again.out, last.out);
      EXPECT_EQ(again.exitCode, last.exitCode);
    } else {
      check(verb, arg, last, nextLine, before, cases);
    }
  }
  EXPECT_GT(runs, 20);  // the file was read through
}
