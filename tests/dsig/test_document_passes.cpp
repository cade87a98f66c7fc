// Locating a signature from the parsed tree must give exactly what the text scan of the
// loaded document gives, and must leave the decision to the scan whenever the two could
// differ.
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
#include "xml/XmlCanon.h"
#include "xml/XmlSigLocate.h"

namespace {

using dsigtest::digestSignature;

const char kDsNs[] = "xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"";

struct Query {
  StringBuffer id;
  StringBuffer digest;  // of the selected signature's first reference
};

Query queryOf(ClsXmlDSig& dsig) {
  Query q;
  LogNull quiet;
  if (ClsXml* sig = dsig.selectedSignature()) sig->getAttrValue("Id", q.id);
  RcPtr<ClsXml> ref(dsig.getReference(0, quiet));
  if (ref) {
    DSigReference parsed;
    parsed.parseReference(ref.get(), quiet);
    q.digest.setString(parsed.digestValue);
  }
  return q;
}

// What the scan of the loaded text finds for the query (by Id when there is one).
bool scanned(ClsXmlDSig& dsig, const Query& q, XmlSigLocate& out) {
  LogNull quiet;
  _btXmlDtd dtd;
  return q.id.isEmpty() ? out.FindXmlSigByRefDigest(q.digest.getString(), dsig.m_xmlSb, dtd, quiet)
                        : out.FindXmlSigById(q.id.getString(), dsig.m_xmlSb, dtd, quiet);
}

// Whether the tree answered; when it did, its answer must be the scan's.
bool treeAgreesWithScan(ClsXmlDSig& dsig, const Query& q, const std::string& what) {
  XmlSigLocate fromTree;
  if (!dsig.locateSignatureInTree(fromTree, q.id, q.digest)) return false;
  XmlSigLocate fromScan;
  EXPECT_TRUE(scanned(dsig, q, fromScan)) << what;
  EXPECT_EQ(fromTree.m_sigStart, fromScan.m_sigStart) << what;
  EXPECT_EQ(fromTree.m_sigLength, fromScan.m_sigLength) << what;
  EXPECT_EQ(fromTree.m_signedInfoStart, fromScan.m_signedInfoStart) << what;
  EXPECT_EQ(fromTree.m_signedInfoLength, fromScan.m_signedInfoLength) << what;
  return true;
}

std::unique_ptr<ClsXmlDSig> loaded(const std::string& doc) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  XString text(doc.c_str());
  if (!dsig->LoadSignature(text)) return nullptr;
  return dsig;
}

}  // namespace

TEST(TreeLocate, AgreesWithTheScanOnEveryCorpusSignature) {
  REQUIRE_CORPUS();
  int answered = 0, asked = 0;
  for (const corpuscases::Case& c : corpuscases::allCases()) {
    std::unique_ptr<ClsXmlDSig> dsig = corpuscases::prepare(c, corpuscases::documentOf(c));
    if (!dsig) continue;
    for (int i = 0; i < dsig->get_NumSignatures(); ++i) {
      dsig->put_Selector(i);
      const Query q = queryOf(*dsig);
      ++asked;
      // Also by digest when the signature has an Id: both searches must agree.
      if (treeAgreesWithScan(*dsig, q, c.id + " #" + std::to_string(i))) ++answered;
      Query byDigest = q;
      byDigest.id.clear();
      if (!byDigest.digest.isEmpty()) treeAgreesWithScan(*dsig, byDigest, c.id + " digest #" + std::to_string(i));
    }
  }
  // Most real documents are plain enough for the tree to answer.
  EXPECT_GT(asked, 100);
  EXPECT_GT(answered * 2, asked) << answered << " of " << asked;
}

