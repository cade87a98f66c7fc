// Signature locators (cases of data/locate.txt, and real documents) and the signature
// remover on exact document text.
#include <gtest/gtest.h>

#include <string>

#include "VectorFile.h"
#include "VerifierTestUtil.h"
#include "support/LogBase.h"
#include "xml/XmlSigLocate.h"

namespace {

const std::string kDs = "xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"";

using dsigtest::digestSignature;

// Span [start, start+len) of the text.
std::string span(const StringBuffer& sb, unsigned start, unsigned len) { return sb.str().substr(start, len); }

}  // namespace

TEST(Locators, CasesOfTheVectorFile) {
  const auto cases = vectors::read(testsupport::sourceDir() + "/tests/dsig/data/locate.txt",
                                   {"doc", "id", "digest", "expect", "signed-info", "missing"});
  ASSERT_GT(cases.size(), 8u);
  _btXmlDtd dtd;
  for (const vectors::Case& c : cases) {
    SCOPED_TRACE(c.where());
    const StringBuffer text(c.get("doc"));
    _btLogger log;
    XmlSigLocate loc;
    const bool found = c.has("id") ? loc.FindXmlSigById(c.get("id").c_str(), text, dtd, log)
                                   : loc.FindXmlSigByRefDigest(c.get("digest").c_str(), text, dtd, log);
    ASSERT_EQ(found, !c.has("missing"));
    if (!found) continue;
    EXPECT_EQ(span(text, loc.m_sigStart, loc.m_sigLength), c.get("expect"));
    if (c.has("signed-info")) {
      EXPECT_EQ(span(text, loc.m_signedInfoStart, loc.m_signedInfoLength), c.get("signed-info"));
    }
  }
}

TEST(Locators, EbicsAuthSignatureFoundByDigest) {
  REQUIRE_CORPUS();
  const StringBuffer text(
      testsupport::readFile(testsupport::corpusDir() + "/families/ebics/ebics-epics-sta_response/sta_response.xml"));
  _btLogger log;
  _btXmlDtd dtd;
  XmlSigLocate loc;
  ASSERT_TRUE(loc.FindXmlSigByRefDigest("OnY4VczV+1XfplpMS/SCKFWn+FDMge40X8TJ9pA6HEI=", text, dtd, log));
  EXPECT_EQ(loc.m_sigStart, text.str().find("<AuthSignature>"));
  EXPECT_EQ(loc.m_sigStart + loc.m_sigLength, text.str().find("</AuthSignature>") + 16);
  EXPECT_EQ(loc.m_signedInfoStart, text.str().find("<ds:SignedInfo>"));
}

TEST(Locators, XadesPositionsOnRealDocument) {
  REQUIRE_CORPUS();
  const std::string doc = testsupport::readFile(testsupport::corpusDir() +
                                                "/families/xades-t/xadest-dss-xades-extended-t/xades-extended-t.xml");
  ASSERT_FALSE(doc.empty());
  const StringBuffer text(doc);
  // The document's one signature, found through the digest of its first reference.
  const size_t dv = doc.find("<ds:DigestValue>") + 16;
  const std::string digest = doc.substr(dv, doc.find('<', dv) - dv);
  _btLogger log;
  _btXmlDtd dtd;
  XmlSigLocate loc;
  loc.m_recordXadesPositions = true;
  ASSERT_TRUE(loc.FindXmlSigByRefDigest(digest.c_str(), text, dtd, log));

  auto endOf = [&](const std::string& closeTag) { return doc.rfind(closeTag) + closeTag.size(); };
  EXPECT_EQ(loc.m_sigStart, doc.find("<ds:Signature "));
  EXPECT_EQ(loc.m_sigStart + loc.m_sigLength, endOf("</ds:Signature>"));
  EXPECT_EQ(loc.m_signatureValueLoc, doc.find("<ds:SignatureValue "));
  EXPECT_EQ(loc.m_qualifyingPropertiesLoc, doc.find("<xades:QualifyingProperties "));
  EXPECT_EQ(loc.m_unsignedPropertiesLoc, doc.find("<xades:UnsignedProperties>"));
  EXPECT_EQ(loc.m_unsignedSignaturePropertiesLoc, doc.find("<xades:UnsignedSignatureProperties>"));
  EXPECT_EQ(loc.m_signedPropertiesLoc, doc.find("<xades:SignedProperties "));
  EXPECT_EQ(loc.m_signedPropertiesLoc + loc.m_signedPropertiesLen, endOf("</xades:SignedProperties>"));
  EXPECT_EQ(loc.m_objectLoc, doc.find("<ds:Object>"));
  // Its last child is the second Object, which ends right before the signature's end tag.
  EXPECT_EQ(loc.m_lastChildLoc, doc.find("<ds:Object ", loc.m_objectLoc));
  EXPECT_EQ(loc.m_lastChildLoc + loc.m_lastChildLen, doc.rfind("</ds:Signature>"));

  XmlSigLocate plain;  // positions stay 0 unless asked for
  ASSERT_TRUE(plain.FindXmlSigByRefDigest(digest.c_str(), text, dtd, log));
  EXPECT_EQ(plain.m_signatureValueLoc + plain.m_lastChildLen, 0u);
}

TEST(Locators, RemoveSignaturesKeepsEverythingElseByteForByte) {
  const std::string keep1 = "<?xml version=\"1.0\"?>\r\n<!DOCTYPE r [<!ENTITY e \"v\">]>\n<r  b = 'x' >\n\t<a>&e;";
  const std::string keep2 = "</a>\n<!-- <ds:Signature " + kDs + "/> -->\n<x:Signature xmlns:x=\"urn:y\"/>";
  const std::string keep3 = "<![CDATA[<ds:Signature>]]>\n</r>\n";
  const std::string nested = digestSignature("n", "AA", "<ds:Object>" + digestSignature("m", "BB") + "</ds:Object>");
  const std::string empty = "<dsig:Signature xmlns:dsig=\"http://www.w3.org/2000/09/xmldsig#\"/>";
  const StringBuffer text(keep1 + nested + keep2 + empty + keep3);
  _btLogger log;
  _btXmlDtd dtd;
  StringBuffer out;
  ASSERT_TRUE(XmlSigRemoval::removeSignatures(text, dtd, out, log));
  EXPECT_EQ(out.str(), keep1 + keep2 + keep3);
  EXPECT_NE(dtd.findEntity("e"), nullptr);  // the document's entities come back with the DTD

  EXPECT_FALSE(XmlSigRemoval::removeSignatures(StringBuffer("<r><a></r>"), dtd, out, log));
}
