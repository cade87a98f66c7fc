// The transform and canonicalization algorithms the verifier knows, matched by exact URI.
// A URI that is not in the table is refused by its caller (with the URI in the reason):
// matching by substring would let an unknown or misspelt algorithm run as a known one.
#pragma once

#include <string_view>

namespace dsig_algorithms {

enum class StepKind {
  Unknown,
  EnvelopedSignature,
  Canonical,     // a canonicalization (see CanonicalForm)
  XPath,         // XPath 1.0 filter
  XPathFilter2,  // XPath Filter 2.0
  Base64,
};

enum class CanonicalForm {
  None,
  Inclusive10,  // Canonical XML 1.0
  Exclusive10,  // Exclusive XML Canonicalization 1.0
  Inclusive11,  // Canonical XML 1.1
};

struct AlgorithmRow {
  std::string_view uri;
  StepKind kind;
  CanonicalForm form;
  bool withComments;
};

// The row whose URI equals uri exactly, or null.
const AlgorithmRow* findAlgorithm(std::string_view uri);
// The URI of the same canonicalization without comments (the row itself when it has none).
std::string_view withoutComments(const AlgorithmRow& row);

}  // namespace dsig_algorithms
