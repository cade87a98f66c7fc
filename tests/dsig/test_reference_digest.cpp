// VerifyReferenceDigest on same-document references: transform chains, the retry that
// switches the attribute-sorting emulation, the digest fallbacks and the failure reasons.
// Expected digests are SHA-256 over canonical forms written out by hand.
#include "TestSupport.h"
#include "VerifierTestUtil.h"

using namespace dsigtest;

namespace {

const std::string kEnveloped = "http://www.w3.org/2000/09/xmldsig#enveloped-signature";
const std::string kC14n = "http://www.w3.org/TR/2001/REC-xml-c14n-20010315";
const std::string kExcC14n = "http://www.w3.org/2001/10/xml-exc-c14n#";
const char* const kRetryWithBug = "Retry with duplication of common XML canonicalization attribute sorting bug...";
const char* const kRetryWithoutBug =
    "Retry without duplication of common XML canonicalization attribute sorting bug...";
const char* const kBugFound = "This signature was produced by software having the attribute sorting bug.";

// b and a:x are ordered differently by correct canonicalization (unqualified first) and by
// signers with the attribute-sorting bug (by qualified name).
const std::string kBody = "<item b=\"2\" a:x=\"1\">text &amp; more</item><part Id=\"p1\"><v>1</v></part>";
const std::string kRoot = "<doc xmlns=\"urn:t\" xmlns:a=\"urn:a\" xmlns:u=\"urn:unused\">";
std::string document(const std::string& sig) { return "<?xml version=\"1.0\"?>\n" + kRoot + kBody + sig + "</doc>"; }
const std::string kInclusive = kRoot + kBody + "</doc>";
const std::string kInclusiveSortBug =
    kRoot + "<item a:x=\"1\" b=\"2\">text &amp; more</item><part Id=\"p1\"><v>1</v></part></doc>";
const std::string kExclusive =
    "<doc xmlns=\"urn:t\"><item xmlns:a=\"urn:a\" b=\"2\" a:x=\"1\">text &amp; more</item>"
    "<part Id=\"p1\"><v>1</v></part></doc>";
const std::string kPartExclusive = "<part xmlns=\"urn:t\" Id=\"p1\"><v>1</v></part>";
const std::string kWrong = "d3Jvbmc=";

}  // namespace

TEST(ReferenceDigest, WholeDocumentAndIdReferences) {
  const std::string refs = reference(" URI=\"\"", transforms({kEnveloped, kC14n}), b64sha256(kInclusive)) +
                           reference(" URI=\"#p1\"", transforms({kExcC14n}), b64sha256(kPartExclusive)) +
                           reference(" URI=\"  #p1 \"", transforms({kExcC14n}), b64sha256(kPartExclusive)) +
                           // Implied: the signature removed, inclusive c14n.
                           reference(" URI=\"\"", "", b64sha256(kInclusive)) +
                           // The signature is also cut when only a canonicalization is declared.
                           reference(" URI=\"\"", transforms({kExcC14n}), b64sha256(kExclusive));
  const std::string doc = document(signature(refs));
  Verifier v(doc);
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(v.verify(i)) << i << "\n" << v.dsig->lastErrorText();
    EXPECT_EQ(v.reason(), 0);
  }
  ASSERT_TRUE(v.verify(2));
  EXPECT_EQ(v.result(2)["coverage"]["element"]["id"], "p1");
  ASSERT_TRUE(v.verify(0));
  EXPECT_TRUE(v.logged("URI is the entire XML document."));
  EXPECT_EQ(v.result(0)["calculatedDigest"], v.result(0)["storedDigest"]);

  std::string tampered = doc;
  tampered.replace(tampered.find("more"), 4, "mork");
  Verifier t(tampered);
  EXPECT_FALSE(t.verify(0));
  EXPECT_EQ(t.reason(), 1);
  EXPECT_TRUE(t.verify(1));
  EXPECT_FALSE(t.verify(4));
  EXPECT_EQ(t.reason(), 1);

  // An index past the last reference: reason 3, and no retry.
  EXPECT_FALSE(v.verify(5));
  EXPECT_EQ(v.reason(), 3);
  EXPECT_TRUE(logprobe::hasError(v.dsig->m_log, "No Reference at index"));
  EXPECT_FALSE(v.logged(kRetryWithBug));
}

