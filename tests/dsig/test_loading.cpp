// Loading documents, collecting and selecting their signatures, family detection and
// reference access.
#include <gtest/gtest.h>

#include <sstream>

#include "TestSupport.h"
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

  _btLogger missLog;
  EXPECT_EQ(d->getReference(5, missLog), nullptr);
  EXPECT_EQ(missLog.lastErrorLine(), "No Reference element at the requested index.");

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

  // Not well-formed: the parser's located message, and the previous signatures are gone.
  ASSERT_TRUE(loadText(*d, kNested));
  EXPECT_FALSE(loadText(*d, "<a>\n<b></a>"));
  EXPECT_EQ(d->get_NumSignatures(), 0);
  EXPECT_NE(d->lastErrorText().find("line 2"), std::string::npos) << d->lastErrorText();
}

TEST(Loading, FamilyDetectionFirstRuleWins) {
  std::istringstream rows(testsupport::readFile(testsupport::sourceDir() + "/tests/dsig/data/family-detection.tsv"));
  DSigPtr d = newVerifier();
  int count = 0;
  for (std::string row; std::getline(rows, row);) {
    if (row.empty() || row[0] == '#') continue;
    ++count;
    const std::string text = row.substr(0, row.find('\t')), flags = " " + row.substr(row.find('\t') + 1) + " ";
    SCOPED_TRACE(text);
    ASSERT_TRUE(loadText(*d, text));
    auto set = [&](const char* name) { return flags.find(std::string(" ") + name + " ") != std::string::npos; };
    EXPECT_EQ(d->m_isSiiCl, set("sii"));
    EXPECT_EQ(d->m_noSortBugRetry, set("sii"));
    EXPECT_EQ(d->m_isSunatPeru, set("sunat"));
    EXPECT_EQ(d->m_dupAttrSortBug, set("sortbug"));
    EXPECT_EQ(d->m_isCsioz, set("csioz"));
    EXPECT_EQ(d->m_isCmaStp, set("cmastp"));
    EXPECT_EQ(d->m_isDoda, set("doda"));
    EXPECT_EQ(d->m_isSkXmlSignedDoc, set("skxml"));
    EXPECT_EQ(d->m_log.containsText("Will duplicate the XML canonicalization attribute sorting bug..."),
              set("sortbug"));
  }
  EXPECT_GT(count, 10);
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
