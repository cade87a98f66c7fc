#include "cli/Args.h"

#include <cstring>

namespace cli {

bool Args::has(const std::string& name) const { return m_values.count(name) != 0; }

std::string Args::value(const std::string& name, const std::string& def) const {
  auto it = m_values.find(name);
  if (it == m_values.end() || it->second.empty()) return def;
  return it->second.back();
}

std::vector<std::string> Args::values(const std::string& name) const {
  auto it = m_values.find(name);
  return it == m_values.end() ? std::vector<std::string>() : it->second;
}

namespace {

const OptionSpec* findLong(const std::vector<OptionSpec>& specs, const std::string& name) {
  for (const OptionSpec& s : specs)
    if (name == s.longName) return &s;
  return nullptr;
}

const OptionSpec* findShort(const std::vector<OptionSpec>& specs, char c) {
  for (const OptionSpec& s : specs)
    if (s.shortName != '\0' && s.shortName == c) return &s;
  return nullptr;
}

bool store(const OptionSpec& spec, const std::string& shownName, const std::string* value, Args& out,
           std::string& error) {
  if (!spec.takesValue) {
    if (value) {
      error = "option " + shownName + " takes no value";
      return false;
    }
    out.setFlag(spec.longName);
    return true;
  }
  if (!spec.repeatable && out.has(spec.longName)) {
    error = "option " + shownName + " given more than once";
    return false;
  }
  out.addValue(spec.longName, *value);
  return true;
}

}  // namespace

bool parseArgs(const std::vector<OptionSpec>& specs, int argc, const char* const* argv, int first, Args& out,
               std::string& error) {
  bool optionsEnded = false;
  for (int i = first; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnded || arg == "-" || arg.size() < 2 || arg[0] != '-') {
      out.positionals.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }

    const OptionSpec* spec = nullptr;
    std::string shownName;
    std::string inlineValue;
    bool hasInline = false;
    if (arg[1] == '-') {
      std::string name = arg.substr(2);
      const size_t eq = name.find('=');
      if (eq != std::string::npos) {
        inlineValue = name.substr(eq + 1);
        hasInline = true;
        name.erase(eq);
      }
      shownName = "--" + name;
      spec = findLong(specs, name);
    } else {
      // "-j4" carries its value; "-j 4" takes the next argument.
      shownName = arg.substr(0, 2);
      spec = findShort(specs, arg[1]);
      if (arg.size() > 2) {
        inlineValue = arg.substr(arg[2] == '=' ? 3 : 2);
        hasInline = true;
      }
    }
    if (!spec) {
      error = "unknown option " + shownName;
      return false;
    }
    if (spec->takesValue && !hasInline) {
      if (i + 1 >= argc) {
        error = "option " + shownName + " needs a value (" + spec->valueName + ")";
        return false;
      }
      inlineValue = argv[++i];
      hasInline = true;
    }
    if (!store(*spec, shownName, hasInline ? &inlineValue : nullptr, out, error)) return false;
  }
  return true;
}

}  // namespace cli
