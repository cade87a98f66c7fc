// What a same-document URI (the text after '#') selects.
#pragma once

#include <string_view>

#include "support/StringBuffer.h"

enum class Fragment { WholeDocument, ById, Other };

// keepsComments: the XPointer forms select their data with its comments.
inline Fragment classifyFragment(const StringBuffer& uri, StringBuffer& id, bool& keepsComments) {
  const std::string_view f = uri.view();
  keepsComments = false;
  if (f.empty()) return Fragment::WholeDocument;
  if (f == "xpointer(/)") {
    keepsComments = true;
    return Fragment::WholeDocument;
  }
  if (f.compare(0, 8, "xpointer") != 0) {
    id.setString(f);
    return Fragment::ById;
  }
  // xpointer(id('X')) or xpointer(id("X")): the element, comments kept.
  constexpr std::string_view kOpen = "xpointer(id(";
  if (f.size() > kOpen.size() + 4 && f.compare(0, kOpen.size(), kOpen) == 0) {
    const char quote = f[kOpen.size()];
    const std::string_view rest = f.substr(kOpen.size() + 1);
    const size_t close = rest.find(quote);
    if ((quote == '\'' || quote == '"') && close != std::string_view::npos && rest.substr(close + 1) == "))") {
      id.setString(rest.substr(0, close));
      keepsComments = true;
      return Fragment::ById;
    }
  }
  return Fragment::Other;
}
