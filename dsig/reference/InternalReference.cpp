// The same-document reference pipeline: from the loaded document text to the exact bytes
// the signer digested (family pre-processing, the declared or implied transform chain,
// post-processing, the base64 transform), their digest, and the comparison.
#include <functional>
#include <string_view>

#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/reference/StreamedDigest.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

namespace {

const char* const kEnvelopedSignatureUri = "http://www.w3.org/2000/09/xmldsig#enveloped-signature";
const char* const kInclusiveC14n = "REC-xml-c14n-20010315";
const char* const kExclusiveC14n = "xml-exc-c14n";

// MyInvois signers digest their SignedProperties as a standalone fragment that declares
// the namespaces of its ds: children on each of them; the text is rebuilt that way.
void rebuildMyInvoisSignedProperties(const StringBuffer& documentText, StringBuffer& out) {
  out.clear();
  documentText.getDelimited("<xades:SignedProperties ", "</xades:SignedProperties>", true, out);
  if (!out.containsSubstring("http://uri.etsi.org/01903/v1.3.2#"))
    out.replaceFirstOccurance(">", " xmlns:xades=\"http://uri.etsi.org/01903/v1.3.2#\">", false);

  static const char* const kStartTags[] = {
      "<ds:DigestValue",
      "<ds:X509IssuerName",
      "<ds:X509SerialNumber",
      "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"",
      "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha512\"",
      "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#sha384\"",
  };
  for (const char* tag : kStartTags) {
    std::string from(tag);
    from += '>';
    std::string to(tag);
    to += " xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\">";
    out.replaceAllOccurances(from.c_str(), to.c_str());
  }
}

// The base64 transform: the data is an element whose text content is base64; the digest
// is over the decoded bytes. Returns false only when no tree can be created.
bool decodeBase64Transform(const StringBuffer& data, DataBuffer& decoded, LogBase& log) {
  LogContextExitor ctx(log, "base64Transform");
  RcPtr<ClsXml> tree(ClsXml::createNewCls());
  if (!tree) return false;
  tree->loadXml(data, true, log);

  const int numChildren = tree->get_NumChildren();
  if (numChildren >= 1) {
    log.LogError("Expected 0 XML children.");
    log.LogDataLong("numChildren", numChildren);
  }
  StringBuffer text;
  tree->getContentSb(text);
  log.LogDataLong("base64_string_length", static_cast<long long>(text.getSize()));
  if (!decoded.appendEncoded(text.getString(), "base64")) {
    log.LogError("base64 decoding failed.  Maybe this was not actually base64?");
    if (text.getSize() > 200) {
      StringBuffer shown(text.substr(0, 200));
      shown.append("...");
      log.LogDataSb("base64_string", shown);
    } else {
      log.LogDataSb("base64_string", text);
    }
  }
  log.LogDataLong("decodedSize", static_cast<long long>(decoded.getSize()));
  return true;
}

// Whether the chain ends in a canonicalization whose output nothing but the digest reads,
// so that it can be hashed as it is written: only enveloped-signature and canonicalization
// transforms, the canonicalization (declared or implied) last and alone. A whole-document
// reference without a declared enveloped-signature transform has it applied after the
// chain, to the canonical text, which then must be kept.
bool finalCanonicalizationStreams(ClsXml* transformsXml, bool wholeDocument) {
  if (transformsXml == nullptr) return true;
  const int numTransforms = transformsXml->get_NumChildren();
  StringBuffer algorithm;
  bool enveloped = false;
  for (int i = 0; i < numTransforms; ++i) {
    RcPtr<ClsXml> transform(transformsXml->GetChild(i));
    if (!transform) return false;
    algorithm.clear();
    transform->getAttrValue("Algorithm", algorithm);
    // Classified in the order the pipeline tests them.
    if (algorithm.containsSubstring("REC-xpath") || algorithm.containsSubstring("2002/06/xmldsig-filter2")) {
      return false;
    } else if (algorithm.containsSubstring("enveloped-signature")) {
      enveloped = true;
    } else if (algorithm.containsSubstring("xml-c14n") || algorithm.containsSubstring("xml-exc-c14n")) {
      if (i != numTransforms - 1) return false;
    } else {
      return false;  // base64 reads the canonical text; anything else fails the reference
    }
  }
  return enveloped || !wholeDocument;
}

}  // namespace

