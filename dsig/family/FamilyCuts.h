// The elements document families leave out of a digest, located on the parsed text. A family
// cut is always one whole element that is the expected element (local name, namespace, place)
// along its exact span; a text search only says whether there is anything to look for. When
// the text and the structure disagree (a decoy written first, a look-alike in another
// namespace, a nested copy), nothing is cut and the verification fails with a log line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class ClsXml;
class LogBase;
class StringBuffer;

namespace dsig_family {

struct ElementSpan {
  size_t start = 0;  // offset of the start tag's '<'
  size_t end = 0;    // offset just past the end tag
};

enum class CutResult {
  None,     // nothing of the kind in the text: nothing to cut
  Found,    // the span(s) to cut
  Refused,  // something of the kind that is not exactly the expected element (logged)
};

// SWIFT Alliance messages: the LAU block added after signing, in the transformed data of a
// reference. The one element named LAU, written unprefixed in the Alliance namespace as a
// child of the document element.
CutResult swiftLauSpan(std::string_view data, ElementSpan& span, LogBase& log);

// CMA STP messages: the one Document element (unprefixed, declaring its own namespace, so
// that it reads the same on its own), whose text is all a whole-document reference digests.
CutResult cmaStpDocumentSpan(std::string_view text, ElementSpan& span, LogBase& log);

// Mexican DODA documents: the doda element around the selected signature, written "<doda>",
// the only element of that name. Writes its text and the offset it starts at in the document.
bool dodaElementText(const ClsXml* signature, StringBuffer& out, size_t& offset, LogBase& log);

// Chilean SII documents: the DTE element whose first child is the Documento carrying the
// reference's ID (written <DTE ...> and <Documento ... ID="id">, the same namespace, nothing
// but text between their start tags), the only element carrying that ID. None when the text
// shows no such ID or the shape is not that one (the reference is then read as it is).
CutResult siiDteSpan(std::string_view text, std::string_view id, ElementSpan& span, LogBase& log);

// SOAP header blocks addressed to the next message handler: every element carrying the SOAP
// actor attribute (in the SOAP envelope namespace) with the "next" or ebXML "nextMSH" actor,
// outermost ones only, in document order.
CutResult soapNextActorSpans(std::string_view text, std::vector<ElementSpan>& spans, LogBase& log);

// ZATCA invoices: the signature value covers the invoice hash, not SignedInfo, so nothing
// signs the invoice reference's transforms. The reference must be the whole document under
// exactly the chain ZATCA signers write (the three exclusions and C14N 1.1); any other chain
// could cut what the signer hashed.
bool zatcaInvoiceChainIsFixed(ClsXml* reference, LogBase& log);

}  // namespace dsig_family
