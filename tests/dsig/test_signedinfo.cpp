// Reading SignedInfo fields and SignatureValue from the selected signature, and the two
// text scanners.
#include <gtest/gtest.h>

#include "VerifierTestUtil.h"

using namespace dsigtest;

namespace {

const char* kNs = "xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"";

std::string signedInfoDoc(const std::string& signedInfoBody, const std::string& afterSignedInfo) {
  return std::string("<r><ds:Signature ") + kNs + "><ds:SignedInfo>" + signedInfoBody + "</ds:SignedInfo>" +
         afterSignedInfo + "</ds:Signature></r>";
}

}  // namespace

TEST(SignedInfo, CanonicalizationMethodAndPrefixList) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(
      loadText(*d, signedInfoDoc("<ds:CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\">"
                                 "<ec:InclusiveNamespaces xmlns:ec=\"http://www.w3.org/2001/10/xml-exc-c14n#\" "
                                 "PrefixList=\"ds  xsi\"/></ds:CanonicalizationMethod>",
                                 "")));
  StringBuffer alg("x"), prefixes("y");
  LogNull quiet;
  ASSERT_TRUE(d->getCanonicalizationMethod(alg, prefixes, quiet));
  EXPECT_STREQ(alg.getString(), "http://www.w3.org/2001/10/xml-exc-c14n#");
  EXPECT_STREQ(prefixes.getString(), "ds  xsi");

  // No Algorithm attribute: found, with an empty algorithm.
  ASSERT_TRUE(loadText(*d, signedInfoDoc("<ds:CanonicalizationMethod/>", "")));
  ASSERT_TRUE(d->getCanonicalizationMethod(alg, prefixes, quiet));
  EXPECT_TRUE(alg.isEmpty());
  EXPECT_TRUE(prefixes.isEmpty());

  ASSERT_TRUE(loadText(*d, signedInfoDoc("<ds:SignatureMethod Algorithm=\"a\"/>", "")));
  _btLogger log;
  EXPECT_FALSE(d->getCanonicalizationMethod(alg, prefixes, log));
}

TEST(SignedInfo, FieldsByNameAndAttribute) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, signedInfoDoc("<ds:SignatureMethod Algorithm=\"http://www.w3.org/2000/09/xmldsig#rsa-sha1\">"
                                         "<ds:HMACOutputLength>160</ds:HMACOutputLength></ds:SignatureMethod>"
                                         "<ds:Extra>text</ds:Extra>",
                                         "")));
  StringBuffer out;
  _btLogger log;
  ASSERT_TRUE(d->getSignatureMethod(out, log));
  EXPECT_STREQ(out.getString(), "http://www.w3.org/2000/09/xmldsig#rsa-sha1");
  ASSERT_TRUE(d->getSignedInfoField("Extra", nullptr, out, log));
  EXPECT_STREQ(out.getString(), "text");
  // A missing attribute is still a found field.
  ASSERT_TRUE(d->getSignedInfoField("Extra", "Algorithm", out, log));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_EQ(logprobe::countErrors(log.entries()), 0);

  _btLogger miss;
  out.setString("stale");
  EXPECT_FALSE(d->getSignedInfoField("Missing", nullptr, out, miss));
  EXPECT_TRUE(out.isEmpty());

  ASSERT_TRUE(loadText(*d, std::string("<r><ds:Signature ") + kNs + "/></r>"));
  _btLogger noSi;
  EXPECT_FALSE(d->getSignatureMethod(out, noSi));
  EXPECT_EQ(noSi.lastErrorLine(), "No SignedInfo child.");
  StringBuffer alg, prefixes;
  _btLogger noSi2;
  EXPECT_FALSE(d->getCanonicalizationMethod(alg, prefixes, noSi2));
  EXPECT_EQ(noSi2.lastErrorLine(), "No SignedInfo child.");

  // No signature at all: false, outputs cleared, nothing logged as an error.
  ASSERT_TRUE(loadText(*d, "<r/>"));
  _btLogger quiet;
  alg.setString("x");
  prefixes.setString("y");
  EXPECT_FALSE(d->getCanonicalizationMethod(alg, prefixes, quiet));
  EXPECT_TRUE(alg.isEmpty() && prefixes.isEmpty());
  out.setString("x");
  EXPECT_FALSE(d->getSignatureValue(out, quiet));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_EQ(logprobe::countErrors(quiet.entries()), 0);
}

