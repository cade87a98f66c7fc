// Document-family adjustments on document text.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "LogProbe.h"
#include "TestSupport.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/family/FamilyCuts.h"
#include "dsig/reference/DSigReference.h"
#include "support/LogBase.h"

namespace {

struct Base {
  Base() : dsig(ClsXmlDSig::createNewCls()) {}
  std::unique_ptr<ClsXmlDSig> dsig;
  DSigReference ref;
  _btLogger log;
};

}  // namespace

TEST(DocumentAdjustments, ChileanSiiDteCut) {
  Base b;
  b.dsig->m_isSiiCl = true;
  const std::string dte = "<DTE version=\"1.0\">\n<Documento ID=\"F1T33\"><x/></Documento>\n<Signature/></DTE>";
  const std::string doc = "<EnvioDTE xmlns=\"http://www.sii.cl/SiiDte\">\n" + dte +
                          "\n<DTE version=\"1.0\"/></EnvioDTE>";
  StringBuffer xml(doc), unused;
  EXPECT_TRUE(b.dsig->preprocessXmlToTransform(StringBuffer("F1T33"), b.ref, xml, b.log));
  // The cut keeps the one character after "</DTE>".
  EXPECT_EQ(xml.str(), dte + "\n");
  EXPECT_EQ(b.dsig->m_siiDteXml.str(), dte + "\n");
  EXPECT_EQ(b.dsig->m_siiDteOffset, static_cast<int32_t>(doc.find("<DTE ")));
  EXPECT_TRUE(b.log.containsText("Preprocessing for www.sii.cl"));

  // A Documento that is not the DTE's first child leaves the text and the offset alone.
  b.dsig->m_siiDteOffset = 7;
  const std::string notDirect = "<EnvioDTE>\n<DTE version=\"1.0\"><Other/><Documento ID=\"F1T33\"/></DTE>\n</EnvioDTE>";
  StringBuffer xml2(notDirect);
  b.dsig->extract_sii_cl_dte(xml2, "F1T33", false, b.log);
  EXPECT_EQ(xml2.str(), notDirect);
  EXPECT_EQ(b.dsig->m_siiDteOffset, 7);
}

// Each family cut on its own, from tests/dsig/data/family-cuts.tsv.
TEST(DocumentAdjustments, FamilyCutVectors) {
  std::ifstream in(testsupport::sourceDir() + "/tests/dsig/data/family-cuts.tsv");
  ASSERT_TRUE(in.good());
  const std::pair<std::string, std::string> names[] = {
      {"{SAA}", "urn:swift:saa:xsd:saa.2.0"},
      {"{SOAP}", "http://schemas.xmlsoap.org/soap/envelope/"},
      {"{NEXT}", "http://schemas.xmlsoap.org/soap/actor/next"},
      {"{MSH}", "urn:oasis:names:tc:ebxml-msg:actor:nextMSH"},
      {"{CMA}", "urn:cma:stp:xsd:stp.1.0"},
      {"{UBL}",
       " xmlns:ext=\"{EXT}\" xmlns:cac=\"urn:oasis:names:specification:ubl:schema:xsd:CommonAggregateComponents-2\""
       " xmlns:cbc=\"urn:oasis:names:specification:ubl:schema:xsd:CommonBasicComponents-2\""},
      {"{EXT}", "urn:oasis:names:specification:ubl:schema:xsd:CommonExtensionComponents-2"},
      {"{SII}", "http://www.sii.cl/SiiDte"},
  };
  int cases = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    for (const auto& [name, value] : names)
      for (size_t at; (at = line.find(name)) != std::string::npos;) line.replace(at, name.size(), value);
    const size_t t1 = line.find('\t'), t2 = line.find('\t', t1 + 1);
    ASSERT_NE(t2, std::string::npos) << line;
    const std::string cut = line.substr(0, t1), input = line.substr(t1 + 1, t2 - t1 - 1),
                      expected = line.substr(t2 + 1);
    Base b;
    StringBuffer xml(input), unused;
    bool ok = false;
    if (cut == "lau") {
      ok = b.dsig->postProcessTransformedXml(unused, b.ref, xml, b.log);
    } else if (cut == "soap-actor") {
      ok = DSigReference::removeEbXmlFragments(xml, b.log);
    } else if (cut.rfind("exclude", 0) == 0) {
      // "exclude EXPR", or "exclude-myinvois EXPR" with the MyInvois rules on.
      b.dsig->m_isMyInvois = cut.rfind("exclude-myinvois", 0) == 0;
      ok = b.dsig->cutExclusionFromText(nullptr, cut.substr(cut.find(' ') + 1), xml, b.log);
      EXPECT_EQ(ok, b.dsig->m_familyRefusal.empty()) << line;
    } else if (cut.rfind("sii ", 0) == 0) {
      ok = b.dsig->extract_sii_cl_dte(xml, cut.substr(4).c_str(), false, b.log);
    } else {
      dsig_family::ElementSpan span;
      const dsig_family::CutResult found = dsig_family::cmaStpDocumentSpan(xml.view(), span, b.log);
      ok = found != dsig_family::CutResult::Refused;
      if (found == dsig_family::CutResult::Found) xml.setString(input.substr(span.start, span.end - span.start));
    }
    if (expected == "refused") {
      EXPECT_FALSE(ok) << line;
      EXPECT_EQ(xml.str(), input) << line;
    } else {
      EXPECT_TRUE(ok) << line;
      EXPECT_EQ(xml.str(), expected) << line;
    }
    ++cases;
  }
  EXPECT_GT(cases, 30);
}
