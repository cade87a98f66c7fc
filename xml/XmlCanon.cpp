#include "xml/XmlCanon.h"

#include <string>

#include "support/LogBase.h"
#include "xml/XmlCanonWriter.h"

namespace {

// Reads the id out of "xpointer(id('X'))" or "xpointer(id(\"X\"))"; false for other forms.
bool parseXPointerId(std::string_view expr, std::string_view& id) {
  constexpr std::string_view kOpen = "xpointer(id(";
  if (expr.size() < kOpen.size() + 4 || expr.compare(0, kOpen.size(), kOpen) != 0) return false;
  std::string_view rest = expr.substr(kOpen.size());
  const char quote = rest.front();
  if (quote != '\'' && quote != '"') return false;
  const size_t close = rest.find(quote, 1);
  if (close == std::string_view::npos || rest.substr(close + 1) != "))") return false;
  id = rest.substr(1, close - 1);
  return true;
}

bool isAuthenticatedXPointer(std::string_view expr) {
  return expr.find("authenticate") != std::string_view::npos && expr.find("true") != std::string_view::npos;
}

}  // namespace

bool XmlCanon::xmlCanonicalize(const StringBuffer& xml, const char* fragmentId, size_t startOffset, StringBuffer& out,
                               LogBase& log) {
  xml::CanonOptions opt;
  opt.exclusive = canonMethod == 2;
  opt.attrSortBug = emulateAttrSortBug;
  if (opt.exclusive) {
    for (int i = 0; i < inclusivePrefixes.getSize(); ++i) {
      std::string prefix = inclusivePrefixes.strAt(i);
      if (prefix.empty()) continue;
      opt.inclusivePrefixes.push_back(prefix == "#default" ? std::string() : prefix);
    }
  }

  const std::string_view fragment = fragmentId ? std::string_view(fragmentId) : std::string_view();
  bool keepComments = withComments;
  if (startOffset > 0) {
    opt.selection = xml::CanonSelection::AtOffset;
    opt.offset = startOffset;
  } else if (ebicsMode || (fragment.rfind("xpointer", 0) == 0 && isAuthenticatedXPointer(fragment))) {
    opt.selection = xml::CanonSelection::Authenticated;
    opt.onlyOneAuthenticated = ebicsMode;
    opt.authenticatedIndex = ebicsIndex;
  } else if (fragment.empty() || fragment == "xpointer(/)") {
    opt.selection = xml::CanonSelection::WholeDocument;
  } else if (fragment.rfind("xpointer", 0) == 0) {
    if (!parseXPointerId(fragment, opt.id)) {
      log.LogError("Unsupported XPointer expression.");
      log.LogDataStr("fragmentId", fragmentId);
      return false;
    }
    opt.selection = xml::CanonSelection::ById;
  } else {
    // A bare name ("#X") selects the element without its comments.
    opt.selection = xml::CanonSelection::ById;
    opt.id = fragment;
    keepComments = false;
  }
  opt.comments = keepComments;
  opt.cutStart = cutStart;
  opt.cutLength = cutLength;
  opt.sink = outputSink;

  std::string pieceBuffer;
  std::string& target = outputSink ? pieceBuffer : out.raw();
  const size_t sizeBefore = target.size();
  xml::XmlCanonWriter writer(xml.view(), opt, target);
  const bool ok = writer.run();
  if (opt.selection == xml::CanonSelection::Authenticated && ebicsMode) ebicsCount += writer.authenticatedSeen();
  if (ok) return true;

  target.resize(sizeBefore);
  if (writer.error().empty()) {
    switch (opt.selection) {
      case xml::CanonSelection::ById:
        log.LogError(("Element with Id '" + std::string(opt.id) + "' not found.").c_str());
        break;
      case xml::CanonSelection::AtOffset:
        log.LogError(("No element starts at offset " + std::to_string(startOffset) + ".").c_str());
        break;
      case xml::CanonSelection::Authenticated:
        // In EBICS mode this ends the caller's loop over the authenticated elements: only
        // an empty first round is an error.
        if (ebicsMode && ebicsIndex > 0)
          log.LogInfo(
              ("No more elements with authenticate=\"true\" (" + std::to_string(ebicsIndex) + " canonicalized).")
                  .c_str());
        else log.LogError("No element with authenticate=\"true\" found.");
        break;
      case xml::CanonSelection::WholeDocument: log.LogError("The XML has no document element."); break;
    }
    return false;
  }
  log.LogError(writer.error().c_str());
  return false;
}
