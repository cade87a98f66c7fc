// The same-document reference pipeline: from the loaded document text to the exact bytes
// the signer digested (family pre-processing, the declared or implied transform chain,
// post-processing, the base64 transform), their digest, and the comparison.
#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/_btHash.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/reference/Fragment.h"
#include "dsig/reference/ReferencePipeline.h"
#include "dsig/transform/TransformAlgorithms.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"

namespace {

const char* const kInclusiveC14n = "http://www.w3.org/TR/2001/REC-xml-c14n-20010315";
const char* const kExclusiveC14n = "http://www.w3.org/2001/10/xml-exc-c14n#";

using dsig_algorithms::AlgorithmRow;
using dsig_algorithms::findAlgorithm;
using dsig_algorithms::StepKind;

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

// A same-document reference without an XPointer selects its data without comments, so a
// WithComments canonicalization has none to keep. A whole-document reference keeps them
// only on the retry (signers that digested them).
std::string_view methodWithoutUnselectedComments(const AlgorithmRow& row, Fragment fragment, bool fragmentKeepsComments,
                                                 ReferencePipeline& pipe) {
  if (!row.withComments || fragmentKeepsComments) return row.uri;
  if (fragment == Fragment::WholeDocument && pipe.keepCommentsOfWholeDocument) return row.uri;
  if (fragment == Fragment::WholeDocument) pipe.droppedComments = true;
  return dsig_algorithms::withoutComments(row);
}

}  // namespace

bool ClsXmlDSig::canonicalizeStep(ClsXml* transform, StringBuffer& data, const StringBuffer& algorithm,
                                  const StringBuffer& uri, ReferencePipeline& pipe, bool toDigest, LogBase& log) {
  const AlgorithmRow* row = findAlgorithm(algorithm.view());
  if (!row || row->kind != StepKind::Canonical) {
    log.LogError(("Unknown canonicalization algorithm: " + std::string(algorithm.view())).c_str());
    m_refFailReason = kRefFailUnknownAlgorithm;
    return false;
  }
  // Once the budget is spent, every further canonicalization fails at once.
  if (!chargeCanonicalBytes(0, log)) {
    m_refFailReason = kRefFailLimit;
    return false;
  }
  StringBuffer id;
  bool fragmentKeepsComments = false;
  const Fragment fragment = classifyFragment(uri, id, fragmentKeepsComments);
  StringBuffer method;
  method.setString(methodWithoutUnselectedComments(*row, fragment, fragmentKeepsComments, pipe));

  // An Id names exactly one element of the document, or the reference fails.
  uint32_t target = 0;
  if (fragment == Fragment::ById && !resolveIdTarget(id, target, log)) return false;
  StringBuffer context;
  CanonicalInput in;
  if (!selectCanonicalInput(fragment == Fragment::ById, target, pipe, data, context, in, log)) return false;

  size_t produced = 0;
  std::function<void(std::string_view)> sink;
  if (toDigest)
    sink = [&pipe, &produced](std::string_view piece) {
      produced += piece.size();
      pipe.streamPiece(piece);
    };
  StringBuffer out;
  bool ok = canonicalizeTransformInput(transform, *in.text, in.cutStart, in.cutLength, method, uri, out, sink, log,
                                       in.startOffset);
  // The SWIFT adjustment after the transforms needs the text itself: write it once more.
  if (ok && toDigest && pipe.streamed.sawSwiftSaaNamespace())
    ok = canonicalizeTransformInput(transform, *in.text, in.cutStart, in.cutLength, method, uri, out, {}, log,
                                    in.startOffset);
  if (!ok) return false;
  if (!chargeCanonicalBytes(produced + out.getSize(), log)) {
    m_refFailReason = kRefFailLimit;
    return false;
  }
  data.takeSb(out);
  return true;
}

