// Vector files: cases that are data, read by one runner per area. A case starts with a
// line "=== name"; its fields are lines "key: value" whose value goes on over the
// following lines up to the next key (a key may repeat). Lines starting with "#" are
// comments; line breaks at the end of a value are not part of it.
#pragma once

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace vectors {

struct Case {
  std::string name;
  int line = 0;
  std::multimap<std::string, std::string> fields;

  bool has(const std::string& key) const { return fields.count(key) > 0; }
  // The first value of key, or `otherwise` when the case has none.
  std::string get(const std::string& key, const std::string& otherwise = "") const {
    const auto it = fields.find(key);
    return it == fields.end() ? otherwise : it->second;
  }
  std::vector<std::string> all(const std::string& key) const {
    std::vector<std::string> out;
    for (auto [it, end] = fields.equal_range(key); it != end; ++it) out.push_back(it->second);
    return out;
  }
  std::string where() const { return name + " (line " + std::to_string(line) + ")"; }
};

// The cases of the file; only the listed keys start a field.
inline std::vector<Case> read(const std::string& path, const std::set<std::string>& keys) {
  std::vector<Case> cases;
  std::istringstream in(testsupport::readFile(path));
  std::string line;
  std::string* value = nullptr;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.rfind("===", 0) == 0) {
      cases.push_back({line.substr(line.find_first_not_of("= ")), number, {}});
      value = nullptr;
      continue;
    }
    if (cases.empty() || (!line.empty() && line[0] == '#')) continue;
    const size_t colon = line.find(':');
    if (colon != std::string::npos && keys.count(line.substr(0, colon))) {
      const size_t start = line.size() > colon + 1 && line[colon + 1] == ' ' ? colon + 2 : colon + 1;
      value = &cases.back().fields.emplace(line.substr(0, colon), line.substr(start))->second;
      continue;
    }
    if (value) *value += value->empty() ? line : "\n" + line;
  }
  for (Case& c : cases)
    for (auto& field : c.fields)
      while (!field.second.empty() && field.second.back() == '\n') field.second.pop_back();
  return cases;
}

// "\r", "\t", "\n", "\0", "\\" and "\xHH" in a value stand for those bytes, which a text file
// does not show.
inline std::string unescaped(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\' || i + 1 == s.size()) {
      out += s[i];
      continue;
    }
    const char next = s[++i];
    if (next == 'x' && i + 2 < s.size()) {
      out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
      i += 2;
      continue;
    }
    out += next == 'r' ? '\r' : next == 't' ? '\t' : next == 'n' ? '\n' : next == '0' ? '\0' : next;
  }
  return out;
}

}  // namespace vectors
