// One reference on its way to a digest: the parsed Reference, its transform chain
// classified once, the source view (the loaded document less the spans cut out of it,
// read in place until a step needs a copy of its own), the streamed digest, the result
// the verifier keeps for the reference, and the location of the signature it belongs to.
#pragma once

#include <string>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "dsig/reference/ReferenceResult.h"
#include "dsig/reference/StreamedDigest.h"
#include "dsig/transform/TransformAlgorithms.h"
#include "support/RefCountedObject.h"

class ClsXml;
class DataBuffer;
class LogBase;
struct SignatureLocation;

// One declared transform: its element, algorithm URI and what the table says it does.
struct TransformStep {
  RcPtr<ClsXml> element;
  StringBuffer algorithm;
  dsig_algorithms::StepKind kind = dsig_algorithms::StepKind::Unknown;
};

class ReferencePipeline {
 public:
  using TextSpan = ClsXmlDSig::TextSpan;
  using Step = TransformStep;

  ReferencePipeline(ReferenceResult& result, bool keepBytes, const SignatureLocation& location)
      : result(result), location(location), m_keepBytes(keepBytes) {}
  ReferencePipeline(const ReferencePipeline&) = delete;
  ReferencePipeline& operator=(const ReferencePipeline&) = delete;

  // Reads the Reference element into ref and the result's descriptive fields.
  void parse(ClsXml& reference, LogBase& log);
  // Loads the Transforms element and classifies its steps; false when it cannot be read.
  bool loadSteps(LogBase& log);
  bool hasTransforms() const { return static_cast<bool>(m_transforms); }
  ClsXml* transformsElement() const { return m_transforms.get(); }
  const std::vector<Step>& steps() const { return m_steps; }

  // Whether the chain ends in a canonicalization whose output nothing but the digest
  // reads, so that it can be hashed as it is written: only enveloped-signature and
  // canonicalization steps, the canonicalization (declared or implied) last and alone.
  // A whole-document reference without a declared enveloped-signature step has it applied
  // after the chain, to the canonical text, which then must be kept.
  bool finalCanonicalizationStreams(bool wholeDocument) const;
  // Whether every step is a canonicalization (none at all counts).
  bool onlyCanonicalizes() const;

  // Starts a pass: the source view is the whole document again, nothing removed yet.
  void beginPass(bool keepCommentsOfWholeDocument);
  // Gives data the source view's text when it is still read in place.
  void materialize(const StringBuffer& document, StringBuffer& data);
  // Adds spans to the cuts of the in-place view (sorted, disjoint, no span twice).
  void addCuts(const std::vector<TextSpan>& spans);

  bool keepsBytes() const { return m_keepBytes; }
  // Hashes bytes as the reference's digest, keeping them when asked.
  void hash(const char* bytes, size_t size, int hashAlg, DataBuffer& digest);
  // Starts the streamed digest of the final canonicalization; false when it cannot start.
  bool beginStream(int hashAlg, LogBase& log);
  void streamPiece(std::string_view piece);
  // The streamed digest's result (and the kept bytes, when asked).
  void finishStream(DataBuffer& digest);

  DSigReference ref;
  ReferenceResult& result;
  // Where the selected signature stands: what the enveloped-signature transform cuts.
  const SignatureLocation& location;
  StreamedDigest streamed;
  // While inPlace, the working text is the document less `cuts`; element offsets of the
  // tree still name its elements.
  bool inPlace = false;
  std::vector<TextSpan> cuts;
  // Comments are kept by a WithComments canonicalization of a whole-document reference
  // (tried only after the form without them failed); noted when that made a difference.
  bool keepCommentsOfWholeDocument = false;
  bool droppedComments = false;

 private:
  bool m_keepBytes = false;
  std::string m_streamedBytes;
  RcPtr<ClsXml> m_transforms;
  std::vector<Step> m_steps;
};