void ClsXmlDSig::materializePipelineText(StringBuffer& data) {
  if (!m_pipelineText.inPlace) return;
  m_pipelineText.inPlace = false;
  const size_t cutStart = m_pipelineText.cutStart;
  const size_t cutLength = m_pipelineText.cutLength;
  data.clear();
  data.reserve(m_xmlSb.getSize() - cutLength);
  data.append(m_xmlSb.substr(0, cutStart));
  data.append(m_xmlSb.substr(cutStart + cutLength));
}

bool ClsXmlDSig::canonicalizeStep(ClsXml* transform, StringBuffer& data, const StringBuffer& algorithm,
                                  const StringBuffer& uri, StreamedDigest* digest, LogBase& log) {
  std::function<void(std::string_view)> sink;
  if (digest) sink = [digest](std::string_view piece) { digest->write(piece); };
  // In place, the input is the document less its cut-out span; otherwise the working text.
  const bool inPlace = m_pipelineText.inPlace;
  m_pipelineText.inPlace = false;
  const StringBuffer& input = inPlace ? m_xmlSb : data;
  const size_t cutStart = inPlace ? m_pipelineText.cutStart : 0;
  const size_t cutLength = inPlace ? m_pipelineText.cutLength : 0;
  StringBuffer out;
  bool ok = canonicalizeTransformInput(transform, input, cutStart, cutLength, algorithm, uri, out, sink, log);
  // The SWIFT adjustment after the transforms needs the text itself: write it once more.
  if (ok && digest && digest->sawSwiftSaaNamespace())
    ok = canonicalizeTransformInput(transform, input, cutStart, cutLength, algorithm, uri, out, {}, log);
  if (!ok) return false;
  data.takeSb(out);
  return true;
}

