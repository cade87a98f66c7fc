// Loading documents, collecting and selecting their signatures, family detection and
// reference access.
#include <gtest/gtest.h>

#include "VerifierTestUtil.h"
#include "support/ClsBinData.h"
#include "support/ClsStringBuilder.h"
#include "support/ClsXml.h"

using namespace dsigtest;

namespace {

std::string selectedId(ClsXmlDSig& d) {
  StringBuffer id;
  LogNull quiet;
  d.selectedSignatureId(id, quiet);
  return id.getString();
}

bool loadBytes(ClsXmlDSig& d, const std::string& bytes) {
  RcPtr<ClsBinData> bd(ClsBinData::createNewCls());
  bd->AppendBinary(bytes.data(), bytes.size());
  return d.LoadSignatureBd(*bd);
}

// Three signatures in document order: one inside a signed element, one that encloses
// the third in its Object.
const std::string kNested = "<root><doc Id=\"d1\">" + signatureXml("s1", 1) + "</doc>" +
                            signatureXml("s2", 2,
                                         "<ds:Object><inner>" + signatureXml("s3", 3) + "</inner></ds:Object>") +
                            "</root>";

}  // namespace

TEST(Loading, SignaturesInDocumentOrderAndSelection) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, kNested));
  ASSERT_EQ(d->get_NumSignatures(), 3);
  EXPECT_EQ(selectedId(*d), "s1");
  d->put_Selector(2);
  EXPECT_EQ(selectedId(*d), "s3");
  EXPECT_EQ(d->get_NumReferences(), 3);
  d->put_Selector(1);
  EXPECT_EQ(selectedId(*d), "s2");
  EXPECT_EQ(d->get_NumReferences(), 2);

  // Reloading resets the selection and drops the old tree.
  d->put_Selector(2);
  ClsXml* oldRoot = d->m_xmlRoot;
  oldRoot->incRefCount();
  ASSERT_TRUE(loadText(*d, "<r>" + signatureXml("", 1) + signatureXml("dup", 1) + signatureXml("dup", 2) + "</r>"));
  EXPECT_EQ(d->get_Selector(), 0);
  EXPECT_EQ(d->get_NumSignatures(), 3);
  EXPECT_EQ(oldRoot->getRefCount(), 1);
  oldRoot->decRefCount();

  // By Id: the first match wins; the comparison is exact; a miss keeps the selection.
  _btLogger log;
  EXPECT_TRUE(d->selectBySignatureId(StringBuffer("dup"), log));
  EXPECT_EQ(d->get_Selector(), 1);
  EXPECT_EQ(d->get_NumReferences(), 1);
  _btLogger miss;
  EXPECT_FALSE(d->selectBySignatureId(StringBuffer("DUP"), miss));
  EXPECT_EQ(d->get_Selector(), 1);
  EXPECT_EQ(miss.lastErrorLine(), "Signature with Id not found.");
  d->put_Selector(0);  // has no Id
  StringBuffer id("stale");
  EXPECT_FALSE(d->selectedSignatureId(id, miss));
  EXPECT_TRUE(id.isEmpty());
}

