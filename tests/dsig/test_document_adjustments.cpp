// Document-family adjustments on document text.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "LogProbe.h"
#include "dsig/ClsXmlDSig.h"
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
  const std::string doc = "<EnvioDTE xmlns=\"http://www.sii.cl/SiiDte\">\n" + dte + "\n<DTE version=\"1.0\"/></EnvioDTE>";
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

TEST(DocumentAdjustments, EbXmlNextMshFragments) {
  Base b;
  const std::string actor = " actor=\"urn:oasis:names:tc:ebxml-msg:actor:nextMSH\"";
  // An actor text in element content is skipped; the search goes on after it.
  std::string doc = "<env><note>actor=\"http://schemas.xmlsoap.org/soap/actor/next\"</note>";
  for (int i = 0; i < 14; ++i) doc += "<eb:Via" + actor + " n=\"" + std::to_string(i) + "\"><a/></eb:Via>";
  doc += "<body/></env>";
  StringBuffer xml(doc);
  DSigReference::removeEbXmlFragments(xml, b.log);
  EXPECT_EQ(xml.str(), "<env><note>actor=\"http://schemas.xmlsoap.org/soap/actor/next\"</note><eb:Via" + actor +
                           " n=\"13\"><a/></eb:Via><body/></env>");

  // The same removal through the XPath transform that names the next-MSH actor.
  StringBuffer viaXPath("<env><eb:AckRequested" + actor + "><x/></eb:AckRequested><body/></env>");
  EXPECT_TRUE(b.dsig->transformXPath(nullptr, viaXPath, StringBuffer("http://www.w3.org/TR/1999/REC-xpath-19991116"),
                                     StringBuffer("not(ancestor-or-self::node()[@SOAP:actor=\"urn:oasis:names:tc:ebxml-msg:actor:nextMSH\"])"),
                                     b.log));
  EXPECT_EQ(viaXPath.str(), "<env><body/></env>");
}

TEST(DocumentAdjustments, SwiftLauBlock) {
  Base b;
  StringBuffer unused;
  const std::string lau = "<LAU><SignatureValue>x</SignatureValue></LAU>";
  StringBuffer xml("<Saa:DataPDU xmlns:Saa=\"urn:swift:saa:xsd:saa.2.0\"><Body/>" + lau + "</Saa:DataPDU>");
  b.dsig->postProcessTransformedXml(unused, b.ref, xml, b.log);
  EXPECT_EQ(xml.str(), "<Saa:DataPDU xmlns:Saa=\"urn:swift:saa:xsd:saa.2.0\"><Body/></Saa:DataPDU>");
  EXPECT_TRUE(b.log.containsText("Adjusting XML to canonicalized by removing <LAU ... </LAU>"));

  const std::string atStart = lau + "<x>urn:swift:saa:xsd:saa.2.0</x>";
  StringBuffer xml2(atStart);
  b.dsig->postProcessTransformedXml(unused, b.ref, xml2, b.log);
  EXPECT_EQ(xml2.str(), atStart);
}

TEST(DocumentAdjustments, ZatcaInvoiceNormalisationAndChunks) {
  Base b;
  StringBuffer xml(
      "\r\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n\t<Invoice xmlns=\"urn:inv\"\r\n    xmlns:cac=\"urn:cac\"\t>\r\n"
      "<ext:UBLExtensions>sig</ext:UBLExtensions>\r\n<cbc:ID>1</cbc:ID>\r\n"
      "<cac:AdditionalDocumentReference><cbc:ID>ICV</cbc:ID></cac:AdditionalDocumentReference>\r\n"
      "<cac:AdditionalDocumentReference><cbc:ID>QR</cbc:ID></cac:AdditionalDocumentReference>\r\n"
      "<cac:Signature><cbc:ID>s</cbc:ID></cac:Signature>\r\n</Invoice>\r\n");
  EXPECT_TRUE(b.dsig->zatcaTransformInvoice(xml, b.log));
  EXPECT_EQ(xml.str(),
            "<Invoice xmlns=\"urn:inv\" xmlns:cac=\"urn:cac\" >\n\n<cbc:ID>1</cbc:ID>\n"
            "<cac:AdditionalDocumentReference><cbc:ID>ICV</cbc:ID></cac:AdditionalDocumentReference>\n\n\n</Invoice>");

  // A chunk is removed only when it holds the required text; others are stepped over.
  StringBuffer chunks("<a>1</a><a>2</a><b/>");
  EXPECT_TRUE(b.dsig->removeXmlChunkContaining("<a>", "</a>", "2", chunks, b.log));
  EXPECT_EQ(chunks.str(), "<a>1</a><b/>");
  EXPECT_FALSE(b.dsig->removeXmlChunkContaining("<a>", "</a>", "9", chunks, b.log));
  EXPECT_TRUE(b.dsig->removeXmlChunk("<a>", "</a>", chunks, b.log));
  EXPECT_EQ(chunks.str(), "<b/>");
}
