// Names the document family of a loaded document for the user, from the verifier's
// family flags and a few text markers of families the verifier handles without a flag,
// and suggests the uncommon options the user probably needs to verify it.
#pragma once

#include <string>
#include <vector>

class ClsXmlDSig;

namespace cli {

struct FamilyReport {
  std::string family;                         // "zatca", "sii-cl", ..., "generic"
  std::vector<std::string> suggestedOptions;  // e.g. "ZATCA"
};

FamilyReport describeFamily(const ClsXmlDSig& dsig);

}  // namespace cli
