// The uncommon-option keywords the verifier knows, matched without regard to case, and
// the document family each family option is meant for.
#pragma once

#include <string>
#include <vector>

namespace cli {

struct UncommonOption {
  const char* keyword;     // as the verifier spells it
  const char* family;      // the family (as `info` names it) the option is for; "" for any document
  const char* familyName;  // the family as the user knows it, for warnings
};

const std::vector<UncommonOption>& uncommonOptions();

// "ZATCA, MYINVOIS, ..." for help texts and errors.
std::string knownKeywords();

// Splits each value at commas and replaces every keyword by its own spelling. False with
// a one-line reason naming the known keywords for an unknown or empty one.
bool normalizeKeywords(const std::vector<std::string>& given, std::vector<std::string>& out, std::string& error);

// The known option of this keyword (any case), or null.
const UncommonOption* findUncommonOption(const std::string& keyword);

}  // namespace cli
