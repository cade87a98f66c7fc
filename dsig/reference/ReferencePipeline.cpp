#include "dsig/reference/ReferencePipeline.h"

#include <algorithm>

#include "crypto/_btHash.h"
#include "support/ClsXml.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

using dsig_algorithms::StepKind;

void ReferencePipeline::parse(ClsXml& reference, LogBase& log) {
  ref.parseReference(&reference, log);
  result.uri = ref.uri.getString();
  result.digestMethod = ref.digestMethod.getString();
  result.storedDigest = ref.digestValue.getString();
  result.transforms.clear();
  LogNull quiet;
  RcPtr<ClsXml> transforms(reference.getNthChildWithTagUtf8("*:Transforms", 0, quiet));
  const int n = transforms ? transforms->numChildrenHavingTagUtf8("*:Transform", quiet) : 0;
  for (int i = 0; i < n; ++i) {
    RcPtr<ClsXml> t(transforms->getNthChildWithTagUtf8("*:Transform", i, quiet));
    StringBuffer algorithm;
    if (t) t->getAttrValue("Algorithm", algorithm);
    result.transforms.push_back(algorithm.getString());
  }
}

bool ReferencePipeline::loadSteps(LogBase& log) {
  m_steps.clear();
  m_transforms.reset();
  if (ref.transforms.isEmpty()) return true;
  m_transforms.reset(ClsXml::createNewCls());
  if (!m_transforms || !m_transforms->loadXml(ref.transforms, true, log)) return false;
  const int n = m_transforms->get_NumChildren();
  for (int i = 0; i < n; ++i) {
    Step step;
    step.element.reset(m_transforms->GetChild(i));
    if (step.element) step.element->getAttrValue("Algorithm", step.algorithm);
    const dsig_algorithms::AlgorithmRow* row = dsig_algorithms::findAlgorithm(step.algorithm.view());
    step.kind = row ? row->kind : StepKind::Unknown;
    m_steps.push_back(std::move(step));
  }
  return true;
}

bool ReferencePipeline::finalCanonicalizationStreams(bool wholeDocument) const {
  if (!m_transforms) return true;
  bool enveloped = false;
  for (size_t i = 0; i < m_steps.size(); ++i) {
    if (!m_steps[i].element) return false;
    switch (m_steps[i].kind) {
      case StepKind::EnvelopedSignature: enveloped = true; break;
      case StepKind::Canonical:
        if (i != m_steps.size() - 1) return false;
        break;
      default: return false;  // base64 reads the canonical text; anything else fails the reference
    }
  }
  return enveloped || !wholeDocument;
}

bool ReferencePipeline::onlyCanonicalizes() const {
  return std::all_of(m_steps.begin(), m_steps.end(),
                     [](const Step& s) { return s.element && s.kind == StepKind::Canonical; });
}

void ReferencePipeline::beginPass(bool keepComments) {
  inPlace = false;
  cuts.clear();
  keepCommentsOfWholeDocument = keepComments;
  droppedComments = false;
  result.coverage.removed.clear();
}

void ReferencePipeline::materialize(const StringBuffer& document, StringBuffer& data) {
  if (!inPlace) return;
  inPlace = false;
  data.clear();
  data.reserve(document.getSize());
  size_t from = 0;
  for (const TextSpan& cut : cuts) {
    data.append(document.substr(from, cut.start - from));
    from = cut.end;
  }
  data.append(document.substr(from));
}

void ReferencePipeline::addCuts(const std::vector<TextSpan>& spans) {
  for (const TextSpan& span : spans) {
    const bool already = std::any_of(cuts.begin(), cuts.end(),
                                     [&](const TextSpan& c) { return c.start <= span.start && span.end <= c.end; });
    if (already) continue;
    // A span around earlier cuts (a block that holds the enveloped signature) replaces them.
    cuts.erase(std::remove_if(cuts.begin(), cuts.end(),
                              [&](const TextSpan& c) { return span.start <= c.start && c.end <= span.end; }),
               cuts.end());
    cuts.push_back(span);
  }
  std::sort(cuts.begin(), cuts.end(), [](const TextSpan& a, const TextSpan& b) { return a.start < b.start; });
}

void ReferencePipeline::hash(const char* bytes, size_t size, int hashAlg, DataBuffer& digest) {
  _btHash::doHash(bytes, size, hashAlg, digest);
  if (!m_keepBytes) return;
  result.digestedBytes.assign(bytes, size);
  result.bytesKept = true;
}

bool ReferencePipeline::beginStream(int hashAlg, LogBase& log) {
  m_streamedBytes.clear();
  return streamed.begin(hashAlg, log);
}

void ReferencePipeline::streamPiece(std::string_view piece) {
  streamed.write(piece);
  if (m_keepBytes) m_streamedBytes.append(piece);
}

void ReferencePipeline::finishStream(DataBuffer& digest) {
  streamed.finish(digest);
  if (!m_keepBytes) return;
  result.digestedBytes.swap(m_streamedBytes);
  result.bytesKept = true;
}
