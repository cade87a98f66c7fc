// The same-document reference pipeline: from the loaded document text to the exact bytes
// the signer digested (family pre-processing, the declared or implied transform chain,
// post-processing, the base64 transform), their digest, and the comparison.
#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
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

}  // namespace

bool ClsXmlDSig::verifyInternalReference(int /*index*/, StringBuffer& uri, DSigReference& ref, LogBase& log) {
  LogContextExitor ctx(log, "verifyInternalReference");

  // 1. Starting data: the whole document, or for Mexican DODA documents only the <doda> part.
  StringBuffer data;
  if (m_isDoda) {
    log.LogInfo("Canonicalizing fragment from <doda> to </doda>");
    m_xmlSb.getDelimited("<doda>", "</doda>", true, data);
  } else {
    data.setString(m_xmlSb);
  }

  // 2. Family pre-processing (cuts a Chilean DTE out of its envelope).
  preprocessXmlToTransform(uri, ref, data, log);

  // Until a transform changes it, the working text is the loaded document itself (neither
  // the <doda> cut nor the Chilean pre-processing applies); the flag never outlives this call.
  struct DocumentTextFlag {
    bool& flag;
    ~DocumentTextFlag() { flag = false; }
  } documentText{m_pipelineTextIsDocument};
  m_pipelineTextIsDocument = !m_isDoda && !m_isSiiCl;

  bool base64Requested = false;
  bool isMyInvoisDocumentRef = false;

  if (ref.transforms.isEmpty()) {
    // 3. No Transforms element: the implied chain.
    if (m_isMyInvois) {
      // MyInvois SignedProperties are digested as rebuilt text, never canonicalized.
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
        m_pipelineTextIsDocument = false;
      }
      algorithm.append(m_isZatca ? kExclusiveC14n : kInclusiveC14n);
      if (!transformCanonicalize(nullptr, data, algorithm, uri, log)) {
        m_refFailReason = 5;
        return false;
      }
    }
  } else {
    // 4. The declared chain, in document order.
    RcPtr<ClsXml> transformsXml(ClsXml::createNewCls());
    if (!transformsXml) return false;
    if (!transformsXml->loadXml(ref.transforms, true, log)) return false;

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
        m_pipelineTextIsDocument = false;
        if (!transformXPath(transform.get(), data, algorithm, xpath, log)) return false;
      } else if (algorithm.containsSubstring("enveloped-signature")) {
        envelopedApplied = true;
        StringBuffer unused1, unused2;
        transformEnvelopedSignature(data, unused1, unused2, ref, log);
        m_pipelineTextIsDocument = false;
      } else if (algorithm.containsSubstring("xml-c14n") || algorithm.containsSubstring("xml-exc-c14n")) {
        canonicalized = true;
        m_pipelineTextIsDocument = false;
        if (!transformCanonicalize(transform.get(), data, algorithm, uri, log)) {
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
      if (!transformCanonicalize(nullptr, data, algorithm, uri, log)) {
        m_refFailReason = 5;
        return false;
      }
    }
    // The MyInvois document reference (its three transforms cut the signature blocks)
    // gives the digest that the signature value itself signs.
    isMyInvoisDocumentRef = m_isMyInvois && numTransforms == 3;
  }

  // 5. Family post-processing (SWIFT LAU block).
  StringBuffer unused;
  postProcessTransformedXml(unused, ref, data, log);

  // 6. Digest.
  const int hashAlg = ref.getHashAlg();
  DataBuffer digest;
  if (base64Requested) {
    DataBuffer decoded;
    if (!decodeBase64Transform(data, decoded, log)) return false;
    _btHash::doHash(decoded.getData2(), decoded.getSize(), hashAlg, digest);
  } else if (m_isZatca && data.containsSubstring("SignedProperties")) {
    // ZATCA signers digest SignedProperties with a self-closed DigestMethod and store the
    // digest as hex text; the hex text is what gets compared (base64-encoded).
    data.replaceFirstOccurance("></ds:DigestMethod>", "/>", false);
    DataBuffer raw;
    _btHash::doHash(data.getString(), data.getSize(), hashAlg, raw);
    StringBuffer hex;
    raw.encodeDB("hex_lower", hex);
    digest.append(hex);
  } else {
    _btHash::doHash(data.getString(), data.getSize(), hashAlg, digest);
    if (isMyInvoisDocumentRef) m_myInvoisDigest = digest;
  }

  // 7. Comparison with the fallbacks.
  return compareSameDocumentDigest(uri, ref, data, digest, log);
}
