// Helpers shared by the support-layer tests (and the crypto tests built on them): byte
// strings, parsing into a tree, canonicalizing, and reading the corpus manifests.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "support/ClsXml.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "xml/XmlCanon.h"

namespace supporttest {

inline std::string bytesOf(const DataBuffer& db) { return std::string(db.view()); }
inline DataBuffer dbOf(const std::string& s) { return DataBuffer(s.data(), s.size()); }

// Parses text into a fresh tree; null, with the reason in the log, when it is not well-formed.
inline RcPtr<ClsXml> loadTree(const std::string& text, LogBase& log) {
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  if (!root || !root->loadXml(StringBuffer(text), false, log)) return RcPtr<ClsXml>();
  return root;
}

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

// The EBICS caller's loop: authenticated element 0, 1, 2, ... canonicalized one per call
// and appended to out until a call fails; the number written.
inline int canonicalizeEbics(const std::string& xml, const char* xpointer, StringBuffer& out, LogBase& log) {
  XmlCanon canon;
  canon.ebicsMode = true;
  const StringBuffer in(xml);
  int emitted = 0;
  for (; emitted < 100; ++emitted) {
    canon.ebicsIndex = emitted;
    canon.ebicsCount = 0;
    if (!canon.xmlCanonicalize(in, xpointer, 0, out, log)) break;
  }
  return emitted;
}

// The rows of a tab-separated corpus manifest (families.tsv, interop.tsv), header left out.
inline std::vector<std::vector<std::string>> manifestRows(const std::string& name) {
  std::stringstream in(testsupport::readFile(testsupport::corpusDir() + "/" + name));
  std::vector<std::vector<std::string>> rows;
  std::string line, field;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::stringstream fields(line);
    rows.emplace_back();
    while (std::getline(fields, field, '\t')) rows.back().push_back(field);
  }
  return rows;
}

}  // namespace supporttest
