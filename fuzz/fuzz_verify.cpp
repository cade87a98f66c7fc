// Fuzz target: VerifySignature on (mutated) signed documents, every signature of the
// document with and without the reference digests, under the uncommon options that
// change the verification road. An HMAC key is set so that HMAC signatures reach the
// comparison. No external data and no ExternalRefDirs: nothing outside the input is read.
//
// Differential property: when a signature verifies without options, one letter or digit
// of character data it certainly covers (in its SignedInfo, or in an element a whole-
// document or Id reference selects through enveloped-signature and canonicalization
// transforms only, outside every signature element) is changed, and the changed document
// must not verify.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "fuzz/FuzzTarget.h"
#include "support/ClsBinData.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"
#include "support/xml/XmlScanner.h"
#include "support/xml/XmlTree.h"

namespace fuzz_verify {

struct Span {
  size_t start, end;
  bool contains(size_t at) const { return at >= start && at < end; }
};

bool isAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// Whether every transform of the reference only cuts the signature or canonicalizes.
bool plainTransforms(ClsXml& reference) {
  RcPtr<ClsXml> transforms(reference.getChildWithTagUtf8("*:Transforms"));
  if (!transforms) return true;
  StringBuffer algorithm;
  for (int i = 0; i < transforms->get_NumChildren(); ++i) {
    RcPtr<ClsXml> t(transforms->GetChild(i));
    algorithm.clear();
    if (!t || !t->getAttrValue("Algorithm", algorithm)) return false;
    const std::string_view a = algorithm.view();
    if (a != "http://www.w3.org/2000/09/xmldsig#enveloped-signature" &&
        a != "http://www.w3.org/TR/2001/REC-xml-c14n-20010315" && a != "http://www.w3.org/2001/10/xml-exc-c14n#")
      return false;
  }
  return true;
}

// Offsets of letters and digits of character data the selected signature covers.
std::vector<size_t> coveredLetters(ClsXmlDSig& dsig) {
  std::vector<size_t> out;
  ClsXml* signature = dsig.selectedSignature();
  if (!signature || !signature->tree()) return out;
  const xml::XmlTree& tree = *signature->tree();
  RcPtr<ClsXml> signedInfo(signature->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) return out;
  std::vector<Span> covered{{signedInfo->sourceStart(), signedInfo->sourceEnd()}};
  std::vector<Span> signatures;
  for (int i = 0; i < dsig.get_NumSignatures(); ++i) {
    auto* s = static_cast<ClsXml*>(dsig.m_signatures.elementAt(i));
    if (s) signatures.push_back({s->sourceStart(), s->sourceEnd()});
  }
  LogNull quiet;
  StringBuffer uri;
  for (int r = 0;; ++r) {
    RcPtr<ClsXml> reference(signedInfo->getNthChildWithTagUtf8("*:Reference", r, quiet));
    if (!reference) break;
    uri.clear();
    if (!reference->getAttrValue("URI", uri) || !plainTransforms(*reference)) continue;
    if (uri.isEmpty()) {
      covered.push_back({dsig.m_xmlRoot->sourceStart(), dsig.m_xmlRoot->sourceEnd()});
    } else if (uri.view()[0] == '#') {
      const std::vector<uint32_t>& carriers = tree.elementsWithId(uri.view().substr(1));
      if (carriers.size() == 1) covered.push_back({tree.nodeAt(carriers[0])->start, tree.nodeAt(carriers[0])->end});
    }
  }
  const std::string_view text = dsig.m_xmlSb.view();
  xml::XmlScanner scanner(text);
  xml::XmlToken tok;
  while (scanner.next(tok)) {
    if (tok.type != xml::XmlTokenType::Text && tok.type != xml::XmlTokenType::CData) continue;
    const size_t from = static_cast<size_t>(tok.content.data() - text.data());
    for (size_t at = from; at < from + tok.content.size(); ++at) {
      if (!isAlnum(text[at])) continue;
      const bool inSignedInfo = covered.front().contains(at);
      bool inSignature = false;
      for (const Span& s : signatures) inSignature = inSignature || s.contains(at);
      bool inReference = false;
      for (size_t c = 1; c < covered.size(); ++c) inReference = inReference || covered[c].contains(at);
      if (inSignedInfo || (inReference && !inSignature)) out.push_back(at);
    }
  }
  return out;
}

// Whether the document's family adjustments could leave covered-looking bytes undigested.
bool adjustedFamily(const ClsXmlDSig& dsig) {
  return dsig.family().adjustsDigestedBytes() || dsig.m_xmlSb.containsSubstring("urn:swift:saa");
}

void checkMutationFails(ClsXmlDSig& dsig, int selector, unsigned h) {
  if (adjustedFamily(dsig)) return;
  const std::vector<size_t> letters = coveredLetters(dsig);
  if (letters.empty()) return;
  const size_t at = letters[h % letters.size()];
  std::string changed(dsig.m_xmlSb.view());
  const char c = changed[at];
  changed[at] = c == 'z' ? 'y' : c == 'Z' ? 'Y' : c == '9' ? '8' : static_cast<char>(c + 1);

  std::unique_ptr<ClsXmlDSig> other(ClsXmlDSig::createNewCls());
  XString secret("secret");
  XString encoding("ascii");
  other->SetHmacKey(secret, encoding);
  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  bytes->AppendBinary(changed.data(), changed.size());
  if (!other->LoadSignatureBd(*bytes) || selector >= other->get_NumSignatures()) return;
  other->put_Selector(selector);
  fuzzsupport::check(!other->VerifySignature(true), "fuzz_verify", "a change to a signed byte verified");
}

inline int run(const uint8_t* data, size_t size) {
  static const char* const kOptions[] = {"", "ZATCA", "MYINVOIS", "AllowXmlDigestError,VerifyEncapsulatedTimeStamp"};
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return 0;
  const unsigned h = fuzzsupport::pick(data, size);
  dsig->put_UncommonOptions(XString(kOptions[h % 4]));
  XString secret("secret");
  XString encoding("ascii");
  dsig->SetHmacKey(secret, encoding);

  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  bytes->AppendBinary(data, size);
  if (!dsig->LoadSignatureBd(*bytes)) return 0;
  for (int i = 0; i < dsig->get_NumSignatures() && i < 3; ++i) {
    dsig->put_Selector(i);
    const bool valid = dsig->VerifySignature(true);
    dsig->VerifySignature(false);
    if (valid && h % 4 == 0) checkMutationFails(*dsig, i, h / 4 + static_cast<unsigned>(i));
  }
  return 0;
}

}  // namespace fuzz_verify

XMLDSIG_FUZZ_TARGET(fuzz_verify::run)
