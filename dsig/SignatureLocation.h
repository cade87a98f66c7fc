// Where the selected signature stands in the loaded document, read from the parsed tree:
// its Id, the Signature element and its SignedInfo as spans of the document text, and what
// the enveloped-signature transform cuts. The verifier works it out once per verification
// and hands it to the steps that need it, so that none of them has to find the signature
// again.
#pragma once

#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "support/StringBuffer.h"

class ClsXml;

struct SignatureLocation {
  using TextSpan = ClsXmlDSig::TextSpan;

  StringBuffer id;      // the Signature's Id attribute, empty when it has none
  TextSpan signature;   // the Signature element
  TextSpan signedInfo;  // its SignedInfo (after the verifier's locate step)
  // What the enveloped-signature transform cuts: the signature, then each XML-Signature
  // Signature that directly follows it as a sibling (white space between them allowed),
  // each along its own span, in document order. Empty when the signature is not an
  // element of the loaded tree.
  std::vector<TextSpan> envelopedCuts;
};

// The location of `signature`, an element of the loaded tree (the SignedInfo span is left
// to the verifier's locate step).
SignatureLocation locateInTree(ClsXml& signature);
