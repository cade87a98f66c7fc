#include "xml/XmlCanonWriter.h"

#include <algorithm>
#include <unordered_set>

#include "xml/XmlCanonEscape.h"

namespace xml {

namespace {

constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

bool isNamespaceDeclaration(std::string_view qname) {
  return qname.size() >= 5 && qname.compare(0, 5, "xmlns") == 0 && (qname.size() == 5 || qname[5] == ':');
}

// "xmlns" declares the default namespace (""), "xmlns:p" the prefix p.
std::string_view declaredPrefix(std::string_view qname) {
  return qname.size() == 5 ? std::string_view() : qname.substr(6);
}

bool isIdentifyingName(std::string_view qname) {
  const std::string_view local = localNameOf(qname);
  return local == "Id" || local == "ID" || local == "id";
}

// Whether an attribute value changes under reference expansion and white-space
// normalisation. (A plain loop: find_first_of with a set costs a library call per byte.)
bool needsDecoding(std::string_view raw) {
  for (const char c : raw)
    if (c == '&' || c == '\r' || c == '\t' || c == '\n') return true;
  return false;
}

bool isXmlAttribute(std::string_view qname) { return prefixOf(qname) == "xml"; }

}  // namespace

XmlCanonWriter::XmlCanonWriter(std::string_view text, const CanonOptions& options, std::string& out)
    : m_text(text), m_opt(options), m_out(out), m_scanner(text) {}

bool XmlCanonWriter::failScanner() {
  m_error = "XML parse error: " + m_scanner.errorMessage();
  return false;
}

void XmlCanonWriter::flushToSink() {
  m_opt.sink(m_out);
  m_out.clear();
}

void XmlCanonWriter::appendSource(size_t from, size_t to) {
  if (m_runEnd == from && m_runEnd != m_runStart) {
    m_runEnd = to;
    return;
  }
  flushRun();
  m_runStart = from;
  m_runEnd = to;
}

void XmlCanonWriter::flushRun() {
  const std::string_view run = m_text.substr(m_runStart, m_runEnd - m_runStart);
  m_runStart = m_runEnd = 0;
  if (run.empty()) return;
  if (!m_opt.sink) {
    m_out.append(run.data(), run.size());
    return;
  }
  // Source bytes go to the sink straight from the text, after what is buffered.
  if (!m_out.empty()) flushToSink();
  m_opt.sink(run);
}

bool XmlCanonWriter::run() {
  // Pieces of this size stay in the processor's caches between writing and hashing.
  constexpr size_t kSinkPiece = 64 * 1024;
  if (m_opt.sink) {
    m_out.clear();
    m_out.reserve(kSinkPiece + 4096);
  } else if (m_opt.selection == CanonSelection::WholeDocument) {
    // The output is about the size of the input; reserving it once avoids the copies
    // (and the doubled peak memory) of repeated growth.
    m_out.reserve(m_out.size() + m_text.size() + m_text.size() / 16);
  } else if (m_opt.selection == CanonSelection::AtOffset && m_opt.offset >= m_text.size()) {
    m_error = "The start offset " + std::to_string(m_opt.offset) + " lies beyond the end of the XML (" +
              std::to_string(m_text.size()) + " bytes).";
    return false;
  }

  while (!m_done && m_scanner.next(m_tok)) {
    // The scanner still reads the cut-out elements, so the document stays checked as a
    // whole; they just produce no output and no namespace scopes.
    if (m_opt.cutLength != 0 && inCut(m_tok.start)) continue;
    switch (m_tok.type) {
      case XmlTokenType::StartTag:
        if (!onStartTag()) return false;
        break;
      case XmlTokenType::EndTag: onEndTag(m_tok.depth, m_tok.name); break;
      case XmlTokenType::Text:
      case XmlTokenType::CData:
        if (m_apexDepth != 0 && !writeText(m_tok)) return false;
        break;
      case XmlTokenType::Comment:
      case XmlTokenType::PI: writeMisc(m_tok); break;
      case XmlTokenType::XmlDecl:
      case XmlTokenType::Doctype: break;
    }
    if (m_opt.sink && m_out.size() >= kSinkPiece) flushToSink();
  }
  if (m_scanner.hasError()) return failScanner();
  if (!m_error.empty()) return false;
  if (m_found) flushRun();
  if (m_found && m_opt.sink && !m_out.empty()) flushToSink();
  return m_found;
}

bool XmlCanonWriter::onStartTag() {
  m_inScope.pushScope();
  if (!declareNamespaces()) return false;
  if (m_tok.depth == 1) m_rootSeen = true;

  const bool inside = m_apexDepth != 0;
  bool isApex = false;
  if (!inside) {
    bool stop = false;
    isApex = isSelected(stop);
    if (stop) {
      m_done = true;
      return true;
    }
    if (isApex) {
      m_apexDepth = m_tok.depth;
      m_found = true;
    } else if (!m_opt.exclusive && m_opt.selection != CanonSelection::WholeDocument) {
      // Remember the xml:* attributes of possible ancestors of the element to come.
      for (const XmlAttribute& a : m_tok.attributes) {
        if (!isXmlAttribute(a.qname)) continue;
        std::string value;
        if (!m_scanner.decodeAttributeValue(a.rawValue, value)) return failScanner();
        m_xmlAttrs.push_back(SavedXmlAttr{m_tok.depth, std::string(a.qname), std::move(value)});
      }
    }
  }
  if ((inside || isApex) && !writeStartTag(isApex)) return false;
  if (m_tok.selfClosing) onEndTag(m_tok.depth, m_tok.name);
  return true;
}

void XmlCanonWriter::onEndTag(size_t depth, std::string_view name) {
  if (m_apexDepth != 0) {
    if (m_tok.type == XmlTokenType::EndTag && m_tok.end - m_tok.start == name.size() + 3) {
      appendSource(m_tok.start, m_tok.start + name.size() + 3);  // written as "</name>" already
    } else {
      std::string& out = buffer();
      out.append("</");
      out.append(name.data(), name.size());
      out.push_back('>');
    }
    m_rendered.popScope();
    if (depth == m_apexDepth) {
      m_apexDepth = 0;
      // A single selected element is complete: the rest of the document is not needed.
      if (m_opt.selection == CanonSelection::ById || m_opt.selection == CanonSelection::AtOffset ||
          (m_opt.selection == CanonSelection::Authenticated && m_opt.onlyOneAuthenticated))
        m_done = true;
    }
  }
  while (!m_xmlAttrs.empty() && m_xmlAttrs.back().depth >= depth) m_xmlAttrs.pop_back();
  if (m_skipDepth == depth) m_skipDepth = 0;
  if (depth == 1) m_rootClosed = true;
  m_inScope.popScope();
}

bool XmlCanonWriter::declareNamespaces() {
  for (const XmlAttribute& a : m_tok.attributes) {
    if (!isNamespaceDeclaration(a.qname)) continue;
    if (!needsDecoding(a.rawValue)) {
      m_inScope.declare(declaredPrefix(a.qname), a.rawValue);
      continue;
    }
    m_textScratch.clear();
    if (!m_scanner.decodeAttributeValue(a.rawValue, m_textScratch)) return failScanner();
    m_inScope.declare(declaredPrefix(a.qname), m_textScratch);
  }
  return true;
}

// Decides whether the current start tag (outside the output) is the element to write.
bool XmlCanonWriter::isSelected(bool& stopScanning) {
  switch (m_opt.selection) {
    case CanonSelection::WholeDocument: return m_tok.depth == 1;
    case CanonSelection::AtOffset:
      if (m_tok.start > m_opt.offset) stopScanning = true;  // passed it: nothing starts there
      return m_tok.start == m_opt.offset;
    case CanonSelection::ById: {
      const XmlDtd& dtd = m_scanner.dtd();
      for (const XmlAttribute& a : m_tok.attributes) {
        bool idType = false;
        if (!dtd.empty()) idType = dtd.attributeType(m_tok.name, a.qname) == "ID";
        if (!idType && !isIdentifyingName(a.qname)) continue;
        if (!needsDecoding(a.rawValue) && !idType) {
          if (a.rawValue == m_opt.id) return true;
          continue;
        }
        std::string value;
        if (!m_scanner.decodeAttributeValue(a.rawValue, value, idType)) {
          m_error = "XML parse error: " + m_scanner.errorMessage();
          stopScanning = true;
          return false;
        }
        if (value == m_opt.id) return true;
      }
      return false;
    }
    case CanonSelection::Authenticated: {
      if (m_skipDepth != 0) return false;  // nested in an authenticated element passed over
      bool authenticated = false;
      for (const XmlAttribute& a : m_tok.attributes) {
        if (localNameOf(a.qname) != "authenticate" || isNamespaceDeclaration(a.qname)) continue;
        std::string value;
        if (!m_scanner.decodeAttributeValue(a.rawValue, value)) continue;
        authenticated = value == "true";
        break;
      }
      if (!authenticated) return false;
      const int index = m_authenticatedSeen++;
      if (!m_opt.onlyOneAuthenticated || index == m_opt.authenticatedIndex) return true;
      if (index > m_opt.authenticatedIndex) {
        stopScanning = true;
        return false;
      }
      m_skipDepth = m_tok.depth;
      return false;
    }
  }
  return false;
}

bool XmlCanonWriter::writeStartTag(bool isApex) {
  m_rendered.pushScope();
  if (!isApex && appendPlainStartTag()) return true;
  renderNamespaces(isApex);
  if (!collectAttributes(isApex)) return false;
  if (appendSourceStartTag()) return true;

  std::string& out = buffer();

  out.push_back('<');
  out.append(m_tok.name.data(), m_tok.name.size());
  for (const auto& ns : m_nsOut) {
    if (ns.first.empty()) {
      out.append(" xmlns=\"");
    } else {
      out.append(" xmlns:");
      out.append(ns.first.data(), ns.first.size());
      out.append("=\"");
    }
    appendEscapedAttribute(out, *ns.second);
    out.push_back('"');
  }
  for (const OutAttr& a : m_attrs) {
    out.push_back(' ');
    out.append(a.qname.data(), a.qname.size());
    out.append("=\"");
    appendEscapedAttribute(out, a.value);
    out.push_back('"');
  }
  out.push_back('>');
  return true;
}

// The commonest start tag inside the output, decided from the source alone: inclusive
// canonicalization, no DTD, unprefixed attributes (so no namespaces to write and none to sort
// by) in increasing order, each written as ' name="value"' with a value that needs neither
// decoding nor escaping. It is copied as it stands, without collecting its attributes.
bool XmlCanonWriter::appendPlainStartTag() {
  if (m_opt.exclusive || !m_scanner.dtd().empty()) return false;
  const char* const base = m_text.data();
  size_t at = m_tok.start + 1 + m_tok.name.size();
  std::string_view previous;
  for (const XmlAttribute& a : m_tok.attributes) {
    const std::string_view q = a.qname;
    if (q.find(':') != std::string_view::npos || q == "xmlns" || q <= previous) return false;
    if (a.start != at + 1 || base[at] != ' ' || a.quote != '"' || a.rawValue.data() != q.data() + q.size() + 2 ||
        base[a.start + q.size()] != '=' || needsDecoding(a.rawValue))
      return false;
    previous = q;
    at = a.end;
  }
  return appendSourceTagUpTo(at);
}

// Ends a start tag copied from the source, whose attributes end at `at`: "...>" is copied
// whole, "/>" becomes ">" (the end tag follows separately).
bool XmlCanonWriter::appendSourceTagUpTo(size_t at) {
  if (at >= m_text.size()) return false;
  if (m_text[at] == '>') {
    appendSource(m_tok.start, at + 1);
    return true;
  }
  if (m_text[at] == '/' && at + 1 < m_text.size() && m_text[at + 1] == '>') {
    appendSource(m_tok.start, at);
    buffer().push_back('>');
    return true;
  }
  return false;
}

// Start tags that are already canonical in the source (no namespace declarations to
// write, attributes in output order, each written as ' name="value"' with a value that
// needs neither decoding nor escaping) are copied in one piece. The attribute views
// point into the text, so comparing positions proves the bytes are the same.
bool XmlCanonWriter::appendSourceStartTag() {
  if (!m_nsOut.empty()) return false;
  const char* const base = m_text.data();
  size_t at = m_tok.start + 1 + m_tok.name.size();
  for (const OutAttr& a : m_attrs) {
    if (a.qname.data() != base + at + 1 || base[at] != ' ') return false;
    at += 1 + a.qname.size();
    if (at + 2 > m_text.size() || base[at] != '=' || base[at + 1] != '"' || a.value.data() != base + at + 2)
      return false;
    at += 2 + a.value.size();
    if (at >= m_text.size() || base[at] != '"' || attributeNeedsEscaping(a.value)) return false;
    ++at;
  }
  return appendSourceTagUpTo(at);
}

// Chooses the namespace declarations to write on the current element: a namespace is
// written when its value differs from the one the nearest output ancestor rendered
// (an absent default namespace counts as ""). Inclusive c14n considers every namespace
// in scope on the apex and the element's own declarations below it; exclusive c14n
// considers the prefixes the element visibly uses plus the InclusiveNamespaces list.
void XmlCanonWriter::renderNamespaces(bool isApex) {
  m_candidates.clear();
  m_nsOut.clear();
  if (!m_opt.exclusive) {
    if (isApex) {
      m_inScope.forEachInScope([this](std::string_view prefix, const std::string&) { m_candidates.push_back(prefix); });
    } else {
      for (const XmlAttribute& a : m_tok.attributes)
        if (isNamespaceDeclaration(a.qname)) m_candidates.push_back(declaredPrefix(a.qname));
    }
  } else {
    m_candidates.push_back(prefixOf(m_tok.name));
    for (const XmlAttribute& a : m_tok.attributes) {
      if (isNamespaceDeclaration(a.qname)) continue;
      const std::string_view prefix = prefixOf(a.qname);
      if (!prefix.empty()) m_candidates.push_back(prefix);  // unprefixed attributes use no namespace
    }
    for (const std::string& p : m_opt.inclusivePrefixes) m_candidates.push_back(p);
  }
  // Sorted and unique (an element may use one prefix many times): the declarations then
  // come out in canonical order, in O(n log n) even for hostile attribute counts.
  std::sort(m_candidates.begin(), m_candidates.end());
  m_candidates.erase(std::unique(m_candidates.begin(), m_candidates.end()), m_candidates.end());
  for (const std::string_view prefix : m_candidates) considerNamespace(prefix);
}

void XmlCanonWriter::considerNamespace(std::string_view prefix) {
  if (prefix == "xml") return;  // bound by definition, never declared
  static const std::string kEmpty;
  const std::string* value = m_inScope.lookup(prefix);
  const std::string* rendered = m_rendered.lookup(prefix);
  if (prefix.empty()) {
    // The default namespace: absent and "" are the same, so xmlns="" is written only to
    // undo a default namespace that an output ancestor rendered.
    if (value == nullptr) value = &kEmpty;
    if (*value == (rendered ? *rendered : kEmpty)) return;
  } else {
    if (value == nullptr) return;  // not bound here (a prefix listed but not in scope)
    if (rendered != nullptr && *rendered == *value) return;
  }
  m_rendered.declare(prefix, *value);
  m_nsOut.emplace_back(prefix, value);
}

bool XmlCanonWriter::attributeValue(const XmlAttribute& attr, std::string& scratch, std::string_view& value) {
  bool nonCdata = false;
  const XmlDtd& dtd = m_scanner.dtd();
  if (!dtd.empty()) {
    const std::string_view type = dtd.attributeType(m_tok.name, attr.qname);
    nonCdata = !type.empty() && type != "CDATA";
  }
  if (!nonCdata && !needsDecoding(attr.rawValue)) {
    value = attr.rawValue;
    return true;
  }
  scratch.clear();
  if (!m_scanner.decodeAttributeValue(attr.rawValue, scratch, nonCdata)) return failScanner();
  value = scratch;
  return true;
}

// The attribute-sorting emulation. Canonicalizers in widespread signing software sort
// attributes by their qualified name as written (prefix, colon and local name compared
// as one byte string) instead of by namespace URI and then local name. The two orders
// differ when prefixes do not sort like their URIs (p:b bound to "urn:z" against q:a
// bound to "urn:a") and when a prefixed attribute's name sorts before an unprefixed one
// ("a:x" before "b", where correctly every unprefixed attribute comes first). Namespace
// declarations are not affected: those canonicalizers order them by prefix, as the
// standard does, and always before the attributes.
bool XmlCanonWriter::collectAttributes(bool isApex) {
  m_attrs.clear();
  if (m_valueScratch.size() < m_tok.attributes.size() + 1) m_valueScratch.resize(m_tok.attributes.size() + 1);
  size_t scratchIndex = 0;
  for (const XmlAttribute& a : m_tok.attributes) {
    if (isNamespaceDeclaration(a.qname)) continue;
    OutAttr out;
    out.qname = a.qname;
    out.local = localNameOf(a.qname);
    const std::string_view prefix = prefixOf(a.qname);
    if (prefix == "xml") {
      out.uri = kXmlNamespace;
    } else if (!prefix.empty()) {
      const std::string* uri = m_inScope.lookup(prefix);
      if (uri != nullptr) out.uri = *uri;
    }
    if (!attributeValue(a, m_valueScratch[scratchIndex++], out.value)) return false;
    m_attrs.push_back(out);
  }
  // The apex of an inclusive subset takes the xml:* attributes of its ancestors
  // (nearest first) that it does not carry itself.
  if (isApex && !m_opt.exclusive && !m_xmlAttrs.empty()) {
    std::unordered_set<std::string_view> present;
    for (const OutAttr& a : m_attrs) present.insert(a.qname);
    for (auto it = m_xmlAttrs.rbegin(); it != m_xmlAttrs.rend(); ++it)
      if (present.insert(it->qname).second)
        m_attrs.push_back(OutAttr{it->qname, kXmlNamespace, localNameOf(it->qname), it->value});
  }
  const auto before = [](const OutAttr& a, const OutAttr& b) {
    const int c = a.uri.compare(b.uri);
    return c != 0 ? c < 0 : a.local < b.local;
  };
  // Most documents already write attributes in canonical order, and then need no sort.
  bool strictlyIncreasing = true;
  for (size_t i = 1; i < m_attrs.size() && strictlyIncreasing; ++i)
    strictlyIncreasing = before(m_attrs[i - 1], m_attrs[i]);
  if (!strictlyIncreasing) std::sort(m_attrs.begin(), m_attrs.end(), before);
  for (size_t i = 1; i < m_attrs.size() && !strictlyIncreasing; ++i) {
    if (m_attrs[i].uri == m_attrs[i - 1].uri && m_attrs[i].local == m_attrs[i - 1].local) {
      size_t line = 0, column = 0;
      m_scanner.lineAndColumn(m_tok.start, line, column);
      m_error = "XML parse error: line " + std::to_string(line) + ", column " + std::to_string(column) +
                ": attributes " + std::string(m_attrs[i - 1].qname) + " and " + std::string(m_attrs[i].qname) +
                " have the same namespace and local name";
      return false;
    }
  }
  // Signers with the attribute-sorting bug order by qualified name; the check above still
  // refuses what no order could make well-formed.
  if (m_opt.attrSortBug)
    std::sort(m_attrs.begin(), m_attrs.end(), [](const OutAttr& a, const OutAttr& b) { return a.qname < b.qname; });
  return true;
}

void XmlCanonWriter::writeMisc(const XmlToken& tok) {
  const bool isComment = tok.type == XmlTokenType::Comment;
  if (isComment && !m_opt.comments) return;
  bool before = false, after = false;
  if (m_apexDepth == 0) {
    // Outside the output only the whole document keeps nodes, and only around the root.
    if (m_opt.selection != CanonSelection::WholeDocument || tok.depth != 0) return;
    before = !m_rootSeen;
    after = m_rootClosed;
  }
  std::string& out = buffer();
  if (after) out.push_back('\n');
  if (isComment) {
    out.append("<!--");
    appendNormalizedLineEnds(out, tok.content);
    out.append("-->");
  } else {
    out.append("<?");
    out.append(tok.name.data(), tok.name.size());
    if (!tok.content.empty()) {
      out.push_back(' ');
      appendNormalizedLineEnds(out, tok.content);
    }
    out.append("?>");
  }
  if (before) out.push_back('\n');
}

bool XmlCanonWriter::writeText(const XmlToken& tok) {
  const bool isText = tok.type == XmlTokenType::Text;
  const bool inSource = tok.content.data() >= m_text.data() &&
                        tok.content.data() + tok.content.size() <= m_text.data() + m_text.size();
  if (isText && inSource && isCanonicalTextAsWritten(tok.content)) {
    const size_t from = static_cast<size_t>(tok.content.data() - m_text.data());
    appendSource(from, from + tok.content.size());
    return true;
  }
  std::string& out = buffer();
  const size_t mark = out.size();
  if (appendEscapedRawText(out, tok.content, isText)) return true;
  out.resize(mark);  // the text holds references: expand them first
  m_textScratch.clear();
  if (!m_scanner.decodeText(tok.content, m_textScratch)) return failScanner();
  appendEscapedText(out, m_textScratch);
  return true;
}

}  // namespace xml
