// Command-line arguments of one subcommand: long options ("--name value",
// "--name=value", repeatable ones), short aliases ("-o FILE", "-j N", "-j4"), flags and
// positional arguments. "--" ends the options; a lone "-" is a positional (standard input).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace cli {

struct OptionSpec {
  const char* longName;  // without the leading "--"
  char shortName;        // '\0' when there is none
  bool takesValue;
  bool repeatable;        // only for options with a value: every occurrence is kept
  const char* valueName;  // shown in help, e.g. "FILE"
  const char* help;
};

class Args {
 public:
  std::string command;
  std::vector<std::string> positionals;

  bool has(const std::string& name) const;
  // The option's value (the last one given), or def when absent.
  std::string value(const std::string& name, const std::string& def = std::string()) const;
  // Every value of a repeatable option, in order.
  std::vector<std::string> values(const std::string& name) const;

  void setFlag(const std::string& name) { m_values[name]; }
  void addValue(const std::string& name, const std::string& v) { m_values[name].push_back(v); }

 private:
  std::map<std::string, std::vector<std::string>> m_values;
};

// Parses argv[first..argc) against the options. False with a one-line reason in error
// for an unknown option, a missing value or a second value of a non-repeatable option.
bool parseArgs(const std::vector<OptionSpec>& specs, int argc, const char* const* argv, int first, Args& out,
               std::string& error);

}  // namespace cli
