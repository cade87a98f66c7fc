// The verifier object: defaults, properties, Selector clamping, the operation frame and
// the release of everything it holds.
#include <gtest/gtest.h>

#include <cstdio>

#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "support/ClsXml.h"

using namespace dsigtest;

namespace {

std::string twoSignatures() {
  return "<root>" + signatureXml("a", 1) + signatureXml("b", 2) + "</root>";
}

// A key stand-in that counts its destructions.
class CountedKey : public RefCountedObject {
 public:
  explicit CountedKey(int& destroyed) : m_destroyed(destroyed) {}

 protected:
  ~CountedKey() override { ++m_destroyed; }

 private:
  int& m_destroyed;
};

}  // namespace

TEST(VerifierObject, FreshObjectDefaults) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(d);
  EXPECT_EQ(d->get_NumSignatures(), 0);
  EXPECT_EQ(d->get_NumReferences(), 0);
  EXPECT_EQ(d->get_Selector(), 0);
  EXPECT_EQ(d->get_RefFailReason(), 0);
  EXPECT_FALSE(d->get_IgnoreExternalRefs());
  EXPECT_FALSE(d->get_WithComments());
  XString s;
  d->get_ExternalRefDirs(s);
  EXPECT_TRUE(s.isEmpty());
  d->get_VerifyOptions(s);
  EXPECT_TRUE(s.isEmpty());
  EXPECT_FALSE(d->m_isZatca || d->m_isMyInvois || d->m_isSiiCl || d->m_dupAttrSortBug || d->m_noSortBugRetry);
  EXPECT_TRUE(d->m_constructed);
}

TEST(VerifierObject, PropertiesReadBack) {
  DSigPtr d = newVerifier();
  d->put_ExternalRefDirs(XString("/a; /b"));
  d->put_VerifyOptions(XString("VerifyEncapsulatedTimeStamp"));
  d->put_WithComments(true);
  d->put_IgnoreExternalRefs(true);
  XString s;
  d->get_ExternalRefDirs(s);
  EXPECT_STREQ(s.getUtf8(), "/a; /b");
  d->get_VerifyOptions(s);
  EXPECT_STREQ(s.getUtf8(), "VerifyEncapsulatedTimeStamp");
  EXPECT_STREQ(d->cmsOptions().getUtf8(), "VerifyEncapsulatedTimeStamp");
  EXPECT_TRUE(d->get_WithComments());
  EXPECT_TRUE(d->get_IgnoreExternalRefs());

  // WithComments is stored only: loading and selection behave the same.
  ASSERT_TRUE(loadText(*d, twoSignatures()));
  EXPECT_EQ(d->get_NumSignatures(), 2);
}

TEST(VerifierObject, SelectorIsClampedToTheSignatures) {
  DSigPtr d = newVerifier();
  d->put_Selector(7);  // no signatures
  EXPECT_EQ(d->get_Selector(), 0);
  d->put_Selector(-1);
  EXPECT_EQ(d->get_Selector(), 0);

  ASSERT_TRUE(loadText(*d, twoSignatures()));
  d->put_Selector(5);
  EXPECT_EQ(d->get_Selector(), 1);
  EXPECT_EQ(d->get_NumReferences(), 2);  // of the selected (second) signature
  d->put_Selector(-3);
  EXPECT_EQ(d->get_Selector(), 0);
  EXPECT_EQ(d->get_NumReferences(), 1);
  d->put_Selector(1);
  EXPECT_EQ(d->get_Selector(), 1);
}

TEST(VerifierObject, PropertyReadsLeaveTheLogAlone) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, twoSignatures()));
  const std::string before = d->lastErrorText();
  d->put_Selector(1);
  EXPECT_EQ(d->get_NumReferences(), 2);
  EXPECT_EQ(d->get_NumSignatures(), 2);
  EXPECT_EQ(d->lastErrorText(), before);
}

TEST(VerifierObject, SelectSignatureByIdRunsInItsOwnContext) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, twoSignatures()));
  EXPECT_TRUE(d->SelectSignatureById(XString("b")));
  EXPECT_EQ(d->get_Selector(), 1);
  const auto& entries = d->m_log.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].key, "SelectSignatureById");
  ASSERT_FALSE(entries[0].children.empty());
  EXPECT_EQ(entries[0].children[0].key, "selectBySignatureId");
  EXPECT_EQ(findValue(d->m_log, "signatureId"), "b");

  EXPECT_FALSE(d->SelectSignatureById(XString("nope")));
  EXPECT_EQ(d->get_Selector(), 1);
  EXPECT_EQ(d->lastErrorLine(), "Signature with Id not found.");
}

TEST(VerifierObject, DebugLogFileReceivesEachCallOnce) {
  const std::string dir = testsupport::makeTempDir("debuglog");
  ASSERT_FALSE(dir.empty());
  const std::string path = dir + "/debug.log";
  DSigPtr d = newVerifier();
  d->put_DebugLogFilePath(XString(path.c_str()));
  ASSERT_TRUE(loadText(*d, twoSignatures()));
  EXPECT_FALSE(d->SelectSignatureById(XString("zz")));
  const std::string text = testsupport::readFile(path);
  // One record per public call, each written once.
  EXPECT_NE(text.find("LoadSignature:"), std::string::npos) << text;
  EXPECT_EQ(text.find("LoadSignature:"), text.rfind("LoadSignature:")) << text;
  EXPECT_EQ(text.find("SelectSignatureById:"), text.rfind("SelectSignatureById:")) << text;
  EXPECT_NE(text.find("Signature with Id not found."), std::string::npos);
  std::remove(path.c_str());
  std::remove(dir.c_str());
}

TEST(VerifierObject, UncommonOptionsTravelWithTheLog) {
  DSigPtr d = newVerifier();
  d->put_UncommonOptions(XString("MyInvois"));
  XString s;
  d->get_UncommonOptions(s);
  EXPECT_STREQ(s.getUtf8(), "MyInvois");
  EXPECT_TRUE(d->m_log.hasUncommonOption("MYINVOIS", true));
  d->put_VerboseLogging(true);
  EXPECT_TRUE(d->get_VerboseLogging());
  EXPECT_TRUE(d->m_log.m_verboseLogging);
}

TEST(VerifierObject, DestructionReleasesTreeSignaturesAndKeysOnce) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, twoSignatures()));
  ASSERT_EQ(d->m_signatures.getSize(), 2);

  // Extra references of our own, to watch the verifier drop exactly its one.
  ClsXml* root = d->m_xmlRoot;
  ClsXml* sig0 = static_cast<ClsXml*>(d->m_signatures.elementAt(0));
  ClsXml* sig1 = static_cast<ClsXml*>(d->m_signatures.elementAt(1));
  root->incRefCount();
  sig0->incRefCount();
  sig1->incRefCount();
  int keysDestroyed = 0;
  d->m_publicKeys.appendRefCounted(new CountedKey(keysDestroyed));
  d->m_publicKeys.appendRefCounted(new CountedKey(keysDestroyed));

  d.reset();
  EXPECT_EQ(root->getRefCount(), 1);
  EXPECT_EQ(sig0->getRefCount(), 1);
  EXPECT_EQ(sig1->getRefCount(), 1);
  EXPECT_EQ(keysDestroyed, 2);
  // The handles still read their tree after the verifier is gone.
  StringBuffer id;
  EXPECT_TRUE(sig1->getAttrValue("Id", id));
  EXPECT_STREQ(id.getString(), "b");
  root->decRefCount();
  sig0->decRefCount();
  sig1->decRefCount();
}
