#include "cli/UncommonOptions.h"

#include <strings.h>

namespace cli {

const std::vector<UncommonOption>& uncommonOptions() {
  static const std::vector<UncommonOption> known = {
      {"ZATCA", "zatca", "Saudi ZATCA invoices"},
      {"MYINVOIS", "myinvois", "Malaysian MyInvois documents"},
      {"AllowXmlDigestError", "", ""},
      {"VerifyEncapsulatedTimeStamp", "", ""},
  };
  return known;
}

std::string knownKeywords() {
  std::string list;
  for (const UncommonOption& o : uncommonOptions()) list += (list.empty() ? "" : ", ") + std::string(o.keyword);
  return list;
}

const UncommonOption* findUncommonOption(const std::string& keyword) {
  for (const UncommonOption& o : uncommonOptions())
    if (::strcasecmp(o.keyword, keyword.c_str()) == 0) return &o;
  return nullptr;
}

bool normalizeKeywords(const std::vector<std::string>& given, std::vector<std::string>& out, std::string& error) {
  for (const std::string& value : given) {
    size_t start = 0;
    for (;;) {
      const size_t comma = value.find(',', start);
      const std::string keyword = value.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
      const UncommonOption* known = findUncommonOption(keyword);
      if (!known) {
        error = "unknown --option keyword '" + keyword + "' (known, in any case: " + knownKeywords() + ")";
        return false;
      }
      out.push_back(known->keyword);
      if (comma == std::string::npos) break;
      start = comma + 1;
    }
  }
  return true;
}

}  // namespace cli
