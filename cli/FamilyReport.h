// Names the document family of a loaded document for the user, from the verifier's
// family flags and a few text markers of families the verifier handles without a flag,
// suggests the uncommon options the user probably needs to verify it, and warns about
// family options given for a document of another family.
#pragma once

#include <string>
#include <vector>

class ClsXmlDSig;

namespace cli {

struct FamilyReport {
  std::string family;                         // "zatca", "sii-cl", ..., "generic"
  std::vector<std::string> suggestedOptions;  // e.g. "ZATCA"
};

// The family is the document's own: a family option does not change it.
FamilyReport describeFamily(const ClsXmlDSig& dsig);

// One warning per family option among the keywords that is not meant for this family:
// such an option makes the verifier apply that family's rules, which turns a valid
// signature of any other document invalid.
std::vector<std::string> familyOptionWarnings(const FamilyReport& report, const std::vector<std::string>& keywords);

}  // namespace cli
