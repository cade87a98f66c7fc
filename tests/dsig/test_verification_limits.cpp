// The limits on the work one verification does: references per signature, transforms per
// reference and bytes canonicalized, each refused with its own reason; and many references
// to distinct Ids, which the Id index answers without a walk of the document each.
#include <gtest/gtest.h>

#include <string>

#include "LogProbe.h"
#include "VerifierTestUtil.h"

namespace {

const std::string kEnveloped = "http://www.w3.org/2000/09/xmldsig#enveloped-signature";
const std::string kExc = "http://www.w3.org/2001/10/xml-exc-c14n#";

std::string reference(const std::string& uri, int transforms) {
  std::string t;
  for (int i = 0; i < transforms; ++i) t += "<ds:Transform Algorithm=\"" + (i == 0 ? kEnveloped : kExc) + "\"/>";
  return "<ds:Reference URI=\"" + uri + "\"><ds:Transforms>" + t +
         "</ds:Transforms><ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/>"
         "<ds:DigestValue>AAAA</ds:DigestValue></ds:Reference>";
}

std::string signedDocument(const std::string& prolog, const std::string& body, const std::string& references) {
  return prolog + "<r>" + body +
         "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"><ds:SignedInfo>"
         "<ds:CanonicalizationMethod Algorithm=\"" +
         kExc +
         "\"/>"
         "<ds:SignatureMethod Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256\"/>" +
         references + "</ds:SignedInfo><ds:SignatureValue>AAAA</ds:SignatureValue></ds:Signature></r>";
}

}  // namespace

TEST(VerificationLimits, EachLimitIsRefusedWithItsReason) {
  {
    // 30 MB of entity expansion, read by 40 whole-document references: the byte budget
    // stops the verification after the first ones, and says so last.
    const std::string a(1000, 'x');
    std::string b, c, refs;
    for (int i = 0; i < 100; ++i) b += "&a;";
    for (int i = 0; i < 300; ++i) c += "&b;";
    for (int i = 0; i < 40; ++i) refs += reference("", 1);
    const std::string prolog = "<!DOCTYPE r [<!ENTITY a \"" + a + "\"><!ENTITY b \"" + b + "\"><!ENTITY c \"" + c +
                               "\">]>";
    dsigtest::DSigPtr d = dsigtest::newVerifier();
    ASSERT_TRUE(dsigtest::loadText(*d, signedDocument(prolog, "&c;", refs)));
    EXPECT_FALSE(d->VerifySignature(true));
    EXPECT_EQ(d->get_RefFailReason(), ClsXmlDSig::kRefFailLimit);
    EXPECT_EQ(d->lastErrorLine(),
              "The verification canonicalized more than MaxCanonicalBytes (33554432 bytes): stopped.");
    // It stopped at the reference that spent the budget.
    EXPECT_LT(std::stoi(logprobe::value(d->m_log, "refFailureCount")), 40);
  }
  const std::string three = signedDocument("", "<a Id=\"x\"/>",
                                           reference("#x", 2) + reference("#x", 2) + reference("", 2));
  {
    dsigtest::DSigPtr d = dsigtest::newVerifier();
    ASSERT_TRUE(dsigtest::loadText(*d, three));
    d->put_MaxReferences(2);
    EXPECT_FALSE(d->VerifySignature(true));
    EXPECT_EQ(d->lastErrorLine(), "The signature has 3 references, more than MaxReferences (2).");
  }
  {
    dsigtest::DSigPtr d = dsigtest::newVerifier();
    ASSERT_TRUE(dsigtest::loadText(*d, three));
    d->put_MaxTransforms(1);
    EXPECT_FALSE(d->VerifyReferenceDigest(0));
    EXPECT_EQ(d->get_RefFailReason(), ClsXmlDSig::kRefFailLimit);
    EXPECT_TRUE(logprobe::hasError(d->m_log, "The reference has 2 transforms, more than MaxTransforms (1)."));
    // Within the limits, the same reference is read and only its digest is wrong.
    d->put_MaxTransforms(2);
    EXPECT_FALSE(d->VerifyReferenceDigest(0));
    EXPECT_EQ(d->get_RefFailReason(), 1);
  }
}

TEST(VerificationLimits, TenThousandIdReferencesAreEachChecked) {
  std::string body, refs;
  for (int i = 0; i < 10000; ++i) {
    body += "<e Id=\"e" + std::to_string(i) + "\">" + std::to_string(i) + "</e>";
    refs += reference("#e" + std::to_string(i), 0);
  }
  dsigtest::DSigPtr d = dsigtest::newVerifier();
  ASSERT_TRUE(dsigtest::loadText(*d, signedDocument("", body, refs)));
  EXPECT_FALSE(d->VerifySignature(true));
  // Every reference was read and digested; none failed for want of its element.
  EXPECT_EQ(logprobe::value(d->m_log, "refFailureCount"), "10000");
  EXPECT_EQ(d->get_RefFailReason(), 1);
}