TEST(Loading, ReferencesOfTheSelectedSignature) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, "<r>" + signatureXml("s", 2) + "</r>"));
  _btLogger verbose;
  verbose.m_verboseLogging = true;
  RcPtr<ClsXml> ref(d->getReference(1, verbose));
  ASSERT_TRUE(ref);
  StringBuffer uri;
  EXPECT_TRUE(ref->getAttrValue("URI", uri));
  EXPECT_STREQ(uri.getString(), "#r1");
  EXPECT_EQ(logprobe::countErrors(verbose.entries()), 0);
  EXPECT_EQ(logprobe::value(verbose, "m_selector"), "0");

  _btLogger missLog;
  EXPECT_EQ(d->getReference(5, missLog), nullptr);
  EXPECT_EQ(missLog.lastErrorLine(), "No Reference element at the requested index.");
  EXPECT_EQ(logprobe::value(missLog, "index"), "5");
  EXPECT_EQ(missLog.entries()[0].key, "getReference");

  ASSERT_TRUE(loadText(*d,
                       "<r><ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\">"
                       "<ds:SignatureValue>AA==</ds:SignatureValue></ds:Signature></r>"));
  _btLogger noSi;
  EXPECT_EQ(d->getReference(0, noSi), nullptr);
  EXPECT_EQ(noSi.lastErrorLine(), "No SignedInfo child.");
  EXPECT_EQ(d->get_NumReferences(), 0);

  // No signatures: loads, and reference lookups say why they find nothing.
  EXPECT_TRUE(loadText(*d, "<invoice><total>5</total></invoice>"));
  EXPECT_EQ(d->get_NumSignatures(), 0);
  _btLogger none;
  EXPECT_EQ(d->getReference(0, none), nullptr);
  EXPECT_EQ(none.lastErrorLine(), "No object in dsig array at the current selector index.");
  EXPECT_EQ(logprobe::value(none, "selectorIndex"), "0");

  // Not well-formed: the parser's located message, and the previous signatures are gone.
  ASSERT_TRUE(loadText(*d, kNested));
  EXPECT_FALSE(loadText(*d, "<a>\n<b></a>"));
  EXPECT_EQ(d->get_NumSignatures(), 0);
  EXPECT_NE(d->lastErrorText().find("line 2"), std::string::npos) << d->lastErrorText();
}

TEST(Loading, FamilyDetectionFirstRuleWins) {
  struct Case {
    const char* text;
    bool sii, sunat, sortBug, csioz, cma, doda, skxml;
  };
  const Case cases[] = {
      // Chile's SII and an HL7 marker: SII only.
      {"<DTE xmlns=\"http://www.sii.cl/SiiDte\"><x r=\"urn:hl7-org:v3\"/></DTE>", 1, 0, 0, 0, 0, 0, 0},
      {"<Invoice xmlns:sac=\"urn:sunat:names:specification:ubl:peru:schema:xsd:Sac-1\"/>", 0, 1, 0, 0, 0, 0, 0},
      {"<a xmlns=\"http://crd.gov.pl/wzor/2021/11/29/11089/\"/>", 0, 0, 1, 0, 0, 0, 0},
      {"<a xmlns=\"http://jpk.mf.gov.pl/wzor/2016/03/09/03095/\"/>", 0, 0, 1, 0, 0, 0, 0},
      {"<a xmlns=\"https://apps.mf.gov.pl/x\"/>", 0, 0, 1, 0, 0, 0, 0},
      {"<a xmlns=\"http://www.zus.pl/2019/KEDU\"/>", 0, 0, 1, 0, 0, 0, 0},
      {"<ClinicalDocument xmlns=\"urn:hl7-org:v3\"/>", 0, 0, 1, 0, 0, 0, 0},
      {"<a href=\"https://www.fascicolosanitario.gov.it/\"/>", 0, 0, 1, 0, 0, 0, 0},
      // CSIOZ alone, and after a rule-3 marker (rule 3 wins).
      {"<a xmlns=\"http://csioz.gov.pl/p1/kontekst/mt/v20170510\"/>", 0, 0, 1, 1, 0, 0, 0},
      {"<a xmlns=\"http://csioz.gov.pl/p1\" b=\"urn:hl7-org:v3\"/>", 0, 0, 1, 0, 0, 0, 0},
      {"<a xmlns=\"urn:cma:stp:xsd:stp.1.0\"/>", 0, 0, 0, 0, 1, 0, 0},
      // Mexico's SAT SIAT needs the <doda> element as well.
      {"<a xmlns=\"http://www.siat.sat.gob.mx/x\"/>", 0, 0, 0, 0, 0, 0, 0},
      {"<a xmlns=\"http://www.siat.sat.gob.mx/x\"><doda>1</doda></a>", 0, 0, 0, 0, 0, 1, 0},
      // SK-XML is independent of the ordered rules.
      {"<SignedDoc format=\"SK-XML\" xmlns=\"http://www.sii.cl/x\"/>", 1, 0, 0, 0, 0, 0, 1},
      {"<SignedDoc format=\"DIGIDOC-XML\"/>", 0, 0, 0, 0, 0, 0, 0},
      {"<a><b>plain</b></a>", 0, 0, 0, 0, 0, 0, 0},
  };
  DSigPtr d = newVerifier();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    ASSERT_TRUE(loadText(*d, c.text));
    EXPECT_EQ(d->m_isSiiCl, c.sii);
    EXPECT_EQ(d->m_noSortBugRetry, c.sii);
    EXPECT_EQ(d->m_isSunatPeru, c.sunat);
    EXPECT_EQ(d->m_dupAttrSortBug, c.sortBug);
    EXPECT_EQ(d->m_isCsioz, c.csioz);
    EXPECT_EQ(d->m_isCmaStp, c.cma);
    EXPECT_EQ(d->m_isDoda, c.doda);
    EXPECT_EQ(d->m_isSkXmlSignedDoc, c.skxml);
    EXPECT_EQ(d->m_log.containsText("Will duplicate the XML canonicalization attribute sorting bug..."), c.sortBug);
  }
  // The SUNAT document kind is not reset by later loads.
  EXPECT_EQ(d->m_specialDocKind, 3);
}

