// Text locators of signatures, built on the project's XML scanner. Working on the token
// stream rather than on raw substrings means that "<Signature" inside a comment, a CDATA
// section or an attribute value is never taken for an element, and the offsets reported
// are those of the real elements in the exact text that was searched.
#include "xml/XmlSigLocate.h"

#include <string>
#include <string_view>
#include <vector>

#include "support/LogBase.h"
#include "support/xml/XmlScanner.h"

namespace {

using xml::XmlScanner;
using xml::XmlToken;
using xml::XmlTokenType;

constexpr std::string_view kDsigNamespace = "http://www.w3.org/2000/09/xmldsig#";

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string withoutWhiteSpace(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (char c : s)
    if (!isXmlSpace(c)) out.push_back(c);
  return out;
}

// An attribute value as the application sees it (references expanded). Values without
// references are taken as they stand, which is the common case and costs nothing.
std::string attributeValue(XmlScanner& scanner, std::string_view raw) {
  if (raw.find('&') == std::string_view::npos) return std::string(raw);
  std::string out;
  scanner.decodeAttributeValue(raw, out);
  return out;
}

// The namespace declarations in scope while walking the token stream.
class NamespaceScope {
 public:
  // Records the declarations of a start tag; returns the mark to restore when it closes.
  size_t enter(XmlScanner& scanner, const XmlToken& tok) {
    const size_t mark = m_bindings.size();
    for (const xml::XmlAttribute& a : tok.attributes) {
      if (a.qname == "xmlns") m_bindings.push_back({std::string_view(), attributeValue(scanner, a.rawValue)});
      else if (a.qname.size() > 6 && a.qname.compare(0, 6, "xmlns:") == 0)
        m_bindings.push_back({a.qname.substr(6), attributeValue(scanner, a.rawValue)});
    }
    return mark;
  }
  void leave(size_t mark) {
    if (mark < m_bindings.size()) m_bindings.resize(mark);
  }
  // The namespace bound to a prefix ("" for the default namespace); null when undeclared.
  const std::string* resolve(std::string_view prefix) const {
    for (auto it = m_bindings.rbegin(); it != m_bindings.rend(); ++it)
      if (it->prefix == prefix) return &it->uri;
    return nullptr;
  }
  bool inDsigNamespace(std::string_view qname) const {
    const std::string* ns = resolve(xml::prefixOf(qname));
    return ns != nullptr && *ns == kDsigNamespace;
  }
  // A Signature element: of the XML-Signature namespace or, when lenient, of no namespace
  // at all: unprefixed with no default namespace in scope (documents that never declared
  // it), or with a prefix declared outside the text (a span cut out of a document).
  bool isSignatureElement(std::string_view qname, bool lenient) const {
    if (xml::localNameOf(qname) != "Signature") return false;
    if (inDsigNamespace(qname)) return true;
    if (!lenient) return false;
    const std::string_view prefix = xml::prefixOf(qname);
    const std::string* ns = resolve(prefix);
    return ns == nullptr || (prefix.empty() && ns->empty());
  }

 private:
  struct Binding {
    std::string_view prefix;
    std::string uri;
  };
  std::vector<Binding> m_bindings;
};

// What is known of one signature (or of an element that may turn out to be one, in the
// EBICS form of an element whose direct children are SignedInfo and SignatureValue).
struct SignatureRecord {
  size_t start = 0;
  size_t end = 0;
  bool isSignatureElement = false;
  bool hasSignedInfoChild = false;  // of the XML-Signature namespace
  bool hasSignatureValueChild = false;
  bool idMatches = false;
  bool digestMatches = false;
  size_t signedInfoStart = 0, signedInfoEnd = 0;
  bool signedInfoSeen = false;
  // XAdES positions (0 = not present).
  size_t signatureValueLoc = 0;
  size_t qualifyingPropertiesLoc = 0;
  size_t unsignedPropertiesLoc = 0;
  size_t unsignedSignaturePropertiesLoc = 0;
  size_t signedPropertiesLoc = 0, signedPropertiesEnd = 0;
  size_t objectLoc = 0;
  size_t lastChildLoc = 0, lastChildEnd = 0;