bool ClsXmlDSig::selectCanonicalInput(bool byId, uint32_t target, ReferencePipeline& pipe, StringBuffer& data,
                                      StringBuffer& context, CanonicalInput& in, LogBase& log) {
  // In place, the input is the document less its cut spans: the element is read inside
  // its context, or the document with one cut where the canonicalizer can skip it.
  in.text = &data;
  if (pipe.inPlace && byId) {
    const xml::XmlNode* node = m_xmlRoot ? m_xmlRoot->tree()->nodeAt(target) : nullptr;
    for (const TextSpan& cut : pipe.cuts) {
      if (node && cut.start <= node->start && node->end <= cut.end) {
        log.LogError("The referenced element lies inside the signature the enveloped-signature transform removes.");
        m_refFailReason = 5;
        return false;
      }
    }
    if (elementInContext(target, pipe.cuts, context, in.startOffset)) {
      pipe.inPlace = false;
      in.text = &context;
    }
  }
  if (!pipe.inPlace) return true;
  // A CR before a cut and an LF after it join into one line end in a copy of the cut
  // text; the in-place reading would keep two.
  const std::string_view doc = m_xmlSb.view();
  const bool joinsLineEnd = std::any_of(pipe.cuts.begin(), pipe.cuts.end(), [&](const TextSpan& c) {
    return c.start > 0 && doc[c.start - 1] == '\r' && c.end < doc.size() && doc[c.end] == '\n';
  });
  const bool cutsRoot = std::any_of(pipe.cuts.begin(), pipe.cuts.end(),
                                    [&](const TextSpan& c) { return c.start == m_xmlRoot->sourceStart(); });
  if (pipe.cuts.size() <= 1 && !byId && !joinsLineEnd && !cutsRoot) {
    in.text = &m_xmlSb;
    if (!pipe.cuts.empty()) {
      in.cutStart = pipe.cuts.front().start;
      in.cutLength = pipe.cuts.front().end - in.cutStart;
    }
    pipe.inPlace = false;
    return true;
  }
  // The element's offset moves back by what was cut before it.
  if (byId) {
    const xml::XmlNode* node = m_xmlRoot->tree()->nodeAt(target);
    in.startOffset = node->start;
    for (const TextSpan& cut : pipe.cuts)
      if (cut.end <= node->start) in.startOffset -= cut.end - cut.start;
  }
  // Not in place, the working text is not the document any more: the canonicalizer finds
  // the element by its Id in it, once the document has shown that only one carries it.
  pipe.materialize(m_xmlSb, data);
  return true;
}

bool ClsXmlDSig::verifyInternalReference(int /*index*/, StringBuffer& uri, ReferencePipeline& pipe, LogBase& log) {
  LogContextExitor ctx(log, "verifyInternalReference");
  recordSameDocumentCoverage(uri, pipe.result.coverage);
  bool droppedComments = false;
  if (internalReferencePass(uri, pipe, false, droppedComments, log)) return true;
  // Signers that digested the comments of a whole document under a WithComments method
  // are matched on a second pass; it covers more of the document, never less.
  if (!droppedComments || m_refFailReason != 1) return false;
  log.LogInfo("Retry keeping the comments of the whole document...");
  return internalReferencePass(uri, pipe, true, droppedComments, log);
}

bool ClsXmlDSig::internalReferencePass(StringBuffer& uri, ReferencePipeline& pipe, bool keepComments,
                                       bool& droppedComments, LogBase& log) {
  // 1. Starting data: the whole document, read in place until a transform needs a copy of
  // its own; for Mexican DODA documents only the <doda> part.
  pipe.beginPass(keepComments);
  StringBuffer data;
  const dsig_family::StartingText start = family().startingText();
  if (start == dsig_family::StartingText::DodaElement) {
    log.LogInfo("Canonicalizing fragment from <doda> to </doda>");
    size_t dodaOffset = 0;
    if (!dsig_family::dodaElementText(selectedSignature(), data, dodaOffset, log)) {
      noteFamilyRefusal("the doda element is not the one written around the signature", log);
      m_refFailReason = 5;
      return false;
    }
  } else if (start == dsig_family::StartingText::DocumentCopy) {
    data.setString(m_xmlSb);
  } else {
    pipe.inPlace = true;
  }

  // 2. Family pre-processing (cuts a Chilean DTE out of its envelope).
  if (!preprocessXmlToTransform(uri, pipe.ref, data, log)) {
    m_refFailReason = 5;
    return false;
  }
  if (!pipe.loadSteps(log)) return false;

  // 3. The transforms. The final canonicalization is hashed as it is written (when it
  // streams, the chain's last step is that canonicalization, so reaching the digest means
  // it was hashed), unless a family adjustment after it needs the text.
  const bool streams = family().digestMayStream() && pipe.finalCanonicalizationStreams(uri.isEmpty()) &&
                       pipe.beginStream(pipe.ref.getHashAlg(), log);
  ChainOutcome chain;
  if (!pipe.hasTransforms()) {
    if (!impliedChain(uri, pipe, data, streams, log)) return false;
  } else if (needsNodeSet(pipe.transformsElement())) {
    // A general XPath expression selects nodes: the whole chain works on the node-set.
    pipe.materialize(m_xmlSb, data);
    if (!nodeSetTransforms(pipe.transformsElement(), pipe.location, uri, data, log)) return false;
  } else if (!declaredChain(uri, pipe, data, streams, chain, log)) {
    return false;
  }
  pipe.materialize(m_xmlSb, data);
  droppedComments = pipe.droppedComments;

  // 4. Family post-processing (SWIFT LAU block). A streamed digest stands unless the
  // adjustment applied, which needs the text (written for that case).
  StringBuffer unused;
  const bool digested = streams && !pipe.streamed.sawSwiftSaaNamespace();
  const size_t before = data.getSize();
  if (!postProcessTransformedXml(unused, pipe.ref, data, log)) {
    m_refFailReason = 5;
    return false;
  }
  dsig_family::ElementSpan lau;
  LogNull quiet;
  if (data.getSize() != before &&
      dsig_family::swiftLauSpan(m_xmlSb.view(), lau, quiet) == dsig_family::CutResult::Found)
    recordFamilyRemovals({lau}, pipe.result.coverage);

  // 5. Digest and comparison.
  DataBuffer digest;
  bool hasSignedProperties = false;
  if (!digestTransformed(pipe, data, digested, chain, digest, hasSignedProperties, log)) return false;
  return compareSameDocumentDigest(uri, pipe, hasSignedProperties, digest, log);
}

