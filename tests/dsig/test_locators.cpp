// Signature locators and the signature remover on exact document text.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "support/LogBase.h"
#include "xml/XmlSigLocate.h"

namespace {

const std::string kDs = "xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"";

using dsigtest::digestSignature;

// Span [start, start+len) of the text.
std::string span(const StringBuffer& sb, unsigned start, unsigned len) { return sb.str().substr(start, len); }

}  // namespace

TEST(Locators, ByIdReportsExactOffsetsAndIgnoresLookAlikes) {
  const std::string real = digestSignature("s1", "AAAA");
  const std::string doc =
      "<?xml version=\"1.0\"?>\n<root a=\"&lt;ds:Signature Id='s1'&gt;\">"
      "<!-- <ds:Signature " +
      kDs +
      " Id=\"s1\"><ds:SignedInfo/></ds:Signature> -->"
      "<![CDATA[<ds:Signature " +
      kDs +
      " Id=\"s1\"></ds:Signature>]]>"
      "<x:Signature xmlns:x=\"urn:not-dsig\" Id=\"s1\"><x:SignedInfo/></x:Signature>\n" +
      real + "\n</root>";
  const StringBuffer text(doc);
  _btLogger log;
  _btXmlDtd dtd;

  XmlSigLocate loc;
  ASSERT_TRUE(loc.FindXmlSigById("s1", text, dtd, log));
  EXPECT_EQ(loc.m_sigStart, doc.find(real));
  EXPECT_EQ(span(text, loc.m_sigStart, loc.m_sigLength), real);
  EXPECT_EQ(span(text, loc.m_signedInfoStart, loc.m_signedInfoLength),
            "<ds:SignedInfo><ds:Reference URI=\"\"><ds:DigestValue>AAAA</ds:DigestValue></ds:Reference>"
            "</ds:SignedInfo>");

  XmlSigLocate byDigest;
  ASSERT_TRUE(byDigest.FindXmlSigByRefDigest("AAAA", text, dtd, log));
  EXPECT_EQ(byDigest.m_sigStart, loc.m_sigStart);

  XmlSigLocate missing;
  EXPECT_FALSE(missing.FindXmlSigById("s2", text, dtd, log));
  EXPECT_FALSE(missing.FindXmlSigByRefDigest("BBBB", text, dtd, log));
}

TEST(Locators, DigestSearchAndNestedAndNamespaceForms) {
  // The inner signature sits in the outer one's content; the DigestValue of the second
  // top-level signature is wrapped over lines and written with a character reference.
  const std::string inner = digestSignature("inner", "SU5O");
  const std::string outer = digestSignature("outer", "T1VU", "<ds:Object>" + inner + "</ds:Object>");
  const std::string second =
      "<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><SignedInfo><Reference>"
      "<DigestValue>\n  Zm9v&#10;YmFy\n</DigestValue></Reference></SignedInfo></Signature>";
  const std::string doc = "<r>" + outer + second + "</r>";
  const StringBuffer text(doc);
  _btLogger log;
  _btXmlDtd dtd;

  XmlSigLocate a, b, c, d;
  ASSERT_TRUE(a.FindXmlSigById("outer", text, dtd, log));
  EXPECT_EQ(span(text, a.m_sigStart, a.m_sigLength), outer);
  ASSERT_TRUE(b.FindXmlSigByRefDigest("SU5O", text, dtd, log));
  EXPECT_EQ(span(text, b.m_sigStart, b.m_sigLength), inner);
  ASSERT_TRUE(c.FindXmlSigByRefDigest("Zm9vYmFy", text, dtd, log));
  EXPECT_EQ(span(text, c.m_sigStart, c.m_sigLength), second);

  // Lenient forms: no namespace declared at all, unprefixed or with a prefix declared
  // outside the text. A Signature in another namespace is not one.
  const StringBuffer lenient(
      "<r><a xmlns=\"urn:other\"><Signature Id=\"x\"/></a><Signature Id=\"x\"><SignedInfo/></Signature>"
      "<ds:Signature Id=\"y\"/></r>");
  ASSERT_TRUE(d.FindXmlSigById("x", lenient, dtd, log));
  EXPECT_EQ(d.m_sigStart, lenient.str().find("<Signature Id=\"x\"><SignedInfo/>"));
  ASSERT_TRUE(d.FindXmlSigById("y", lenient, dtd, log));
  EXPECT_EQ(d.m_sigStart + d.m_sigLength, lenient.str().find("</r>"));
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
