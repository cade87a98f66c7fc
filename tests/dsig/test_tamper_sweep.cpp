// The false-accept sweep: every corpus document that verifies (with the keys, data and
// options its manifest row names) is changed by one character of signed content in
// several places: a letter of text, of an attribute value and of an element name, in
// every element a same-document reference covers and in SignedInfo. Every changed copy
// must fail to verify.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "CorpusCases.h"
#include "TestSupport.h"
#include "support/xml/XmlScanner.h"

namespace {

struct Element {
  std::string_view qname;
  size_t start = 0, end = 0;           // '<' of the start tag, just past the end tag
  size_t endName = std::string::npos;  // offset of the name in the end tag (npos: self-closing)
  std::vector<xml::XmlAttribute> attributes;
  std::vector<std::pair<size_t, size_t>> text;  // raw character data and CDATA directly inside
  std::string_view local() const { return xml::localNameOf(qname); }
};

// The elements of a document in document order; empty when it does not scan.
std::vector<Element> elementsOf(const std::string& doc) {
  std::vector<Element> all;
  std::vector<size_t> open;
  xml::XmlScanner scanner(doc);
  xml::XmlToken tok;
  while (scanner.next(tok)) {
    if (tok.type == xml::XmlTokenType::StartTag) {
      Element e;
      e.qname = tok.name;
      e.start = tok.start;
      e.end = tok.end;
      for (const xml::XmlAttribute& a : tok.attributes)
        if (!a.defaulted) e.attributes.push_back(a);
      all.push_back(e);
      if (!tok.selfClosing) open.push_back(all.size() - 1);
    } else if (tok.type == xml::XmlTokenType::EndTag && !open.empty()) {
      all[open.back()].end = tok.end;
      all[open.back()].endName = tok.start + 2;
      open.pop_back();
    } else if ((tok.type == xml::XmlTokenType::Text || tok.type == xml::XmlTokenType::CData) && !open.empty()) {
      const size_t from = tok.type == xml::XmlTokenType::CData ? tok.start + 9 : tok.start;
      all[open.back()].text.emplace_back(from, from + tok.content.size());
    }
  }
  if (scanner.hasError()) all.clear();
  return all;
}

bool inside(const Element& outer, size_t offset) { return offset >= outer.start && offset < outer.end; }

std::string attribute(const Element& e, std::string_view localName) {
  for (const xml::XmlAttribute& a : e.attributes)
    if (xml::localNameOf(a.qname) == localName) return std::string(a.rawValue);
  return std::string();
}

// A letter of [from, to) that is not part of an entity or character reference: the
// first, the one nearest the middle, or the last (which = 0, 1, 2); npos when none.
size_t letterIn(const std::string& doc, size_t from, size_t to, int which) {
  std::vector<size_t> letters;
  bool inReference = false;
  for (size_t i = from; i < to; ++i) {
    if (doc[i] == '&') inReference = true;
    if (!inReference && std::isalpha(static_cast<unsigned char>(doc[i]))) letters.push_back(i);
    if (doc[i] == ';') inReference = false;
  }
  if (letters.empty()) return std::string::npos;
  return which == 0 ? letters.front() : which == 1 ? letters[letters.size() / 2] : letters.back();
}

char changed(char c) { return c == 'z' ? 'y' : c == 'Z' ? 'Y' : static_cast<char>(c + 1); }

struct Tampering {
  std::string what;
  std::string doc;
};

// The changed copies of doc for one covered element `target`: letters of its text, of an
// attribute value and of an element name, never inside an element in `skip` (signatures,
// blocks a transform removes). Under a base64 transform only the decoded text is
// covered, and the last character before the padding may carry unused bits: there only
// the first and middle letters of the text are changed.
void tamperWithin(const std::string& doc, const std::vector<Element>& elements, const Element& target,
                  const std::vector<const Element*>& skip, bool base64, const std::string& label,
                  std::vector<Tampering>& out) {
  auto skipped = [&](size_t offset) {
    for (const Element* s : skip)
      if (inside(*s, offset) && !(target.start >= s->start && target.start < s->end)) return true;
    return false;
  };
  auto add = [&](const std::string& what, std::vector<size_t> offsets) {
    std::string copy = doc;
    for (size_t at : offsets) copy[at] = changed(copy[at]);
    out.push_back({label + ": " + what + " at " + std::to_string(offsets.front()), copy});
  };
  std::vector<size_t> textLetters;
  bool attributeDone = false, nameDone = false;
  for (const Element& e : elements) {
    if (!inside(target, e.start) || skipped(e.start)) continue;
    for (const auto& span : e.text)
      for (int which = 0; which < 3; ++which) {
        const size_t at = letterIn(doc, span.first, span.second, which);
        if (at != std::string::npos) textLetters.push_back(at);
      }
    for (const xml::XmlAttribute& a : e.attributes) {
      const std::string_view name = a.qname;
      if (base64 || attributeDone || name == "xmlns" || name.rfind("xmlns:", 0) == 0) continue;
      const size_t valueStart = a.end - 1 - a.rawValue.size();
      const size_t at = letterIn(doc, valueStart, a.end - 1, 1);
      if (at == std::string::npos) continue;
      add("attribute " + std::string(name) + " of " + std::string(e.qname), {at});
      attributeDone = true;
    }
    if (!base64 && !nameDone && e.start != target.start) {
      // The same letter of the name in the start tag and in the end tag.
      const size_t nameAt = e.start + 1 + e.qname.size() - e.local().size();
      const size_t at = letterIn(doc, nameAt, e.start + 1 + e.qname.size(), 1);
      if (at != std::string::npos) {
        std::vector<size_t> offsets{at};
        if (e.endName != std::string::npos) offsets.push_back(e.endName + (at - e.start - 1));
        add("element name " + std::string(e.qname), offsets);
        nameDone = true;
      }
    }
  }
  if (!textLetters.empty()) {
    add("first text letter", {textLetters.front()});
    add("middle text letter", {textLetters[textLetters.size() / 2]});
    if (!base64) add("last text letter", {textLetters.back()});
  }
}

// Every changed copy of a case's document, from its selected signature's references.
std::vector<Tampering> tamperings(const std::string& doc, int selector) {
  std::vector<Tampering> out;
  const std::vector<Element> elements = elementsOf(doc);
  // XML signatures (a Signature holding a SignedInfo: not UBL's cac:Signature), in order.
  std::vector<const Element*> signatures, allSignatures;
  for (const Element& e : elements) {
    if (e.local() == "SignedInfo" && !allSignatures.empty() && inside(*allSignatures.back(), e.start) &&
        (signatures.empty() || signatures.back() != allSignatures.back()))
      signatures.push_back(allSignatures.back());
    if (e.local() == "Signature") allSignatures.push_back(&e);
  }
  if (selector >= static_cast<int>(signatures.size())) return out;
  const Element& signature = *signatures[selector];

  const Element* signedInfo = nullptr;
  std::vector<const Element*> references;
  std::string xpaths;  // every XPath expression of the signature's transforms
  for (const Element& e : elements) {
    if (!inside(signature, e.start)) continue;
    if (e.local() == "SignedInfo" && !signedInfo) signedInfo = &e;
    if (signedInfo && inside(*signedInfo, e.start) && e.local() == "Reference") references.push_back(&e);
    if (e.local() == "XPath")
      for (const auto& span : e.text) xpaths += doc.substr(span.first, span.second - span.first) + " ";
  }
  if (!signedInfo) return out;
  // SignedInfo itself: its text (digest values), attribute values and element names.
  tamperWithin(doc, elements, *signedInfo, {}, false, "SignedInfo", out);

  // Blocks a transform removes from what a reference covers: signatures (enveloped) and
  // elements an XPath expression names.
  std::vector<const Element*> removed = allSignatures;
  for (const Element& e : elements)
    if (e.local() != "Signature" && xpaths.find(std::string(e.local())) != std::string::npos) removed.push_back(&e);
  for (const Element* reference : references) {
    std::string uri = attribute(*reference, "URI");
    if (!uri.empty() && uri[0] != '#') continue;  // detached data
    const Element* target = nullptr;
    if (uri.empty() || uri == "#xpointer(/)") {
      target = &elements.front();
    } else {
      std::string id = uri.substr(1);
      if (id.rfind("xpointer(id(", 0) == 0) id = id.substr(13, id.size() - 16);
      for (const Element& e : elements)
        if (!target && (attribute(e, "Id") == id || attribute(e, "ID") == id || attribute(e, "id") == id)) target = &e;
    }
    bool base64 = false;
    for (const Element& e : elements)
      if (inside(*reference, e.start) && e.local() == "Transform" &&
          attribute(e, "Algorithm").find("#base64") != std::string::npos)
        base64 = true;
    if (target) tamperWithin(doc, elements, *target, removed, base64, "reference '" + uri + "'", out);
  }
  return out;
}

// Changes that the defined behaviour does not see, because what they touch is not
// signed. A ZATCA invoice's signature value is over its invoice hash (the first
// reference's digest), not over SignedInfo: the canonicalization method that SignedInfo
// names is never used, so changing it goes unnoticed.
struct Unsigned {
  const char* family;
  const char* what;  // the start of the tampering's description
};
const Unsigned kNotSigned[] = {
    {"zatca", "SignedInfo: attribute Algorithm of ds:CanonicalizationMethod"},
};

bool notSigned(const corpuscases::Case& c, const Tampering& t) {
  for (const Unsigned& u : kNotSigned)
    if (c.family == u.family && t.what.rfind(u.what, 0) == 0) return true;
  return false;
}

bool verifies(const corpuscases::Case& c, const std::string& bytes) {
  std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, bytes);
  return dsig && dsig->VerifySignature(true);
}

}  // namespace