bool ClsXmlDSig::impliedChain(const StringBuffer& uri, ReferencePipeline& pipe, StringBuffer& data, bool streams,
                              LogBase& log) {
  if (family().rebuildsMyInvoisSignedProperties()) {
    // MyInvois SignedProperties are digested as rebuilt text, never canonicalized.
    pipe.inPlace = false;
    rebuildMyInvoisSignedProperties(m_xmlSb, data);
    return true;
  }
  // A whole-document reference always excludes its own signature.
  if (uri.isEmpty() && !transformEnvelopedSignature(data, pipe, log)) {
    m_refFailReason = 5;
    return false;
  }
  StringBuffer algorithm(family().impliedCanonicalizationIsExclusive() ? kExclusiveC14n : kInclusiveC14n);
  if (!canonicalizeStep(nullptr, data, algorithm, uri, pipe, streams, log)) {
    if (m_refFailReason == 99) m_refFailReason = 5;
    return false;
  }
  return true;
}

bool ClsXmlDSig::declaredChain(const StringBuffer& uri, ReferencePipeline& pipe, StringBuffer& data, bool streams,
                               ChainOutcome& outcome, LogBase& log) {
  const int numTransforms = static_cast<int>(pipe.steps().size());
  if (log.m_verboseLogging) log.LogDataLong("numTransforms", numTransforms);
  if (numTransforms > m_maxTransforms) {
    m_limitExceeded = "The reference has " + std::to_string(numTransforms) + " transforms, more than MaxTransforms (" +
                      std::to_string(m_maxTransforms) + ").";
    log.LogError(m_limitExceeded.c_str());
    m_refFailReason = kRefFailLimit;
    return false;
  }

  // A whole-document reference always excludes its own signature. When the chain does
  // nothing but canonicalize, the cut is made on the document before it (the same result
  // as cutting the signature's canonical form out afterwards); otherwise after it.
  bool envelopedApplied = false;
  if (uri.isEmpty() && pipe.onlyCanonicalizes()) {
    envelopedApplied = true;
    if (!transformEnvelopedSignature(data, pipe, log)) {
      m_refFailReason = 5;
      return false;
    }
  }
  bool canonicalized = false;
  for (int i = 0; i < numTransforms; ++i) {
    const TransformStep& step = pipe.steps()[i];
    if (!step.element) continue;
    log.LogDataSb("transformAlgorithm", step.algorithm);
    if (step.kind == StepKind::Canonical) canonicalized = true;
    if (step.kind == StepKind::EnvelopedSignature) envelopedApplied = true;
    if (step.kind == StepKind::Base64) outcome.base64 = true;
    if (!runStep(step, uri, pipe, data, streams && i == numTransforms - 1, log)) return false;
  }

  if (!envelopedApplied && uri.isEmpty() && !transformEnvelopedSignature(data, pipe, log)) {
    m_refFailReason = 5;
    return false;
  }
  if (!canonicalized) {
    const StringBuffer algorithm(kInclusiveC14n);
    if (!canonicalizeStep(nullptr, data, algorithm, uri, pipe, streams, log)) {
      if (m_refFailReason == 99) m_refFailReason = 5;
      return false;
    }
  }
  // The MyInvois document reference (its three transforms cut the signature blocks)
  // gives the digest that the signature value itself signs.
  outcome.myInvoisDocument = family().documentReferenceIsSigned(numTransforms);
  return true;
}

