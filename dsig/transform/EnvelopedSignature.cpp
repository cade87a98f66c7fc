// The enveloped-signature transform, done on the document text: the selected signature is
// found with the text locator and cut out, together with the signatures that directly
// follow it (countersignatures and parallel signatures added after it).
#include <cstring>

#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "xml/XmlSigLocate.h"

namespace {

constexpr size_t kMaxFollowingSignatures = 100;
constexpr const char kSignatureName[] = "Signature";
constexpr size_t kSignatureNameLen = sizeof(kSignatureName) - 1;

bool hasTextAt(const StringBuffer& sb, size_t pos, const char* text) {
  const size_t n = std::strlen(text);
  return pos <= sb.getSize() && sb.getSize() - pos >= n && sb.view().compare(pos, n, text) == 0;
}

// Offset just past the last occurrence of `closeTag` in the text, provided there is one at
// or after `from`; npos otherwise. Jumping to the last one is deliberate: everything up to
// the document's last closing tag of that name goes in one step.
size_t pastLastClosingTag(const StringBuffer& xml, const std::string& closeTag, size_t from) {
  size_t found = xml.find(closeTag, from);
  if (found == StringBuffer::npos) return StringBuffer::npos;
  for (;;) {
    const size_t next = xml.find(closeTag, found + closeTag.size());
    if (next == StringBuffer::npos) break;
    found = next;
  }
  return found + closeTag.size();
}

}  // namespace

bool ClsXmlDSig::transformEnvelopedSignature(StringBuffer& xml, StringBuffer& /*unused1*/,
                                             StringBuffer& /*unused2*/, DSigReference& ref, LogBase& log) {
  LogContextExitor ctx(log, "transformEnvelopedSignature");

  StringBuffer sigId;
  if (ClsXml* sig = selectedSignature()) sig->getAttrValue("Id", sigId);

  // ZATCA invoices take their signature out through the XPath transforms and the invoice
  // normalisation; this transform leaves it alone.
  if (m_isZatca && sigId.equals("signature")) return true;

  if (log.m_verboseLogging) {
    if (!sigId.isEmpty())
      log.LogDataSb("removeSignatureWithId", sigId);
    else
      log.LogDataSb("removeSignatureHavingDigest", ref.digestValue);
  }

  // While the text is still the loaded document, the parsed tree knows where the signature
  // is and the scan of the whole text is saved; the document is then normally read in place
  // with the signature cut out of it, instead of being copied.
  XmlSigLocate locator;
  const bool textIsDocument = m_pipelineText.inPlace && m_pipelineText.cutLength == 0;
  if (textIsDocument && locateSignatureInTree(locator, sigId, ref.digestValue)) {
    if (cutSignatureInPlace(locator.m_sigStart, locator.m_sigLength)) return true;
    materializePipelineText(xml);
    return removeSignatureAndFollowingSigs(xml, locator.m_sigStart, locator.m_sigLength, log);
  }
  materializePipelineText(xml);

  _btXmlDtd dtd;
  if (!sigId.isEmpty()) {
    if (!locator.FindXmlSigById(sigId.getString(), xml, dtd, log)) {
      // A signature with an Id must be found by it; the digest comparison reports the rest.
      log.LogInfo_n("Unable to find the Signature by Id. (This is not an error)", 2);
      log.LogDataSb("signatureId", sigId);
      return true;
    }
  } else {
    if (!locator.FindXmlSigByRefDigest(ref.digestValue.getString(), xml, dtd, log)) {
      log.LogError("Unable to find Signature by digest value for enveloped-signature..");
      return true;
    }
  }
  return removeSignatureAndFollowingSigs(xml, locator.m_sigStart, locator.m_sigLength, log);
}

bool ClsXmlDSig::cutSignatureInPlace(size_t start, size_t length) {
  const std::string_view text = m_xmlSb.view();
  if (length == 0 || start >= text.size() || length > text.size() - start) return false;
  const size_t end = start + length;
  // Signatures that follow are cut by a text search that may end anywhere: copy instead.
  if (signatureRemovalEnd(m_xmlSb, start, length) != end) return false;
  // The root cannot go; a CR before the cut and an LF after it would join into one line end.
  if (m_xmlRoot == nullptr || m_xmlRoot->sourceStart() == start) return false;
  if (start > 0 && text[start - 1] == '\r' && end < text.size() && text[end] == '\n') return false;
  m_pipelineText.cutStart = start;
  m_pipelineText.cutLength = length;
  return true;
}

bool ClsXmlDSig::removeSignatureAndFollowingSigs(StringBuffer& xml, unsigned start, unsigned length,
                                                 LogBase& /*log*/) {
  const size_t size = xml.getSize();
  if (start >= size) return true;
  xml.removeChunk(start, signatureRemovalEnd(xml, start, length) - start);
  return true;
}

size_t ClsXmlDSig::signatureRemovalEnd(const StringBuffer& xml, size_t start, size_t length) {
  const size_t size = xml.getSize();
  size_t end = start + length;
  if (end >= size) return size;

  size_t removed = 0;
  size_t cursor = end;
  while (xml.charAt(cursor) == '<') {
    const size_t nameStart = cursor + 1;
    size_t matchEnd = StringBuffer::npos;
    if (hasTextAt(xml, nameStart, kSignatureName)) {
      // Unprefixed: any name beginning with "Signature" counts.
      matchEnd = pastLastClosingTag(xml, "</Signature>", cursor + 10);
    } else {
      // Prefixed: the text up to the first ':' is the prefix; '>', '/' or the end of the
      // text before any ':' mean there is none.
      size_t colon = nameStart;
      while (colon < size && xml.charAt(colon) != ':' && xml.charAt(colon) != '>' && xml.charAt(colon) != '/')
        ++colon;
      if (colon >= size || xml.charAt(colon) != ':') break;
      if (!hasTextAt(xml, colon + 1, kSignatureName)) break;
      std::string closeTag = "</";
      closeTag.append(xml.view().substr(nameStart, colon - nameStart));
      closeTag.append(":");
      closeTag.append(kSignatureName, kSignatureNameLen);
      closeTag.append(">");
      matchEnd = pastLastClosingTag(xml, closeTag, colon + 10);
    }
    if (matchEnd == StringBuffer::npos) break;
    ++removed;
    end = matchEnd;
    cursor = end;
    if (removed >= kMaxFollowingSignatures) break;
  }
  return end;
}
