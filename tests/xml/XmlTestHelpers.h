// Helpers shared by the xml-layer tests: canonicalizing text with given settings.
#pragma once

#include <string>

#include "support/SupportTestHelpers.h"
#include "xml/XmlCanon.h"

namespace xmltest {

struct Canon {
  int method = 1;  // 1 inclusive, 2 exclusive
  bool comments = false;
  const char* prefixes = nullptr;  // the exclusive form's InclusiveNamespaces list
  size_t offset = 0;               // start of the element to canonicalize (no fragment)
  bool sortBug = false;
};

// The canonical form of what the fragment or offset selects, or "FAILED: <last error>".
inline std::string canonicalize(const std::string& xml, const char* fragment, const Canon& s = {}) {
  XmlCanon canon;
  canon.canonMethod = s.method;
  canon.withComments = s.comments;
  canon.emulateAttrSortBug = s.sortBug;
  if (s.prefixes) StringBuffer(s.prefixes).split(canon.inclusivePrefixes, ' ', true, true);
  StringBuffer out;
  _btLogger log;
  if (!canon.xmlCanonicalize(StringBuffer(xml), fragment, s.offset, out, log)) return "FAILED: " + log.lastErrorLine();
  return out.str();
}

}  // namespace xmltest
