// Fuzz target: the canonicalizer on arbitrary text, every method and selection: whole
// document, an element by Id, the element at a start offset, EBICS authenticated
// elements. Checks that canonical output is canonical again unchanged (whole document),
// that a failed call leaves the output buffer as it was, and that an element cut out by
// span with the output handed to a sink in pieces gives the canonical form of the text
// with that element removed.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlCanon.h"

namespace fuzz_xmlcanon {

inline void configure(XmlCanon& canon, unsigned h) {
  canon.canonMethod = (h & 1) ? 2 : 1;
  canon.withComments = (h & 2) != 0;
  if (h & 4) {
    canon.inclusivePrefixes.appendString("#default");
    canon.inclusivePrefixes.appendString("ds");
  }
}

// Canonicalizes and checks that a failure appends nothing.
inline bool canonicalize(XmlCanon& canon, const StringBuffer& xml, const char* fragment, size_t offset,
                         StringBuffer& out) {
  static const char kBefore[] = "kept";
  out.setString(kBefore);
  LogNull log;
  const bool ok = canon.xmlCanonicalize(xml, fragment, offset, out, log);
  fuzzsupport::check(ok ? out.beginsWith(kBefore) : out.equals(kBefore), "xmlcanon",
                     "a failed canonicalization changed the output");
  out.removeChunk(0, sizeof(kBefore) - 1);
  return ok;
}

// The value of the first Id="..." attribute of the text, or "" when there is none.
inline std::string firstId(const std::string& text) {
  const size_t at = text.find("Id=\"");
  if (at == std::string::npos) return std::string();
  const size_t end = text.find('"', at + 4);
  return end == std::string::npos ? std::string() : text.substr(at + 4, end - at - 4);
}

// The n-th element below the root cut out as a span, against the same element removed
// from the text. A CR before the span and an LF after it join into one line end once the
// text is removed, and a removal can make the rest ill-formed ("]]" + ">"): neither is
// compared.
inline void checkCutSpan(const std::string& text, unsigned h) {
  xml::XmlTree tree;
  std::string error;
  if (!tree.parse(text, error) || tree.nodeCount() < 2) return;
  const xml::XmlNode* node = tree.nodeAt(static_cast<uint32_t>(1 + h % (tree.nodeCount() - 1)));
  const size_t start = node->start;
  const size_t end = node->end;
  if (text[start - 1] == '\r' && end < text.size() && text[end] == '\n') return;

  XmlCanon expected;
  configure(expected, h >> 4);
  StringBuffer want;
  LogNull log;
  if (!expected.xmlCanonicalize(StringBuffer(text.substr(0, start) + text.substr(end)), nullptr, 0, want, log)) return;

  XmlCanon cut;
  configure(cut, h >> 4);
  cut.cutStart = start;
  cut.cutLength = end - start;
  std::string pieces;
  cut.outputSink = [&pieces](std::string_view piece) { pieces.append(piece); };
  StringBuffer unused;
  fuzzsupport::check(cut.xmlCanonicalize(StringBuffer(text), nullptr, 0, unused, log), "xmlcanon",
                     "canonicalization with a cut-out element failed");
  fuzzsupport::check(pieces == want.str(), "xmlcanon", "a cut-out element is not the same as its removal");
  fuzzsupport::check(unused.isEmpty(), "xmlcanon", "output written to the buffer while a sink was set");
}

inline int run(const uint8_t* data, size_t size) {
  const std::string text = fuzzsupport::asText(data, size);
  const StringBuffer xml{std::string_view(text)};
  const unsigned h = fuzzsupport::pick(data, size);

  {
    XmlCanon canon;
    configure(canon, h);
    canon.emulateAttrSortBug = (h & 8) != 0;
    StringBuffer once;
    if (canonicalize(canon, xml, nullptr, 0, once) && !canon.emulateAttrSortBug) {
      XmlCanon again;
      configure(again, h);
      StringBuffer twice;
      fuzzsupport::check(canonicalize(again, once, nullptr, 0, twice), "xmlcanon", "canonical output rejected");
      fuzzsupport::check(twice.equals(once), "xmlcanon", "canonical output not stable");
    }
  }
  {
    // The element whose start tag begins at the n-th '<' (as the SignedInfo road does).
    size_t offset = 0;
    for (unsigned n = (h >> 4) % 16; n > 0; --n) {
      const size_t lt = text.find('<', offset + 1);
      if (lt == std::string::npos) break;
      offset = lt;
    }
    XmlCanon canon;
    configure(canon, h >> 8);
    StringBuffer out;
    canonicalize(canon, xml, nullptr, offset, out);
  }
  {
    const std::string id = firstId(text);
    const std::string xpointer = "xpointer(id('" + id + "'))";
    XmlCanon canon;
    configure(canon, h >> 12);
    StringBuffer out;
    canonicalize(canon, xml, (h & 0x10000) ? xpointer.c_str() : id.c_str(), 0, out);
  }
  {
    XmlCanon canon;
    configure(canon, h >> 18);
    canon.ebicsMode = (h & 0x200000) != 0;
    canon.ebicsIndex = static_cast<int>((h >> 22) % 3);
    StringBuffer out;
    canonicalize(canon, xml, "xpointer(//*[@authenticate='true'])", 0, out);
  }
  checkCutSpan(text, h >> 8);
  return 0;
}

}  // namespace fuzz_xmlcanon

XMLDSIG_FUZZ_TARGET(fuzz_xmlcanon::run)
