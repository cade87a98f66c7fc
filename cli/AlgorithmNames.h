// Readable names of the algorithms a signature names by URI, for `xmldsig info`: derived
// from the verifier's own URI tables, so a URI the verifier does not know is named
// "unsupported" and a name is never shown for an algorithm that would be refused.
#pragma once

#include <string>

namespace cli {

std::string signatureMethodName(const std::string& uri);
std::string digestMethodName(const std::string& uri);
// A canonicalization or transform algorithm.
std::string transformName(const std::string& uri);

}  // namespace cli