  bool isSignature() const { return isSignatureElement || (hasSignedInfoChild && hasSignatureValueChild); }
};

// Roles an open element plays for the signature that encloses it.
enum FrameRole : unsigned {
  kRoleNone = 0,
  kRoleDirectChild = 1,  // direct child of the record's element
  kRoleSignedInfo = 2,   // the record's SignedInfo
  kRoleReference = 4,    // Reference directly inside that SignedInfo
  kRoleDigestValue = 8,  // DigestValue directly inside that Reference
  kRoleSignedProperties = 16,
};

struct Frame {
  size_t start = 0;
  size_t nsMark = 0;
  std::string_view qname;
  bool idMatches = false;
  int record = -1;  // record owned by this element, or -1
  int owner = -1;   // record of the innermost enclosing signature, or -1
  unsigned roles = kRoleNone;
};

enum class SearchBy { Id, Digest };

// One pass over the text that finds the first signature (in document order) matching the
// search, with its SignedInfo and XAdES positions.
class SignatureFinder {
 public:
  SignatureFinder(const StringBuffer& text, SearchBy by, std::string_view key)
      : m_scanner(text.view()), m_by(by), m_key(key) {}

  // Index of the found record, or -1.
  int run() {
    XmlToken tok;
    while (m_scanner.next(tok)) {
      switch (tok.type) {
        case XmlTokenType::StartTag:
          openElement(tok);
          if (tok.selfClosing && closeElement(tok.end)) return m_found;
          break;
        case XmlTokenType::EndTag:
          if (closeElement(tok.end)) return m_found;
          break;
        case XmlTokenType::Text:
          if (collectingDigest()) m_scanner.decodeText(tok.content, m_digestText);
          break;
        case XmlTokenType::CData:
          if (collectingDigest()) m_digestText.append(tok.content);
          break;
        default: break;
      }
    }
    return m_found;
  }

  const SignatureRecord& record(int i) const { return m_records[static_cast<size_t>(i)]; }
  XmlScanner& scanner() { return m_scanner; }

 private:
  bool collectingDigest() const {
    return m_by == SearchBy::Digest && !m_stack.empty() && (m_stack.back().roles & kRoleDigestValue);
  }

  int newRecord(size_t frameIndex, bool isSignatureElement) {
    Frame& f = m_stack[frameIndex];
    SignatureRecord r;
    r.start = f.start;
    r.isSignatureElement = isSignatureElement;
    r.idMatches = f.idMatches;
    m_records.push_back(r);
    f.record = static_cast<int>(m_records.size() - 1);
    return f.record;
  }

  void openElement(const XmlToken& tok) {
    Frame f;
    f.start = tok.start;
    f.qname = tok.name;
    f.nsMark = m_ns.enter(m_scanner, tok);
    if (m_by == SearchBy::Id) {
      for (const xml::XmlAttribute& a : tok.attributes)
        if (a.qname == "Id") {
          f.idMatches = attributeValue(m_scanner, a.rawValue) == m_key;
          break;
        }
    }
    const bool hasParent = !m_stack.empty();
    if (hasParent) f.owner = m_stack.back().record >= 0 ? m_stack.back().record : m_stack.back().owner;
    m_stack.push_back(f);
    const size_t index = m_stack.size() - 1;
    const std::string_view local = xml::localNameOf(tok.name);

    if (m_ns.isSignatureElement(tok.name, true)) {
      newRecord(index, true);
      noteDescendant(index, local);  // a nested signature is also a descendant of its owner
      return;
    }

    // EBICS form: an element that is not a Signature but holds SignedInfo and SignatureValue
    // of the XML-Signature namespace as direct children. Its record starts with that child.
    if (hasParent && m_stack[index - 1].record < 0 && (local == "SignedInfo" || local == "SignatureValue") &&
        m_ns.inDsigNamespace(tok.name))
      m_stack[index].owner = newRecord(index - 1, false);
    noteDescendant(index, local);
  }