bool ClsXmlDSig::verifyInternalReference(int /*index*/, StringBuffer& uri, DSigReference& ref, LogBase& log) {
  LogContextExitor ctx(log, "verifyInternalReference");

  // 1. Starting data: the whole document, read in place until a transform needs a copy of
  // its own; for Mexican DODA documents only the <doda> part.
  struct PipelineTextReset {
    PipelineText& text;
    ~PipelineTextReset() { text = PipelineText(); }
  } pipelineTextReset{m_pipelineText};
  m_pipelineText = PipelineText();
  StringBuffer data;
  if (m_isDoda) {
    log.LogInfo("Canonicalizing fragment from <doda> to </doda>");
    m_xmlSb.getDelimited("<doda>", "</doda>", true, data);
  } else if (m_isSiiCl) {
    data.setString(m_xmlSb);
  } else {
    m_pipelineText.inPlace = true;
  }

  // 2. Family pre-processing (cuts a Chilean DTE out of its envelope).
  preprocessXmlToTransform(uri, ref, data, log);

  bool base64Requested = false;
  bool isMyInvoisDocumentRef = false;
  const int hashAlg = ref.getHashAlg();

  // The final canonicalization is hashed as it is written, unless a family adjustment
  // after it needs the text.
  RcPtr<ClsXml> transformsXml;
  if (!ref.transforms.isEmpty()) {
    transformsXml.reset(ClsXml::createNewCls());
    if (!transformsXml) return false;
    if (!transformsXml->loadXml(ref.transforms, true, log)) return false;
  }
  // When it streams, the chain's last step is that canonicalization (see
  // finalCanonicalizationStreams), so reaching the digest means it was hashed.
  StreamedDigest streamed;
  const bool streams = !m_isZatca && !m_isMyInvois && !m_isCmaStp &&
                       finalCanonicalizationStreams(transformsXml.get(), uri.isEmpty()) &&
                       streamed.begin(hashAlg, log);
  StreamedDigest* const finalDigest = streams ? &streamed : nullptr;

  if (!transformsXml) {
    // 3. No Transforms element: the implied chain.
    if (m_isMyInvois) {
      // MyInvois SignedProperties are digested as rebuilt text, never canonicalized.
      m_pipelineText.inPlace = false;
      rebuildMyInvoisSignedProperties(m_xmlSb, data);
    } else {
      // A whole-document reference always excludes its own signature. The algorithm text
      // then reads as the enveloped URI with the canonicalization name behind it; the
      // canonicalization transform reads it by substring, so the combination is harmless.
      StringBuffer algorithm;
      if (uri.isEmpty()) {
        algorithm.setString(kEnvelopedSignatureUri);
        StringBuffer unused1, unused2;
        transformEnvelopedSignature(data, unused1, unused2, ref, log);
      }
      algorithm.append(m_isZatca ? kExclusiveC14n : kInclusiveC14n);
      if (!canonicalizeStep(nullptr, data, algorithm, uri, finalDigest, log)) {
        m_refFailReason = 5;
        return false;
      }
    }
  } else {
    // 4. The declared chain, in document order.
    const int numTransforms = transformsXml->get_NumChildren();
    if (log.m_verboseLogging) log.LogDataLong("numTransforms", numTransforms);

    bool envelopedApplied = false;
    bool canonicalized = false;
    StringBuffer algorithm;
    for (int i = 0; i < numTransforms; ++i) {
      RcPtr<ClsXml> transform(transformsXml->GetChild(i));
      if (!transform) continue;
      algorithm.clear();
      transform->getAttrValue("Algorithm", algorithm);
      log.LogDataSb("transformAlgorithm", algorithm);

      if (algorithm.containsSubstring("REC-xpath") || algorithm.containsSubstring("2002/06/xmldsig-filter2")) {
        StringBuffer xpath;
        if (!transform->getChildContentUtf8("*:XPath", xpath, false)) {
          log.LogError("No XPath found in transform.");
          return false;
        }
        materializePipelineText(data);
        if (!transformXPath(transform.get(), data, algorithm, xpath, log)) return false;
      } else if (algorithm.containsSubstring("enveloped-signature")) {
        envelopedApplied = true;
        StringBuffer unused1, unused2;
        transformEnvelopedSignature(data, unused1, unused2, ref, log);
      } else if (algorithm.containsSubstring("xml-c14n") || algorithm.containsSubstring("xml-exc-c14n")) {
        canonicalized = true;
        const bool last = i == numTransforms - 1;
        if (!canonicalizeStep(transform.get(), data, algorithm, uri, last ? finalDigest : nullptr, log)) {
          m_refFailReason = 5;
          return false;
        }
      } else if (algorithm.containsSubstring("xmldsig#base64")) {
        base64Requested = true;
      } else {
        log.LogDataSb("unrecognizedTransform", algorithm);
        return false;
      }
    }

    if (!envelopedApplied && uri.isEmpty()) {
      StringBuffer unused1, unused2;
      transformEnvelopedSignature(data, unused1, unused2, ref, log);
    }
    if (!canonicalized) {
      algorithm.setString(kInclusiveC14n);
      if (!canonicalizeStep(nullptr, data, algorithm, uri, finalDigest, log)) {
        m_refFailReason = 5;
        return false;
      }
    }
    // The MyInvois document reference (its three transforms cut the signature blocks)
    // gives the digest that the signature value itself signs.
    isMyInvoisDocumentRef = m_isMyInvois && numTransforms == 3;
  }
  materializePipelineText(data);

  // 5. Family post-processing (SWIFT LAU block). A streamed digest stands unless the
  // adjustment applied, which needs the text (written for that case).
  StringBuffer unused;
  const bool digested = streams && !streamed.sawSwiftSaaNamespace();
  postProcessTransformedXml(unused, ref, data, log);

  // 6. Digest.
  DataBuffer digest;
  bool hasSignedProperties = false;
  if (digested) {
    streamed.finish(digest);
    hasSignedProperties = streamed.sawSignedProperties();
  } else if (base64Requested) {
    DataBuffer decoded;
    if (!decodeBase64Transform(data, decoded, log)) return false;
    _btHash::doHash(decoded.getData2(), decoded.getSize(), hashAlg, digest);
    hasSignedProperties = data.containsSubstring("SignedProperties");
  } else if (m_isZatca && data.containsSubstring("SignedProperties")) {
    // ZATCA signers digest SignedProperties with a self-closed DigestMethod and store the
    // digest as hex text; the hex text is what gets compared (base64-encoded).
    data.replaceFirstOccurance("></ds:DigestMethod>", "/>", false);
    DataBuffer raw;
    _btHash::doHash(data.getString(), data.getSize(), hashAlg, raw);
    StringBuffer hex;
    raw.encodeDB("hex_lower", hex);
    digest.append(hex);
    hasSignedProperties = true;
  } else {
    _btHash::doHash(data.getString(), data.getSize(), hashAlg, digest);
    if (isMyInvoisDocumentRef) m_myInvoisDigest = digest;
    hasSignedProperties = data.containsSubstring("SignedProperties");
  }

  // 7. Comparison with the fallbacks.
  return compareSameDocumentDigest(uri, ref, hasSignedProperties, digest, log);
}
