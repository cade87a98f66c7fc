#include "dsig/transform/TransformAlgorithms.h"

#include <iterator>

namespace dsig_algorithms {

namespace {

// One ordered table: exact URI -> what the step does. New algorithms are new rows.
constexpr AlgorithmRow kAlgorithms[] = {
    {"http://www.w3.org/TR/2001/REC-xml-c14n-20010315", StepKind::Canonical, CanonicalForm::Inclusive10, false},
    {"http://www.w3.org/TR/2001/REC-xml-c14n-20010315#WithComments", StepKind::Canonical, CanonicalForm::Inclusive10,
     true},
    {"http://www.w3.org/2001/10/xml-exc-c14n#", StepKind::Canonical, CanonicalForm::Exclusive10, false},
    {"http://www.w3.org/2001/10/xml-exc-c14n#WithComments", StepKind::Canonical, CanonicalForm::Exclusive10, true},
    // Canonical XML 1.1 is written by the 1.0 canonicalizer until it has its own; the two
    // differ only in how xml:id and xml:base are inherited.
    {"http://www.w3.org/2006/12/xml-c14n11", StepKind::Canonical, CanonicalForm::Inclusive11, false},
    {"http://www.w3.org/2006/12/xml-c14n11#WithComments", StepKind::Canonical, CanonicalForm::Inclusive11, true},
    {"http://www.w3.org/2000/09/xmldsig#enveloped-signature", StepKind::EnvelopedSignature, CanonicalForm::None, false},
    {"http://www.w3.org/TR/1999/REC-xpath-19991116", StepKind::XPath, CanonicalForm::None, false},
    {"http://www.w3.org/2002/06/xmldsig-filter2", StepKind::XPathFilter2, CanonicalForm::None, false},
    {"http://www.w3.org/2000/09/xmldsig#base64", StepKind::Base64, CanonicalForm::None, false},
};

}  // namespace

const AlgorithmRow* findAlgorithm(std::string_view uri) {
  for (const AlgorithmRow& row : kAlgorithms)
    if (row.uri == uri) return &row;
  return nullptr;
}

std::string_view withoutComments(const AlgorithmRow& row) {
  if (!row.withComments) return row.uri;
  for (const AlgorithmRow& other : kAlgorithms)
    if (other.kind == row.kind && other.form == row.form && !other.withComments) return other.uri;
  return row.uri;
}

}  // namespace dsig_algorithms
