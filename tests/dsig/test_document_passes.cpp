// Passes over the document: family detection, and an element canonicalized inside its
// context reading as it does in the whole document.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CorpusCases.h"
#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/DocumentFamilyMarkers.h"
#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/xml/XmlTree.h"
#include "xml/XmlCanon.h"

namespace {

using dsigtest::digestSignature;

// The selected signature's SignedInfo in its context, and where it starts in the document.
bool signedInfoContext(ClsXmlDSig& dsig, StringBuffer& context, size_t& offset, size_t& startInDocument) {
  ClsXml* sig = dsig.selectedSignature();
  RcPtr<ClsXml> signedInfo(sig ? sig->getChildWithTagUtf8("*:SignedInfo") : nullptr);
  if (!signedInfo) return false;
  startInDocument = signedInfo->sourceStart();
  return dsig.elementInContext(signedInfo->tree()->indexOf(*signedInfo->node()), {}, context, offset);
}

std::unique_ptr<ClsXmlDSig> loaded(const std::string& doc) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  XString text(doc.c_str());
  if (!dsig->LoadSignature(text)) return nullptr;
  return dsig;
}

}  // namespace

TEST(FamilyDetection, EveryMarkerIsFoundAtEveryAlignmentAndOnlyWhole) {
  // Each marker is placed at every offset of a 16-byte block, inside the text and at its
  // very end, and cut by a byte at either end; the flag must say what a plain substring
  // search says. The other markers of a family that needs several stand at the start.
  using namespace dsig_family;
  struct Family {
    std::vector<std::string> markers;
    bool _clsXmlDSigBase::*flag;
  };
  std::vector<Family> families = {
      {{kChileSiiDomain}, &_clsXmlDSigBase::m_isSiiCl},
      {{kSunatPeruUbl}, &_clsXmlDSigBase::m_isSunatPeru},
      {{kPolandCsiozDomain}, &_clsXmlDSigBase::m_isCsioz},
      {{kCmaStpUrn}, &_clsXmlDSigBase::m_isCmaStp},
      {{kMexicoSatSiatDomain, kDodaStartTag}, &_clsXmlDSigBase::m_isDoda},
      {{kSkXmlSignedDocTag, kSkXmlFormat}, &_clsXmlDSigBase::m_isSkXmlSignedDoc},
  };
  for (const char* marker : {kPolandFinanceAppsDomain, kPolandFinanceDomain, kPolandZusDomain, kHl7Urn,
                             kItalyHealthRecordDomain, kPolandCrdDomain})
    families.push_back({{marker}, &_clsXmlDSigBase::m_dupAttrSortBug});

  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  LogNull quiet;
  int checked = 0;
  for (const Family& family : families) {
    for (size_t moved = 0; moved < family.markers.size(); ++moved) {
      std::string others;
      for (size_t k = 0; k < family.markers.size(); ++k)
        if (k != moved) others += family.markers[k] + " ";
      const std::string& marker = family.markers[moved];
      for (size_t lead = 0; lead <= 16; ++lead) {
        const std::string before = others + std::string(64 + lead, 'x');
        const std::string after(40, 'x');
        for (const std::string& text : {before + marker + after, before + marker, before + marker.substr(1) + after,
                                        before + marker.substr(0, marker.size() - 1)}) {
          // A cut marker may still hold another one that sets the same flag.
          bool expected = false;
          for (const Family& same : families) {
            if (same.flag != family.flag) continue;
            bool all = true;
            for (const std::string& m : same.markers) all = all && text.find(m) != std::string::npos;
            expected = expected || all;
          }
          dsig->detectSpecial(StringBuffer(text), quiet);
          EXPECT_EQ(dsig.get()->*family.flag, expected) << text;
          ++checked;
        }
      }
    }
  }
  EXPECT_EQ(checked, 14 * 17 * 4);
}

TEST(SignedInfoInContext, CanonicalizesLikeTheWholeDocumentOnEveryCorpusSignature) {
  REQUIRE_CORPUS();
  int inContext = 0, asked = 0;
  for (const corpuscases::Case& c : corpuscases::allCases()) {
    std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, corpuscases::documentOf(c));
    if (!dsig) continue;
    for (int i = 0; i < dsig->get_NumSignatures(); ++i) {
      dsig->put_Selector(i);
      ++asked;
      StringBuffer context;
      size_t offset = 0, signedInfoStart = 0;
      if (!signedInfoContext(*dsig, context, offset, signedInfoStart)) continue;
      ++inContext;
      const std::string what = c.id + " #" + std::to_string(i);
      // Both methods, with an inclusive prefix for the exclusive one, and the sort-bug emulation.
      for (int method : {1, 2}) {
        for (bool sortBug : {false, true}) {
          XmlCanon whole, part;
          for (XmlCanon* canon : {&whole, &part}) {
            canon->canonMethod = method;
            canon->emulateAttrSortBug = sortBug;
            if (method == 2) canon->inclusivePrefixes.appendString("#default");
          }
          StringBuffer expected, actual;
          LogNull quiet;
          const bool wholeOk = whole.xmlCanonicalize(dsig->m_xmlSb, nullptr, signedInfoStart, expected, quiet);
          ASSERT_EQ(part.xmlCanonicalize(context, nullptr, offset, actual, quiet), wholeOk) << what;
          EXPECT_EQ(actual.str(), expected.str()) << what << " method " << method;
        }
      }
    }
  }
  EXPECT_GT(asked, 100);
  EXPECT_GT(inContext * 2, asked) << inContext << " of " << asked;
}

TEST(SignedInfoInContext, KeepsInheritedNamespacesAndXmlAttributes) {
  // Ancestors declare, override and undeclare namespaces and carry xml:* attributes with
  // characters that must be escaped again; the canonical SignedInfo must match the one
  // taken from the whole document, and the verifier must reach the same verdict.
  const std::string doc =
      "<a:r xmlns:a=\"urn:a\" xmlns=\"urn:d\" xml:lang=\"en\" other=\"x\"><b xmlns=\"\" xml:space=\"preserve\" "
      "xmlns:q=\"urn:q&amp;&quot;&lt;&#9;&#10;\" xml:base=\"http://e/&quot;\"><c xmlns:a=\"urn:a2\">" +
      digestSignature("s1", "AAAA") + "</c></b></a:r>";
  auto dsig = loaded(doc);
  ASSERT_TRUE(dsig);
  StringBuffer context;
  size_t offset = 0, signedInfoStart = 0;
  ASSERT_TRUE(signedInfoContext(*dsig, context, offset, signedInfoStart));
  for (int method : {1, 2}) {
    XmlCanon whole, part;
    whole.canonMethod = part.canonMethod = method;
    StringBuffer expected, actual;
    LogNull quiet;
    ASSERT_TRUE(whole.xmlCanonicalize(dsig->m_xmlSb, nullptr, signedInfoStart, expected, quiet));
    ASSERT_TRUE(part.xmlCanonicalize(context, nullptr, offset, actual, quiet));
    EXPECT_EQ(actual.str(), expected.str());
    if (method == 1) {
      EXPECT_NE(expected.str().find("xmlns:q=\"urn:q&amp;&quot;&lt;&#x9;&#xA;\""), std::string::npos) << expected.str();
    }
  }
}