bool ClsXmlDSig::runStep(const TransformStep& step, const StringBuffer& uri, ReferencePipeline& pipe,
                         StringBuffer& data, bool toDigest, LogBase& log) {
  switch (step.kind) {
    case StepKind::XPath:
    case StepKind::XPathFilter2: {
      StringBuffer xpath;
      if (!step.element->getChildContentUtf8("*:XPath", xpath, false)) {
        log.LogError("No XPath found in transform.");
        return false;
      }
      // A family exclusion is cut on the loaded tree while the text is still read in place.
      std::string excluded;
      const int pattern = textXPathPattern(step.element.get(), step.algorithm, xpath, excluded);
      if (!excluded.empty() && pipe.inPlace) return cutExclusionInPlace(step.element.get(), excluded, pipe, log);
      recordXPathRemovals(xpath,
                          !excluded.empty()                     ? "family"
                          : step.kind == StepKind::XPathFilter2 ? "xpath-filter2"
                                                                : "xpath",
                          pipe.result.coverage);
      pipe.materialize(m_xmlSb, data);
      if (transformXPath(step.element.get(), data, step.algorithm, xpath, log)) {
        std::vector<dsig_family::ElementSpan> blocks;
        LogNull quiet;
        if (pattern == 2 &&
            dsig_family::soapNextActorSpans(m_xmlSb.view(), blocks, quiet) == dsig_family::CutResult::Found)
          recordFamilyRemovals(blocks, pipe.result.coverage);
        return true;
      }
      if (!m_familyRefusal.empty()) m_refFailReason = 5;
      return false;
    }
    case StepKind::EnvelopedSignature:
      if (transformEnvelopedSignature(data, pipe, log)) return true;
      m_refFailReason = 5;
      return false;
    case StepKind::Canonical:
      if (canonicalizeStep(step.element.get(), data, step.algorithm, uri, pipe, toDigest, log)) return true;
      if (m_refFailReason == 99) m_refFailReason = 5;
      return false;
    case StepKind::Base64: return true;  // the digest is taken over the decoded text
    default:
      log.LogError(("Unknown transform algorithm: " + std::string(step.algorithm.view())).c_str());
      m_refFailReason = kRefFailUnknownAlgorithm;
      return false;
  }
}

bool ClsXmlDSig::digestTransformed(ReferencePipeline& pipe, StringBuffer& data, bool streamedDigest,
                                   const ChainOutcome& chain, DataBuffer& digest, bool& hasSignedProperties,
                                   LogBase& log) {
  const int hashAlg = pipe.ref.getHashAlg();
  if (streamedDigest) {
    pipe.finishStream(digest);
    hasSignedProperties = pipe.streamed.sawSignedProperties();
  } else if (chain.base64) {
    DataBuffer decoded;
    if (!decodeBase64Transform(data, decoded, log)) return false;
    pipe.hash(reinterpret_cast<const char*>(decoded.getData2()), decoded.getSize(), hashAlg, digest);
    hasSignedProperties = data.containsSubstring("SignedProperties");
  } else if (family().zatcaSignedPropertiesDigest() && data.containsSubstring("SignedProperties")) {
    // ZATCA signers digest SignedProperties with a self-closed DigestMethod and store the
    // digest as hex text; the hex text is what gets compared (base64-encoded).
    data.replaceFirstOccurance("></ds:DigestMethod>", "/>", false);
    DataBuffer raw;
    pipe.hash(data.getString(), data.getSize(), hashAlg, raw);
    StringBuffer hex;
    raw.encodeDB("hex_lower", hex);
    digest.append(hex);
    hasSignedProperties = true;
  } else {
    pipe.hash(data.getString(), data.getSize(), hashAlg, digest);
    if (chain.myInvoisDocument) m_myInvoisDigest = digest;
    hasSignedProperties = data.containsSubstring("SignedProperties");
  }
  return true;
}
