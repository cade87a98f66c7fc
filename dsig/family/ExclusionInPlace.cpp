// A family exclusion applied while a reference still reads the loaded document in place: the
// elements are located on the loaded tree (outside what earlier steps cut), added to the
// pipeline's cuts and named in the reference's coverage.
#include <string>
#include <vector>

#include "dsig/ClsXmlDSig.h"
#include "dsig/family/UblExclusions.h"
#include "dsig/reference/ReferencePipeline.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"

bool ClsXmlDSig::cutExclusionInPlace(ClsXml* transform, const std::string& excluded, ReferencePipeline& pipe,
                                     LogBase& log) {
  LogContextExitor ctx(log, "familyExclusion");
  log.LogDataStr("excluded", excluded.c_str());
  const xml::XmlTree* tree = m_xmlRoot ? m_xmlRoot->tree() : nullptr;
  if (!tree || tree->empty()) {
    log.LogError("No document is loaded.");
    return false;
  }
  const xml::XmlTree* context = transform ? transform->tree() : nullptr;
  const uint32_t contextNode = context && transform->node() ? context->indexOf(*transform->node()) : 0;
  std::vector<dsig_family::ElementSpan> gone, spans;
  for (const TextSpan& cut : pipe.cuts) gone.push_back({cut.start, cut.end});

  dsig_family::Exclusion exclusion;
  std::string why;
  if (!dsig_family::parseExclusion(excluded, context, contextNode, exclusion, log, &why) ||
      dsig_family::exclusionSpans(*tree, exclusion, gone, family().keepsFirstUblExtensions(), spans, log, &why) ==
          dsig_family::CutResult::Refused) {
    m_familyRefusal = why;
    m_refFailReason = 5;
    return false;
  }
  std::vector<TextSpan> cuts;
  for (const dsig_family::ElementSpan& span : spans) cuts.push_back({span.start, span.end});
  recordFamilyRemovals(spans, pipe.result.coverage);
  pipe.addCuts(cuts);
  return true;
}