  // Updates the enclosing signature's record for the element just opened at `index`.
  void noteDescendant(size_t index, std::string_view local) {
    Frame& f = m_stack[index];
    if (f.owner < 0) return;
    SignatureRecord& r = m_records[static_cast<size_t>(f.owner)];
    const Frame& parent = m_stack[index - 1];
    const bool direct = parent.record == f.owner;
    if (direct) {
      f.roles |= kRoleDirectChild;
      r.lastChildLoc = f.start;
      r.lastChildEnd = 0;
      if (local == "SignedInfo") {
        if (m_ns.inDsigNamespace(f.qname)) r.hasSignedInfoChild = true;
        if (!r.signedInfoSeen) {
          r.signedInfoSeen = true;
          r.signedInfoStart = f.start;
          f.roles |= kRoleSignedInfo;
        }
      } else if (local == "SignatureValue") {
        if (m_ns.inDsigNamespace(f.qname)) r.hasSignatureValueChild = true;
        if (r.signatureValueLoc == 0) r.signatureValueLoc = f.start;
      } else if (local == "Object") {
        if (r.objectLoc == 0) r.objectLoc = f.start;
      }
    } else if ((parent.roles & kRoleSignedInfo) && local == "Reference") {
      f.roles |= kRoleReference;
    } else if ((parent.roles & kRoleReference) && local == "DigestValue") {
      f.roles |= kRoleDigestValue;
      m_digestText.clear();
    }
    if (local == "QualifyingProperties") {
      if (r.qualifyingPropertiesLoc == 0) r.qualifyingPropertiesLoc = f.start;
    } else if (local == "UnsignedProperties") {
      if (r.unsignedPropertiesLoc == 0) r.unsignedPropertiesLoc = f.start;
    } else if (local == "UnsignedSignatureProperties") {
      if (r.unsignedSignaturePropertiesLoc == 0) r.unsignedSignaturePropertiesLoc = f.start;
    } else if (local == "SignedProperties") {
      if (r.signedPropertiesLoc == 0) {
        r.signedPropertiesLoc = f.start;
        f.roles |= kRoleSignedProperties;
      }
    }
  }

  // Closes the innermost open element, which ends at `end`. True when the search is over.
  bool closeElement(size_t end) {
    if (m_stack.empty()) return false;
    const Frame f = m_stack.back();
    m_stack.pop_back();
    m_ns.leave(f.nsMark);

    if (f.owner >= 0) {
      SignatureRecord& o = m_records[static_cast<size_t>(f.owner)];
      // Direct children close in order, so the last one's end is the one that stays.
      if (f.roles & kRoleDirectChild) o.lastChildEnd = end;
      if (f.roles & kRoleSignedInfo) o.signedInfoEnd = end;
      if (f.roles & kRoleSignedProperties) o.signedPropertiesEnd = end;
      if ((f.roles & kRoleDigestValue) && m_by == SearchBy::Digest && withoutWhiteSpace(m_digestText) == m_key)
        o.digestMatches = true;
    }
    if (f.record < 0) return false;

    SignatureRecord& r = m_records[static_cast<size_t>(f.record)];
    r.end = end;
    const bool matches = m_by == SearchBy::Id ? r.idMatches : r.digestMatches;
    if (r.isSignature() && matches && (m_found < 0 || r.start < record(m_found).start)) m_found = f.record;
    return m_found >= 0 && !earlierCandidateOpen();
  }

  // Whether an element still open (so starting before the found one) may yet turn out to
  // be a matching signature.
  bool earlierCandidateOpen() const {
    for (const Frame& f : m_stack) {
      if (m_by == SearchBy::Id && f.idMatches) return true;
      if (m_by == SearchBy::Digest && f.record >= 0 && record(f.record).digestMatches) return true;
    }
    return false;
  }

  XmlScanner m_scanner;
  NamespaceScope m_ns;
  SearchBy m_by;
  std::string m_key;
  std::vector<Frame> m_stack;
  std::vector<SignatureRecord> m_records;
  std::string m_digestText;
  int m_found = -1;
};

unsigned asOffset(size_t v) { return static_cast<unsigned>(v); }

}  // namespace

