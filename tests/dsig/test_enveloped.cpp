// The enveloped-signature transform on document text.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "VerifierTestUtil.h"
#include "LogProbe.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/reference/DSigReference.h"
#include "support/LogBase.h"

namespace {

using dsigtest::digestSignature;

struct Verifier {
  explicit Verifier(const std::string& doc) : dsig(ClsXmlDSig::createNewCls()) {
    XString x(doc.c_str());
    EXPECT_TRUE(dsig->LoadSignature(x));
    ref.digestValue.setString("AAAA");
  }
  // Runs the transform over text and returns the result.
  std::string transform(const std::string& text) {
    StringBuffer xml(text), unused1, unused2;
    EXPECT_TRUE(dsig->transformEnvelopedSignature(xml, unused1, unused2, ref, log));
    return xml.str();
  }
  std::string removeAt(const std::string& text, const std::string& first) {
    StringBuffer xml(text);
    EXPECT_TRUE(dsig->removeSignatureAndFollowingSigs(xml, static_cast<unsigned>(text.find(first)),
                                                      static_cast<unsigned>(first.size()), log));
    return xml.str();
  }
  std::unique_ptr<ClsXmlDSig> dsig;
  DSigReference ref;
  _btLogger log;
};

}  // namespace

TEST(EnvelopedSignature, LocatesByIdOrDigestAndLeavesTextWhenNotFound) {
  const std::string withId = digestSignature("signature", "AAAA");
  const std::string doc = "<r><a>1</a>" + withId + "</r>";
  Verifier v(doc);
  EXPECT_EQ(v.transform(doc), "<r><a>1</a></r>");

  // ZATCA invoices keep a signature whose Id is "signature": their own adjustments remove it.
  v.dsig->m_isZatca = true;
  EXPECT_EQ(v.transform(doc), doc);
  v.dsig->m_isZatca = false;

  // An Id that is not in the text: unchanged, and no fall-back to the digest.
  const std::string renamed = "<r><a>1</a>" + digestSignature("other", "AAAA") + "</r>";
  EXPECT_EQ(v.transform(renamed), renamed);
  EXPECT_EQ(logprobe::infoTag(v.log, "Unable to find the Signature by Id. (This is not an error)"), 2);
  EXPECT_EQ(logprobe::value(v.log, "signatureId"), "signature");

  // Without an Id the reference's digest value finds the signature.
  const std::string noId = "<r>" + digestSignature("", "AAAA") + "<b/></r>";
  Verifier w(noId);
  EXPECT_EQ(w.transform(noId), "<r><b/></r>");
  w.ref.digestValue.setString("ZZZZ");
  EXPECT_EQ(w.transform(noId), noId);
  EXPECT_TRUE(logprobe::hasError(w.log, "Unable to find Signature by digest value for enveloped-signature.."));
}

TEST(EnvelopedSignature, FollowingSignatures) {
  Verifier v("<r/>");
  const std::string s1 = "<ds:Signature>A</ds:Signature>";
  // At the end of the text nothing after it is looked at.
  EXPECT_EQ(v.removeAt("<r/>" + s1, s1), "<r/>");
  // Back to back: both go; separated by a line break: the second stays.
  EXPECT_EQ(v.removeAt("<r>" + s1 + "<ds:Signature>B</ds:Signature></r>", s1), "<r></r>");
  EXPECT_EQ(v.removeAt("<r>" + s1 + "\n<ds:Signature>B</ds:Signature></r>", s1),
            "<r>\n<ds:Signature>B</ds:Signature></r>");
  // A prefixed element of another local name stops the removal.
  EXPECT_EQ(v.removeAt("<r>" + s1 + "<ds:Object>o</ds:Object></r>", s1), "<r><ds:Object>o</ds:Object></r>");
  // An unprefixed name that merely begins with "Signature" runs to the document's last
  // "</Signature>", whatever lies between.
  const std::string u = "<Signature>A</Signature>";
  EXPECT_EQ(v.removeAt("<r>" + u + "<SignatureX/><keep/><Signature>C</Signature>tail</r>", u), "<r>tail</r>");
  // Prefixed followers also jump to the last closing tag of their own prefix.
  EXPECT_EQ(v.removeAt("<r>" + s1 + "<p:Signature>B</p:Signature><x/><p:Signature>C</p:Signature>!</r>", s1),
            "<r>!</r>");

  // At most 100 followers: of 102 back-to-back signatures (distinct prefixes, so no jump
  // skips any) the last survives.
  std::string chain, last;
  for (int i = 0; i < 102; ++i) {
    const std::string p = "p" + std::to_string(i);
    last = "<" + p + ":Signature>x</" + p + ":Signature>";
    chain += last;
  }
  const std::string first = "<p0:Signature>x</p0:Signature>";
  EXPECT_EQ(v.removeAt("<r>" + chain + "</r>", first), "<r>" + last + "</r>");
}