TEST(ReferenceDigest, AttributeSortingBugRetryCarriesOver) {
  const std::string bug = b64sha256(kInclusiveSortBug);
  Verifier v(
      document(signature(reference(" URI=\"\"", "", bug) + reference(" URI=\"\"", "", bug) +
                         reference(" URI=\"#p1\"", "", kWrong) + reference(" URI=\"\"", "", b64sha256(kInclusive)))));
  EXPECT_TRUE(v.verify(0));  // fails as written, passes with the bug reproduced
  EXPECT_TRUE(v.logged(kRetryWithBug));
  EXPECT_TRUE(v.logged(kBugFound));
  EXPECT_TRUE(v.verify(1));  // the finding stays: passes at the first attempt
  EXPECT_FALSE(v.logged(kRetryWithBug));

  // With the bug set, a mismatch is retried once without it, and it stays cleared.
  EXPECT_FALSE(v.verify(2));
  EXPECT_EQ(v.reason(), 1);
  EXPECT_TRUE(v.logged(kRetryWithoutBug));
  EXPECT_TRUE(v.verify(3));
  EXPECT_FALSE(v.logged(kRetryWithBug) || v.logged(kRetryWithoutBug));
  // Without it, a mismatch is retried with it, fails, and leaves it set.
  EXPECT_FALSE(v.verify(2));
  EXPECT_TRUE(v.logged(kRetryWithBug));
  EXPECT_FALSE(v.logged(kBugFound));
  EXPECT_FALSE(v.verify(2));
  EXPECT_TRUE(v.logged(kRetryWithoutBug));

  // MyInvois (and ZATCA) rules switch the retry off.
  Verifier m(document(signature(reference(" URI=\"\"", transforms({kEnveloped, kC14n}), bug))), "MYINVOIS");
  EXPECT_FALSE(m.verify(0));
  EXPECT_EQ(m.reason(), 1);
  EXPECT_TRUE(m.logged("Will validate according to MyInvois rules..."));
  EXPECT_FALSE(m.logged(kRetryWithBug));
}

TEST(ReferenceDigest, HexDigestAndAllowXmlDigestError) {
  std::string hex;  // 64 lowercase hex digits
  for (unsigned char c : sha256(kInclusive)) {
    hex += "0123456789abcdef"[c >> 4];
    hex += "0123456789abcdef"[c & 15];
  }
  Verifier v(document(signature(reference(" URI=\"\"", "", hex))));
  EXPECT_TRUE(v.verify(0));
  EXPECT_TRUE(logprobe::hasError(
      v.dsig->m_log, "Checking to see if the signed XML's digest is hex.  Will convert to base64 and re-compare."));
  EXPECT_EQ(v.value("storedRefDigest_base64"), b64sha256(kInclusive));

  const std::string wrong = document(signature(reference(" URI=\"\"", "", kWrong)));
  Verifier allowed(wrong, "AllowXmlDigestError");
  EXPECT_TRUE(allowed.verify(0));
  EXPECT_EQ(allowed.reason(), 0);
  Verifier lower(wrong, "allowxmldigesterror");  // keywords match in any case
  EXPECT_TRUE(lower.verify(0));
  EXPECT_EQ(lower.reason(), 0);
  Verifier without(wrong);
  EXPECT_FALSE(without.verify(0));
  EXPECT_EQ(without.reason(), 1);
}

TEST(ReferenceDigest, TransformsThatCannotBeAppliedFailWithoutHashing) {
  const std::string xslt = "http://www.w3.org/TR/1999/REC-xslt-19991116";
  Verifier v(document(signature(
      reference(" URI=\"\"", transforms({kEnveloped, xslt, kC14n}), b64sha256(kInclusive)) +
      reference(" URI=\"\"", transforms({"http://www.w3.org/TR/1999/REC-xpath-19991116"}), b64sha256(kInclusive)))));
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), ClsXmlDSig::kRefFailUnknownAlgorithm);
  EXPECT_TRUE(logprobe::hasError(v.dsig->m_log, ("Unknown transform algorithm: " + xslt).c_str()));
  EXPECT_FALSE(v.logged("calculatedDigest") || v.logged(kRetryWithBug));
  EXPECT_FALSE(v.verify(1));
  EXPECT_EQ(v.reason(), 99);
  EXPECT_TRUE(logprobe::hasError(v.dsig->m_log, "No XPath found in transform."));
}

TEST(ReferenceDigest, EmptyTransformsElementIsADeclaredChain) {
  // ZATCA rules make the implied chain exclusive; an empty Transforms stays inclusive.
  const std::string doc = document(
      signature(reference(" URI=\"\"", "<ds:Transforms></ds:Transforms>", b64sha256(kInclusive)) +
                reference(" URI=\"\"", "", b64sha256(kExclusive))));
  Verifier zatca(doc, "ZATCA");
  EXPECT_TRUE(zatca.verify(0));
  EXPECT_TRUE(zatca.verify(1));
  Verifier myinvois(doc, "MYINVOIS");  // and no MyInvois rebuilding
  EXPECT_TRUE(myinvois.verify(0));
}