TEST(Loading, ZatcaAndMyInvoisComeFromTheOptions) {
  DSigPtr d = newVerifier();
  d->put_UncommonOptions(XString("zatca"));
  ASSERT_TRUE(loadText(*d, "<Invoice/>"));
  EXPECT_TRUE(d->m_isZatca);
  EXPECT_FALSE(d->m_isMyInvois);
  EXPECT_TRUE(d->m_log.containsText("Will validate according to ZATCA rules..."));
  // Detection runs after the options and clears the retry switch again.
  EXPECT_FALSE(d->m_noSortBugRetry);

  // Byte loads keep the mode of the last text load.
  d->put_UncommonOptions(XString(""));
  ASSERT_TRUE(loadBytes(*d, "<Invoice/>"));
  EXPECT_TRUE(d->m_isZatca);
  ASSERT_TRUE(loadText(*d, "<Invoice/>"));
  EXPECT_FALSE(d->m_isZatca);

  // The helper for callers holding only a log reads the log's options.
  _btLogger log;
  log.m_uncommonOptions.setString("x,MyInvois");
  d->checkSetMyInvois(log);
  EXPECT_TRUE(d->m_isMyInvois && d->m_noSortBugRetry);
  EXPECT_TRUE(log.containsText("Will validate according to MyInvois rules..."));
}

TEST(Loading, StringBuilderAndBytesInOtherEncodings) {
  DSigPtr d = newVerifier();
  RcPtr<ClsStringBuilder> sb(ClsStringBuilder::createNewCls());
  sb->Append(XString(kNested.c_str()));
  ASSERT_TRUE(d->LoadSignatureSb(*sb));
  EXPECT_EQ(d->get_NumSignatures(), 3);
  EXPECT_EQ(d->m_log.entries()[0].key, "LoadSignatureSb");

  // Bytes are converted to UTF-8 as declared (the detection of other encodings is the
  // support tests').
  const std::string latin1 = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r>" + signatureXml("caf\xE9", 1) + "</r>";
  ASSERT_TRUE(loadBytes(*d, latin1)) << d->lastErrorText();
  EXPECT_EQ(selectedId(*d), "caf\xC3\xA9");
  EXPECT_EQ(d->m_log.entries()[0].key, "LoadSignatureBd");
  EXPECT_NE(d->m_xmlSb.find("caf\xC3\xA9"), StringBuffer::npos);

  // A document that claims UTF-8 but holds Latin-1 bytes: refused with a reason, and the
  // previous document is gone.
  const std::string liar = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r>" + signatureXml("caf\xE9", 1) + "</r>";
  EXPECT_FALSE(loadBytes(*d, liar));
  EXPECT_EQ(d->get_NumSignatures(), 0);
  EXPECT_FALSE(d->lastErrorLine().empty());
}