TEST(TreeLocate, LeavesToTheScanWhatTheTreeCannotDecide) {
  const std::string real = digestSignature("s1", "AAAA");
  {
    // Plain: the tree answers, with the exact spans.
    auto dsig = loaded("<r><a/>" + real + "</r>");
    ASSERT_TRUE(dsig);
    XmlSigLocate loc;
    StringBuffer id("s1"), digest("AAAA"), none;
    ASSERT_TRUE(dsig->locateSignatureInTree(loc, id, none));
    EXPECT_EQ(loc.m_sigStart, 7u);
    EXPECT_EQ(loc.m_sigLength, real.size());
    EXPECT_TRUE(treeAgreesWithScan(*dsig, Query{none, digest}, "plain by digest"));
    EXPECT_FALSE(dsig->locateSignatureInTree(loc, StringBuffer("s2"), none));
  }
  // Each of these has an element before the real signature that the scan takes for a
  // signature but the tree does not list (or a DTD, or nesting): the tree must decline.
  const std::string lenient =
      "<r><Signature Id=\"s1\"><SignedInfo><Reference><DigestValue>AAAA</DigestValue></Reference></SignedInfo>"
      "</Signature>" + real + "</r>";
  const std::string halfEbics = "<r><x Id=\"s1\"><ds:SignatureValue " + std::string(kDsNs) + ">c2ln</ds:SignatureValue></x>" +
                                real + "</r>";
  const std::string halfSignedInfo = "<r><x Id=\"s1\"><ds:SignedInfo " + std::string(kDsNs) +
                                     "/></x>" + real + "</r>";
  const std::string nested = "<r>" + digestSignature("outer", "T1VU", "<ds:Object>" + real + "</ds:Object>") + "</r>";
  const std::string withDtd = "<!DOCTYPE r [<!ATTLIST ds:Signature Id ID #IMPLIED>]><r>" + real + "</r>";
  for (const std::string& doc : {lenient, halfEbics, halfSignedInfo, nested, withDtd}) {
    auto dsig = loaded(doc);
    ASSERT_TRUE(dsig) << doc;
    XmlSigLocate loc;
    EXPECT_FALSE(dsig->locateSignatureInTree(loc, StringBuffer("s1"), StringBuffer())) << doc;
    EXPECT_FALSE(dsig->locateSignatureInTree(loc, StringBuffer(), StringBuffer("AAAA"))) << doc;
  }
  {
    // Where the tree declines, verification still finds what the scan finds: the
    // no-namespace look-alike comes first, so its SignedInfo is the one logged.
    auto dsig = loaded(lenient);
    ASSERT_TRUE(dsig);
    XmlSigLocate scan;
    ASSERT_TRUE(scanned(*dsig, Query{StringBuffer("s1"), StringBuffer()}, scan));
    EXPECT_EQ(scan.m_sigStart, 3u);
  }
}

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
        for (const std::string& text :
             {before + marker + after, before + marker, before + marker.substr(1) + after,
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
      XmlSigLocate loc;
      if (!scanned(*dsig, queryOf(*dsig), loc) || loc.m_signedInfoLength == 0) continue;
      ++asked;
      StringBuffer context;
      size_t offset = 0;
      if (!dsig->signedInfoInContext(loc.m_signedInfoStart, loc.m_signedInfoLength, context, offset)) continue;
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
          const bool wholeOk = whole.xmlCanonicalize(dsig->m_xmlSb, nullptr, loc.m_signedInfoStart, expected, quiet);
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
  XmlSigLocate loc;
  ASSERT_TRUE(scanned(*dsig, Query{StringBuffer("s1"), StringBuffer()}, loc));
  StringBuffer context;
  size_t offset = 0;
  ASSERT_TRUE(dsig->signedInfoInContext(loc.m_signedInfoStart, loc.m_signedInfoLength, context, offset));
  for (int method : {1, 2}) {
    XmlCanon whole, part;
    whole.canonMethod = part.canonMethod = method;
    StringBuffer expected, actual;
    LogNull quiet;
    ASSERT_TRUE(whole.xmlCanonicalize(dsig->m_xmlSb, nullptr, loc.m_signedInfoStart, expected, quiet));
    ASSERT_TRUE(part.xmlCanonicalize(context, nullptr, offset, actual, quiet));
    EXPECT_EQ(actual.str(), expected.str());
    if (method == 1) {
      EXPECT_NE(expected.str().find("xmlns:q=\"urn:q&amp;&quot;&lt;&#x9;&#xA;\""), std::string::npos) << expected.str();
    }
  }
  // A span that is not the selected signature's SignedInfo is refused.
  EXPECT_FALSE(dsig->signedInfoInContext(loc.m_signedInfoStart + 1, loc.m_signedInfoLength, context, offset));
}