TEST(TamperSweep, NoChangedCopyOfASignedDocumentVerifies) {
  REQUIRE_CORPUS();
  int documents = 0, unscannable = 0, copies = 0, falseAccepts = 0, unsignedChanges = 0;
  for (const corpuscases::Case& c : corpuscases::allCases()) {
    const std::string doc = corpuscases::documentOf(c);
    if (!verifies(c, doc)) continue;
    ++documents;
    const std::vector<Tampering> changes = tamperings(doc, c.selector);
    if (changes.empty()) {
      ++unscannable;  // not ASCII-compatible text (UTF-16) or no SignedInfo found
      continue;
    }
    for (const Tampering& t : changes) {
      ++copies;
      if (!verifies(c, t.doc)) continue;
      if (notSigned(c, t)) {
        ++unsignedChanges;
        continue;
      }
      ++falseAccepts;
      ADD_FAILURE() << c.id << " (" << c.xmlPath << "): verifies after changing the " << t.what;
    }
  }
  std::printf(
      "tamper sweep: %d verifying documents (%d not swept), %d changed copies, %d false accepts, %d "
      "accepted changes of unsigned ZATCA SignedInfo text\n",
      documents, unscannable, copies, falseAccepts, unsignedChanges);
  EXPECT_GT(copies, 1000);
}
