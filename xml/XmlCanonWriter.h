// The streaming engine behind XmlCanon: walks the scanner's tokens once, keeps the
// namespaces in scope and the namespaces already rendered, and writes the canonical
// form of the selected part of the document.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/xml/XmlScanner.h"
#include "xml/NamespaceStack.h"

namespace xml {

// Which part of the document is written.
enum class CanonSelection {
  WholeDocument,  // everything, with comments and PIs outside the document element
  ById,           // the first element identified by `id`
  AtOffset,       // the element whose start tag begins at `offset`
  Authenticated,  // the outermost elements with authenticate="true"
};

struct CanonOptions {
  bool exclusive = false;
  bool comments = false;
  bool attrSortBug = false;
  std::vector<std::string> inclusivePrefixes;  // exclusive only; "" = default namespace
  CanonSelection selection = CanonSelection::WholeDocument;
  std::string_view id;
  size_t offset = 0;
  // Authenticated: write only the element with this 0-based index (else write them all).
  bool onlyOneAuthenticated = false;
  int authenticatedIndex = 0;
  // A byte range of the text written as if it had been cut out of it (the enveloped
  // signature). It must hold whole elements: it starts at a start tag's '<' and ends just
  // past an end tag (or an empty-element tag), so no text, reference or line end is split.
  size_t cutStart = 0;
  size_t cutLength = 0;
  // When set, the output is handed to this function in pieces of some tens of kilobytes
  // as it is written, and `out` only buffers the piece being written.
  std::function<void(std::string_view)> sink;
};

class XmlCanonWriter {
 public:
  XmlCanonWriter(std::string_view text, const CanonOptions& options, std::string& out);

  // Appends the canonical form to out. False on a scanner error (error() says what) or
  // when nothing was selected (error() is then empty).
  bool run();
  const std::string& error() const { return m_error; }
  bool found() const { return m_found; }
  // Authenticated elements met (outermost ones only).
  int authenticatedSeen() const { return m_authenticatedSeen; }

 private:
  struct OutAttr {
    std::string_view qname;
    std::string_view uri;
    std::string_view local;
    std::string_view value;
  };
  struct SavedXmlAttr {  // an xml:* attribute of an open element outside the output
    size_t depth;
    std::string qname;
    std::string value;
  };

  bool onStartTag();
  void onEndTag(size_t depth, std::string_view name);
  bool isSelected(bool& stopScanning);
  bool writeStartTag(bool isApex);
  bool appendSourceStartTag();
  bool appendPlainStartTag();
  bool appendSourceTagUpTo(size_t at);
  bool declareNamespaces();
  bool attributeValue(const XmlAttribute& attr, std::string& scratch, std::string_view& value);
  bool collectAttributes(bool isApex);
  void renderNamespaces(bool isApex);
  void considerNamespace(std::string_view prefix);
  void writeMisc(const XmlToken& tok);
  bool writeText(const XmlToken& tok);
  bool failScanner();
  bool inCut(size_t offset) const { return offset - m_opt.cutStart < m_opt.cutLength; }
  void flushToSink();
  // Output that is the source's own bytes [from, to): consecutive ones join into one run,
  // written (or handed to the sink) in one piece when other output follows.
  void appendSource(size_t from, size_t to);
  void flushRun();
  // The output buffer, with any pending run written to it first.
  std::string& buffer() {
    if (m_runEnd != m_runStart) flushRun();
    return m_out;
  }

  std::string_view m_text;
  const CanonOptions& m_opt;
  std::string& m_out;
  size_t m_runStart = 0;
  size_t m_runEnd = 0;
  XmlScanner m_scanner;
  XmlToken m_tok;

  NamespaceStack m_inScope;
  NamespaceStack m_rendered;
  std::vector<SavedXmlAttr> m_xmlAttrs;

  size_t m_apexDepth = 0;  // depth of the element being written, 0 outside the output
  size_t m_skipDepth = 0;  // Authenticated: depth of a skipped authenticated element
  bool m_rootSeen = false;
  bool m_rootClosed = false;
  bool m_done = false;
  bool m_found = false;
  int m_authenticatedSeen = 0;
  std::string m_error;

  // Per-element working storage, kept to reuse its capacity.
  std::vector<OutAttr> m_attrs;
  std::vector<std::string> m_valueScratch;
  std::vector<std::string_view> m_candidates;
  std::vector<std::pair<std::string_view, const std::string*>> m_nsOut;
  std::string m_textScratch;
};

}  // namespace xml
