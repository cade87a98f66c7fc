// Helpers shared by the support-layer tests (and the tests of the layers above): byte
// strings, parsing into a tree, and reading the corpus manifests.
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

namespace supporttest {

inline std::string bytesOf(const DataBuffer& db) { return std::string(db.view()); }
inline DataBuffer dbOf(const std::string& s) { return DataBuffer(s.data(), s.size()); }

// Parses text into a fresh tree; null, with the reason in the log, when it is not well-formed.
inline RcPtr<ClsXml> loadTree(const std::string& text, LogBase& log) {
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  if (!root || !root->loadXml(StringBuffer(text), false, log)) return RcPtr<ClsXml>();
  return root;
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