TEST(SignedInfo, SignatureValueDropsEscapedCarriageReturns) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, signedInfoDoc("", "<ds:SignatureValue>QUJD&#13;\nREVG&#xD;\nR0g=</ds:SignatureValue>")));
  StringBuffer out;
  _btLogger log;
  ASSERT_TRUE(d->getSignatureValue(out, log));
  EXPECT_STREQ(out.getString(), "QUJD\nREVG\nR0g=");

  ASSERT_TRUE(loadText(*d, signedInfoDoc("", "<ds:SignatureValue>&#13;</ds:SignatureValue>")));
  _btLogger empty;
  EXPECT_FALSE(d->getSignatureValue(out, empty));
  EXPECT_EQ(logprobe::countErrors(empty.entries()), 0);

  ASSERT_TRUE(loadText(*d, signedInfoDoc("", "")));
  _btLogger none;
  EXPECT_FALSE(d->getSignatureValue(out, none));
  EXPECT_EQ(none.lastErrorLine(), "No SignatureValue child.");
}

TEST(SignedInfo, TextScannersForTagContentAndAttributes) {
  LogNull quiet;
  StringBuffer out("stale");
  StringBuffer xml("<a><ds:SignatureValue Id=\"v\">\n  QUJD\r\nREVG \t</ds:SignatureValue><x>  \n </x></a>");
  ASSERT_TRUE(ClsXmlDSig::captureUniqueTagContent("<ds:SignatureValue", xml, out, quiet));
  EXPECT_STREQ(out.getString(), "QUJD\r\nREVG");
  ASSERT_TRUE(ClsXmlDSig::captureUniqueTagContent("<x", xml, out, quiet));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_FALSE(ClsXmlDSig::captureUniqueTagContent("<y", xml, out, quiet));

  _btLogger log;
  StringBuffer spread("<ds:SignatureValue\n   Id \t=\r\n  \"sig-value 1\">AAAA</ds:SignatureValue>");
  ASSERT_TRUE(ClsXmlDSig::captureUniqueAttrContent("<ds:SignatureValue", "Id", spread, out, log));
  EXPECT_STREQ(out.getString(), "sig-value 1");

  StringBuffer single("<ds:SignatureValue Id='v'>AAAA</ds:SignatureValue>");
  _btLogger singleLog;
  EXPECT_FALSE(ClsXmlDSig::captureUniqueAttrContent("<ds:SignatureValue", "Id", single, out, singleLog));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_EQ(singleLog.lastErrorLine(), "Expected open double quote");
  EXPECT_EQ(logprobe::value(singleLog, "sb"), "<ds:SignatureValue Id='v'");

  StringBuffer noAttr("<ds:SignatureValue>AAAA</ds:SignatureValue>");
  _btLogger noAttrLog;
  EXPECT_FALSE(ClsXmlDSig::captureUniqueAttrContent("<ds:SignatureValue", "Target", noAttr, out, noAttrLog));
  EXPECT_EQ(noAttrLog.lastErrorLine(), "Failed to find SignatureValue Id");

  StringBuffer open("<ds:SignatureValue Id=\"v>AAAA</ds:SignatureValue>");
  _btLogger openLog;
  EXPECT_FALSE(ClsXmlDSig::captureUniqueAttrContent("<ds:SignatureValue", "Id", open, out, openLog));
  EXPECT_EQ(openLog.lastErrorLine(), "Expected end double quote");
}
