// The enveloped-signature transform: the selected signature is cut out of the working text,
// together with the XML-Signature Signature elements that directly follow it as its
// siblings (countersignatures and parallel signatures added after it), each along its own
// element span in the parsed document. Nothing else is ever cut.
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/ReferencePipeline.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

bool ClsXmlDSig::transformEnvelopedSignature(StringBuffer& xml, ReferencePipeline& pipe, LogBase& log) {
  LogContextExitor ctx(log, "transformEnvelopedSignature");

  StringBuffer sigId;
  if (ClsXml* sig = selectedSignature()) sig->getAttrValue("Id", sigId);

  // ZATCA invoices take their signature out through the XPath transforms and the invoice
  // normalisation; this transform leaves it alone.
  if (family().keepsSignatureForEnvelopedTransform(sigId)) return true;

  std::vector<TextSpan> spans;
  envelopedCutSpans(spans);
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
  return cutSpansFromTransformedText(xml, spans, pipe.ref, log);
}
