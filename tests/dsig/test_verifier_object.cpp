// The verifier object: Selector clamping, the operation frame and
// the release of everything it holds.
#include <gtest/gtest.h>

#include <cstdio>

#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "support/ClsXml.h"

using namespace dsigtest;

namespace {

const std::string kTwoSignatures = "<root>" + signatureXml("a", 1) + signatureXml("b", 2) + "</root>";

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

TEST(VerifierObject, SelectorIsClampedToTheSignatures) {
  DSigPtr d = newVerifier();
  d->put_Selector(7);  // no signatures
  EXPECT_EQ(d->get_Selector(), 0);
  EXPECT_EQ(d->get_NumReferences(), 0);

  ASSERT_TRUE(loadText(*d, kTwoSignatures));
  const std::string logAfterLoad = d->lastErrorText();
  d->put_Selector(5);
  EXPECT_EQ(d->get_Selector(), 1);
  EXPECT_EQ(d->get_NumReferences(), 2);  // of the selected (second) signature
  d->put_Selector(-3);
  EXPECT_EQ(d->get_Selector(), 0);
  EXPECT_EQ(d->get_NumReferences(), 1);
  // Property reads leave the record of the last call alone.
  EXPECT_EQ(d->lastErrorText(), logAfterLoad);

  // VerifyOptions is the text the time-stamp code reads.
  d->put_VerifyOptions(XString("VerifyEncapsulatedTimeStamp"));
  EXPECT_STREQ(d->cmsOptions().getUtf8(), "VerifyEncapsulatedTimeStamp");
}

TEST(VerifierObject, OperationFrameNamesTheCallAndFeedsTheDebugLog) {
  const std::string dir = testsupport::makeTempDir("debuglog");
  ASSERT_FALSE(dir.empty());
  const std::string path = dir + "/debug.log";
  DSigPtr d = newVerifier();
  d->put_DebugLogFilePath(XString(path.c_str()));
  ASSERT_TRUE(loadText(*d, kTwoSignatures));

  EXPECT_TRUE(d->SelectSignatureById(XString("b")));
  EXPECT_EQ(d->get_Selector(), 1);
  const auto& entries = d->m_log.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].key, "SelectSignatureById");
  ASSERT_FALSE(entries[0].children.empty());
  EXPECT_EQ(entries[0].children[0].key, "selectBySignatureId");
  EXPECT_EQ(logprobe::value(d->m_log, "signatureId"), "b");

  EXPECT_FALSE(d->SelectSignatureById(XString("nope")));
  EXPECT_EQ(d->get_Selector(), 1);
  EXPECT_EQ(d->lastErrorLine(), "Signature with Id not found.");

  // One record per public call, each written once.
  const std::string text = testsupport::readFile(path);
  EXPECT_NE(text.find("LoadSignature:"), std::string::npos) << text;
  EXPECT_EQ(text.find("LoadSignature:"), text.rfind("LoadSignature:")) << text;
  EXPECT_NE(text.find("Signature with Id not found."), std::string::npos) << text;
  std::remove(path.c_str());
  std::remove(dir.c_str());
}

TEST(VerifierObject, DestructionReleasesTreeSignaturesAndKeysOnce) {
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, kTwoSignatures));
  ASSERT_EQ(d->m_signatures.getSize(), 2);

  // Extra references of our own, to watch the verifier drop exactly its one.
  ClsXml* held[] = {d->m_xmlRoot, static_cast<ClsXml*>(d->m_signatures.elementAt(0)),
                    static_cast<ClsXml*>(d->m_signatures.elementAt(1))};
  for (ClsXml* x : held) x->incRefCount();
  int keysDestroyed = 0;
  d->m_publicKeys.appendRefCounted(new CountedKey(keysDestroyed));
  d->m_publicKeys.appendRefCounted(new CountedKey(keysDestroyed));

  d.reset();
  for (ClsXml* x : held) EXPECT_EQ(x->getRefCount(), 1);
  EXPECT_EQ(keysDestroyed, 2);
  for (ClsXml* x : held) x->decRefCount();
}

// The verifier's tree reads its copy of the document in place; the KeyInfo handed to the
// caller must not, since it may outlive that text.
TEST(VerifierObject, KeyInfoHandedOutOutlivesReloadAndVerifier) {
  const auto document = [](const std::string& id, const std::string& keyName) {
    return "<root>" + signatureXml(id, 1, "<ds:KeyInfo><ds:KeyName>" + keyName + "</ds:KeyName></ds:KeyInfo>") +
           "</root>";
  };
  DSigPtr d = newVerifier();
  ASSERT_TRUE(loadText(*d, document("a", "k1")));
  RcPtr<ClsXml> keyInfo(d->GetKeyInfo());
  ASSERT_TRUE(keyInfo);
  const size_t start = keyInfo->sourceStart();
  // A document of the same length: its text takes the place of the first one's.
  ASSERT_TRUE(loadText(*d, document("b", "k2")));
  d.reset();

  StringBuffer text;
  EXPECT_TRUE(keyInfo->getChildContentUtf8("*:KeyName", text, false));
  EXPECT_EQ(text.str(), "k1");
  EXPECT_EQ(keyInfo->sourceStart(), start);
  RcPtr<ClsXml> signature(keyInfo->getParent());
  ASSERT_TRUE(signature);
  EXPECT_TRUE(signature->getAttrValue("Id", text));
  EXPECT_EQ(text.str(), "a");
}
