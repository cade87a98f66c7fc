// The canonical form of XML bytes, or of one element of them, as the verifier computes it.
#pragma once

#include <string>

namespace pyxmldsig {

struct CanonicalizeRequest {
  bool exclusive = false;
  bool withComments = false;
  bool hasFragment = false;
  std::string fragment;  // an Id, or an XPointer such as "xpointer(id('ID'))"
  std::string prefixes;  // the exclusive form's inclusive prefix list, space-separated
};

// Reads the bytes in the encoding their byte-order mark or XML declaration names and writes
// the UTF-8 canonical form to out. False with the verifier's one-line reason in error when
// they do not decode, do not parse, or have no such fragment.
bool canonicalizeBytes(const std::string& bytes, const CanonicalizeRequest& request, std::string& out,
                       std::string& error);

}  // namespace pyxmldsig