static bool locate(XmlSigLocate& loc, SearchBy by, const char* key, const StringBuffer& xmlText, _btXmlDtd& dtd,
                   LogBase& log) {
  loc.m_sigStart = loc.m_sigLength = 0;
  loc.m_signedInfoStart = loc.m_signedInfoLength = 0;
  loc.m_signatureValueLoc = loc.m_qualifyingPropertiesLoc = 0;
  loc.m_unsignedPropertiesLoc = loc.m_unsignedSignaturePropertiesLoc = 0;
  loc.m_signedPropertiesLoc = loc.m_signedPropertiesLen = 0;
  loc.m_objectLoc = loc.m_lastChildLoc = loc.m_lastChildLen = 0;

  std::string_view wanted = key ? std::string_view(key) : std::string_view();
  std::string digest;
  if (by == SearchBy::Digest) {
    digest = withoutWhiteSpace(wanted);
    wanted = digest;
  }
  if (wanted.empty()) return false;

  SignatureFinder finder(xmlText, by, wanted);
  const int found = finder.run();
  dtd = finder.scanner().dtd();
  if (found < 0) {
    if (finder.scanner().hasError()) log.LogDataStr("xmlScanError", finder.scanner().errorMessage().c_str());
    return false;
  }

  const SignatureRecord& r = finder.record(found);
  loc.m_sigStart = asOffset(r.start);
  loc.m_sigLength = asOffset(r.end - r.start);
  if (r.signedInfoSeen && r.signedInfoEnd > r.signedInfoStart) {
    loc.m_signedInfoStart = asOffset(r.signedInfoStart);
    loc.m_signedInfoLength = asOffset(r.signedInfoEnd - r.signedInfoStart);
  }
  if (loc.m_recordXadesPositions) {
    loc.m_signatureValueLoc = asOffset(r.signatureValueLoc);
    loc.m_qualifyingPropertiesLoc = asOffset(r.qualifyingPropertiesLoc);
    loc.m_unsignedPropertiesLoc = asOffset(r.unsignedPropertiesLoc);
    loc.m_unsignedSignaturePropertiesLoc = asOffset(r.unsignedSignaturePropertiesLoc);
    if (r.signedPropertiesEnd > r.signedPropertiesLoc) {
      loc.m_signedPropertiesLoc = asOffset(r.signedPropertiesLoc);
      loc.m_signedPropertiesLen = asOffset(r.signedPropertiesEnd - r.signedPropertiesLoc);
    }
    loc.m_objectLoc = asOffset(r.objectLoc);
    if (r.lastChildEnd > r.lastChildLoc) {
      loc.m_lastChildLoc = asOffset(r.lastChildLoc);
      loc.m_lastChildLen = asOffset(r.lastChildEnd - r.lastChildLoc);
    }
  }
  return true;
}

bool XmlSigLocate::FindXmlSigById(const char* id, const StringBuffer& xmlText, _btXmlDtd& dtd, LogBase& log) {
  return locate(*this, SearchBy::Id, id, xmlText, dtd, log);
}

bool XmlSigLocate::FindXmlSigByRefDigest(const char* digestValue, const StringBuffer& xmlText, _btXmlDtd& dtd,
                                         LogBase& log) {
  return locate(*this, SearchBy::Digest, digestValue, xmlText, dtd, log);
}

bool XmlSigRemoval::removeSignatures(const StringBuffer& xmlText, _btXmlDtd& dtd, StringBuffer& out, LogBase& log) {
  out.clear();
  XmlScanner scanner(xmlText.view());
  NamespaceScope ns;
  std::vector<size_t> marks;
  std::string kept;
  kept.reserve(xmlText.getSize());
  const std::string_view text = xmlText.view();

  size_t copiedTo = 0;      // text before this offset is already handled
  size_t removalDepth = 0;  // depth of the outermost Signature being removed, 0 when none
  XmlToken tok;
  while (scanner.next(tok)) {
    if (tok.type == XmlTokenType::StartTag) {
      marks.push_back(ns.enter(scanner, tok));
      if (removalDepth == 0 && ns.isSignatureElement(tok.name, false)) {
        kept.append(text.substr(copiedTo, tok.start - copiedTo));
        removalDepth = tok.depth;
      }
      if (!tok.selfClosing) continue;
    } else if (tok.type != XmlTokenType::EndTag) {
      continue;
    }
    // An element closes (an end tag, or a self-closing start tag).
    if (!marks.empty()) {
      ns.leave(marks.back());
      marks.pop_back();
    }
    if (removalDepth != 0 && tok.depth == removalDepth) {
      copiedTo = tok.end;
      removalDepth = 0;
    }
  }
  dtd = scanner.dtd();
  if (scanner.hasError()) {
    log.LogError("Unable to scan the XML to remove its signatures.");
    log.LogDataStr("xmlScanError", scanner.errorMessage().c_str());
    out.setString(xmlText);
    return false;
  }
  kept.append(text.substr(copiedTo));
  out.setString(std::string_view(kept));
  return true;
}
