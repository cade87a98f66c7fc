// The exclusions UBL invoice signers write as XPath transforms ("not(//ancestor-or-self::p:Name)",
// optionally with a "[q:Child='value']" predicate): UBLExtensions, cac:Signature, the QR
// AdditionalDocumentReference, UBLDocumentSignatures. Each is decided on the parsed text: the
// exact spans of the elements with that local name in the namespace the prefix stands for, at
// the place the invoice schema gives them. A text search only finds candidates: a tag the text
// shows that is not such an element (a prefix bound to another namespace), or an element at
// another place or in another number, refuses the cut, and with it the verification.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dsig/family/FamilyCuts.h"

namespace xml {
class XmlTree;
}

namespace dsig_family {

struct Exclusion {
  std::string prefix, local, ns;  // the excluded element
  bool hasPredicate = false;      // [childPrefix:childLocal='childValue']
  std::string childPrefix, childLocal, childNs, childValue;
  std::string written;  // the expression's own text, for the log
};

// Reads "p:Name" or "p:Name[q:Child='value']". A prefix means the UBL namespace of that name
// (ext, cac, cbc, sig, sac, sbc), else what `context` binds it to at `contextNode` (the
// Transform element). False (logged, the reason in `why`) when the text is not such a name or
// a prefix is unbound.
bool parseExclusion(std::string_view text, const xml::XmlTree* context, uint32_t contextNode, Exclusion& out,
                    LogBase& log, std::string* why = nullptr);

// The spans `exclusion` cuts from the tree's text, in document order, leaving alone what lies
// inside `gone` (spans already cut). `keepFirstExtensions`: of two UBLExtensions blocks only the
// second is cut (MyInvois). A refusal is logged, its reason (one line) written to `why`.
CutResult exclusionSpans(const xml::XmlTree& tree, const Exclusion& exclusion, const std::vector<ElementSpan>& gone,
                         bool keepFirstExtensions, std::vector<ElementSpan>& spans, LogBase& log,
                         std::string* why = nullptr);

}  // namespace dsig_family
