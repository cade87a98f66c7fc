// Canonical form of a node-set of an XPathDocument: what the streaming canonicalizer does
// for a whole document or one element, for any set of nodes an XPath transform leaves.
// Elements are written or left out independently of their children; namespace nodes and
// attributes are written only when they are in the set, by the rules of the method:
//  - inclusive 1.0 and 1.1: a namespace node is written unless the nearest written
//    ancestor has the same one in the set; xmlns="" when the element has no default
//    namespace in the set and that ancestor has one. An element whose parent is left out
//    takes the xml:* attributes of its ancestors (1.1: xml:lang and xml:space as 1.0,
//    xml:id not at all, xml:base joined with the bases of the ancestors left out).
//  - exclusive: only the namespaces the element or its written attributes use (and the
//    InclusiveNamespaces prefixes), when not already written with the same URI above.
// Comments are written only with `comments`; those beside the document element get the
// line break that separates them from it.
#pragma once

#include <string>
#include <vector>

#include "xml/XPathDocument.h"

namespace xml {

enum class NodeSetCanonMethod { Inclusive10, Inclusive11, Exclusive };

struct NodeSetCanonOptions {
  NodeSetCanonMethod method = NodeSetCanonMethod::Inclusive10;
  bool comments = false;
  std::vector<std::string> inclusivePrefixes;  // exclusive only; "" = the default namespace
};

// inSet has one entry per node of doc (non-zero = in the set). Appends to out.
void canonicalizeNodeSet(const XPathDocument& doc, const std::vector<char>& inSet, const NodeSetCanonOptions& options,
                         std::string& out);

// Resolves a relative xml:base value against the one of an ancestor, keeping leading ".."
// segments a relative base cannot absorb.
std::string joinXmlBase(const std::string& base, const std::string& reference);

}  // namespace xml