TEST(ReferenceDigest, MyInvoisSignedPropertiesAreRebuiltNotCanonicalized) {
  const std::string md = "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"";
  const std::string ds = " xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\">";
  const std::string object =
      "<ds:Object><xades:QualifyingProperties xmlns:xades=\"http://uri.etsi.org/01903/v1.3.2#\">"
      "<xades:SignedProperties Id=\"props\"><xades:SigningTime>2024-05-01</xades:SigningTime>" +
      md +
      "></ds:DigestMethod><ds:DigestValue>Y2VydA==</ds:DigestValue><ds:X509IssuerName>CN=CA</ds:X509IssuerName>"
      "<ds:X509SerialNumber>42</ds:X509SerialNumber></xades:SignedProperties></xades:QualifyingProperties></ds:Object>";
  const std::string rebuilt =
      "<xades:SignedProperties Id=\"props\" xmlns:xades=\"http://uri.etsi.org/01903/v1.3.2#\">"
      "<xades:SigningTime>2024-05-01</xades:SigningTime>" +
      md + ds + "</ds:DigestMethod><ds:DigestValue" + ds + "Y2VydA==</ds:DigestValue><ds:X509IssuerName" + ds +
      "CN=CA</ds:X509IssuerName><ds:X509SerialNumber" + ds + "42</ds:X509SerialNumber></xades:SignedProperties>";
  // The document reference has three transforms; its digest is kept for the signature check.
  const std::string doc = document(
      signature(reference(" URI=\"\"", transforms({kEnveloped, kExcC14n, kEnveloped}), b64sha256(kExclusive)) +
                    reference(" URI=\"#props\"", "", b64sha256(rebuilt)),
                object));
  Verifier v(doc, "MYINVOIS");
  EXPECT_TRUE(v.verify(1)) << v.dsig->lastErrorText();
  EXPECT_TRUE(v.verify(0));
  EXPECT_EQ(v.dsig->m_myInvoisDigest.view(), sha256(kExclusive));
  Verifier plain(doc);
  EXPECT_FALSE(plain.verify(1));
}

TEST(ReferenceDigest, ZatcaSignedPropertiesDigestSwitchesToZatcaRules) {
  REQUIRE_CORPUS();
  // Reference 1 stores base64 of the hex digest of the SignedProperties: 88 characters.
  Verifier v(testsupport::readFile(testsupport::corpusDir() +
                                   "/families/zatca/zatca-sdk348-simplified_invoice/Simplified_Invoice.xml"));
  EXPECT_TRUE(v.verify(1)) << v.dsig->lastErrorText();
  EXPECT_TRUE(v.logged("Retry with ZATCA rules..."));
  EXPECT_EQ(v.result(1)["calculatedDigest"], v.result(1)["storedDigest"]);
  EXPECT_EQ(v.result(1)["storedDigest"].get<std::string>().size(), 88u);
  EXPECT_TRUE(v.dsig->m_isZatca);
  EXPECT_TRUE(v.dsig->m_noSortBugRetry);
}

// The whole document is normally read in place with the signature cut out of it and its
// canonical form hashed as it is written; where that could differ from cutting the text
// (a CR before the signature and an LF after it join into one line end; signatures that
// follow are cut by a text search) or where a later step needs the text (the SWIFT LAU
// block), the text is copied, and the digests are those of the cut text.
TEST(ReferenceDigest, WholeDocumentReadInPlaceGivesTheDigestOfTheCutText) {
  const std::string enveloped = transforms({kEnveloped, kC14n});
  const auto sig = [&](const std::string& canonical) {
    return signature(reference(" URI=\"\"", enveloped, b64sha256(canonical)));
  };

  // Namespaces and a comment inside the signature, text on both sides of it.
  const std::string plain = "<r xmlns:p=\"urn:p\"><p:a>1</p:a>before " +
                            sig("<r xmlns:p=\"urn:p\"><p:a>1</p:a>before  after</r>") + "<!--c--> after</r>";
  Verifier v(plain);
  EXPECT_TRUE(v.verify(0)) << v.dsig->lastErrorText();

  // "\r" + "\n" around the signature become one line end once it is cut out.
  const std::string crlf = "<r>a\r" + sig("<r>a\nb</r>") + "\nb</r>";
  Verifier c(crlf);
  EXPECT_TRUE(c.verify(0)) << c.dsig->lastErrorText();

  // A signature directly after the selected one goes with it.
  const std::string following = "<r>x" + sig("<r>x</r>") + digestSignature("", "AAAA") + "</r>";
  Verifier f(following);
  EXPECT_TRUE(f.verify(0)) << f.dsig->lastErrorText();

  // SWIFT Alliance: the digest is over the canonical text without its LAU block.
  const std::string saa = "<Saa:DataPDU xmlns:Saa=\"urn:swift:saa:xsd:saa.2.0\"><Saa:Body>x</Saa:Body>";
  const std::string lau = "<LAU><v>y</v></LAU>";
  Verifier s(saa + lau + sig(saa + "</Saa:DataPDU>") + "</Saa:DataPDU>");
  EXPECT_TRUE(s.verify(0)) << s.dsig->lastErrorText();
  EXPECT_TRUE(s.logged("Adjusting XML to canonicalized by removing <LAU ... </LAU>"));
  Verifier withLau(saa + lau + sig(saa + lau + "</Saa:DataPDU>") + "</Saa:DataPDU>");
  EXPECT_FALSE(withLau.verify(0));
  EXPECT_EQ(withLau.reason(), 1);
}
