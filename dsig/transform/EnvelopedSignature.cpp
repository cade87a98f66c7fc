// The enveloped-signature transform: the selected signature is cut out of the working text,
// together with the XML-Signature Signature elements that directly follow it as its
// siblings (countersignatures and parallel signatures added after it), each along its own
// element span in the parsed document. Nothing else is ever cut. What to cut comes with the
// reference's pipeline, as the signature's location.
#include <string_view>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "dsig/SignatureLocation.h"
#include "dsig/reference/ReferencePipeline.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "xml/XmlSigLocate.h"

namespace {

using TextSpan = ClsXmlDSig::TextSpan;

// Cuts the spans (document offsets) out of a working text that is no longer the document:
// each is found at the place the text scan names for the selected signature and must hold
// exactly the bytes of the document's span.
bool cutFromTransformedText(StringBuffer& xml, const SignatureLocation& location, std::string_view doc,
                            const StringBuffer& firstDigest, LogBase& log) {
  const std::vector<TextSpan>& spans = location.envelopedCuts;
  XmlSigLocate locator;
  _btXmlDtd dtd;
  const bool found = location.id.isEmpty() ? locator.FindXmlSigByRefDigest(firstDigest.getString(), xml, dtd, log)
                                           : locator.FindXmlSigById(location.id.getString(), xml, dtd, log);
  if (!found) {
    // Nothing to cut: an earlier transform already removed it. Cutting nothing digests
    // more, never less.
    log.LogInfo("The signature is not in the transformed text; nothing is cut.");
    return true;
  }
  const std::string_view text = xml.view();
  // The candidate the scan proposes must be the selected signature byte for byte, and so
  // must each following signature at its place behind it.
  bool agrees = true;
  std::vector<TextSpan> local;
  size_t at = locator.m_sigStart;
  for (size_t i = 0; agrees && i < spans.size(); ++i) {
    if (i > 0) at += spans[i].start - spans[i - 1].end;
    const std::string_view bytes = doc.substr(spans[i].start, spans[i].end - spans[i].start);
    agrees = at <= text.size() && text.substr(at, bytes.size()) == bytes;
    if (i > 0 && agrees) {
      const std::string_view gapInDoc = doc.substr(spans[i - 1].end, spans[i].start - spans[i - 1].end);
      agrees = text.substr(local.back().end, gapInDoc.size()) == gapInDoc;
    }
    local.push_back({at, at + bytes.size()});
    at += bytes.size();
  }
  if (!agrees) {
    log.LogError("The enveloped signature found in the transformed text is not the selected Signature element.");
    return false;
  }
  for (auto it = local.rbegin(); it != local.rend(); ++it) xml.removeChunk(it->start, it->end - it->start);
  return true;
}

}  // namespace

bool ClsXmlDSig::transformEnvelopedSignature(StringBuffer& xml, ReferencePipeline& pipe, LogBase& log) {
  LogContextExitor ctx(log, "transformEnvelopedSignature");
  const SignatureLocation& location = pipe.location;

  // ZATCA invoices take their signature out through the XPath transforms and the invoice
  // normalisation; this transform leaves it alone.
  if (family().keepsSignatureForEnvelopedTransform(location.id)) return true;

  const std::vector<TextSpan>& spans = location.envelopedCuts;
  if (spans.empty()) {
    log.LogError("No signature to remove for the enveloped-signature transform.");
    return false;
  }
  if (log.m_verboseLogging) log.LogDataLong("signaturesRemoved", static_cast<long long>(spans.size()));
  for (const TextSpan& span : spans) recordRemovedElement(span.start, "enveloped-signature", pipe.result.coverage);

  // While the working text is the document (less earlier cuts), the spans are recorded
  // and the text read in place around them.
  if (pipe.inPlace) {
    pipe.addCuts(spans);
    return true;
  }
  return cutFromTransformedText(xml, location, m_xmlSb.view(), pipe.ref.digestValue, log);
}
