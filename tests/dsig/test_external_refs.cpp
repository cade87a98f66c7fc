// References to data outside the document: caller data as a file, text in a charset or
// bytes, its scoping by signature, the ExternalRefDirs search and the URI queries.
#include <filesystem>

#include "TestSupport.h"
#include "VerifierTestUtil.h"

using namespace dsigtest;

namespace {

const std::string kText = "detached content\n";

class ExternalRefs : public ::testing::Test {
 protected:
  std::string file(const std::string& name, const std::string& data) {
    EXPECT_TRUE(testsupport::writeFile(dir + "/" + name, data));
    return dir + "/" + name;
  }
  const testsupport::TempDir temp{"extrefs"};
  const std::string dir = temp.path;
};

}  // namespace

TEST_F(ExternalRefs, CallerSuppliedFileTextAndBytes) {
  Verifier v("<doc>" +
             signature(reference(" URI=\"doc.txt\"", "", b64sha256(kText)) +
                       reference(" URI=\"latin.txt\"", "", b64sha256("\xE9t\xE9"))) +
             "</doc>");
  // Nothing supplied: reason 2, also with IgnoreExternalRefs (which only VerifySignature reads).
  v.dsig->put_IgnoreExternalRefs(true);
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 2);
  EXPECT_TRUE(logprobe::hasError(v.dsig->m_log, "No external data defined for this reference."));
  EXPECT_TRUE(
      v.logged("Hint 1: Set the IgnoreExternalRefs property to verify without checking digests for "
               "external file references."));

  // File, then text for the same index: the text is used.
  ASSERT_TRUE(v.setFile(0, file("other.txt", "other content\n")));
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 1);
  EXPECT_TRUE(v.logged("Retry with duplication of common XML canonicalization attribute sorting bug..."));
  ASSERT_TRUE(v.setText(0, kText.c_str(), "utf-8"));
  EXPECT_TRUE(v.verify(0)) << v.dsig->lastErrorText();

  // Text is hashed in the caller's charset.
  ASSERT_TRUE(v.setText(1, "\xC3\xA9t\xC3\xA9", "iso-8859-1"));
  EXPECT_TRUE(v.verify(1));
  ASSERT_TRUE(v.setText(1, "\xC3\xA9t\xC3\xA9", "utf-8"));
  EXPECT_FALSE(v.verify(1));
  ASSERT_TRUE(v.setBytes(1, "\xE9t\xE9"));
  EXPECT_TRUE(v.verify(1));

  // Empty bytes, or a file that cannot be opened: nothing to hash, reason 99.
  ASSERT_TRUE(v.setBytes(0, ""));
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 99);
  ASSERT_TRUE(v.setFile(0, dir + "/missing.txt"));
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 99);

  EXPECT_TRUE(v.setFile(100, dir));  // indexes 0..100 only
  EXPECT_FALSE(v.setFile(101, dir));
  EXPECT_FALSE(v.setBytes(-1, "x"));

  // AllowXmlDigestError does not excuse external data.
  v.dsig->put_UncommonOptions(XString("AllowXmlDigestError"));
  ASSERT_TRUE(v.setBytes(0, "tampered"));
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 1);
}

TEST_F(ExternalRefs, DataBelongsToTheSelectedSignatureAndExternalRefDirs) {
  const std::string sig = signature(reference(" URI=\" doc.txt \"", "", b64sha256(kText)));
  const std::string doc = "<doc>" + sig + "<x/>" + sig + "</doc>";
  Verifier v(doc);
  ASSERT_TRUE(v.setFile(0, file("doc.txt", kText)));
  EXPECT_TRUE(v.verify(0));
  v.dsig->put_Selector(1);
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 2);
  v.reload(doc);  // selector back to 0; the data stays
  EXPECT_TRUE(v.verify(0));

  // Signature 1 finds the file (URI trimmed) in the second directory.
  const std::string dirA = dir + "/a", dirB = dir + "/b";
  std::filesystem::create_directories(dirA);
  std::filesystem::create_directories(dirB);
  file("b/doc.txt", kText);
  v.dsig->put_ExternalRefDirs(XString((dirA + "; ;" + dirB + ";").c_str()));
  v.dsig->put_Selector(1);
  EXPECT_TRUE(v.verify(0)) << v.dsig->lastErrorText();
  EXPECT_EQ(v.value("externalRefFileName"), "doc.txt");
  EXPECT_EQ(v.count("pathToCheck"), 2);
  EXPECT_EQ(v.count("usingFile"), 1);
  EXPECT_EQ(v.value("usingFile"), dirB + "/doc.txt");
  std::filesystem::remove(dirB + "/doc.txt");
  EXPECT_FALSE(v.verify(0));
  EXPECT_EQ(v.reason(), 2);
}

TEST_F(ExternalRefs, ReferenceUriAndIsReferenceExternal) {
  Verifier v("<doc>" +
             signature(reference(" URI=\"\"", "", "") + reference("", "", "") + reference(" URI=\"#x\"", "", "") +
                       reference(" URI=\"doc.xml\"", "", "") + reference(" URI=\" #x\"", "", "")) +
             "</doc>");
  const char* uris[] = {"", "", "#x", "doc.xml", " #x"};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(v.dsig->IsReferenceExternal(i), i >= 3) << i;
    XString uri("stale");
    EXPECT_TRUE(v.dsig->ReferenceUri(i, uri));
    EXPECT_STREQ(uri.getUtf8(), uris[i]);
  }
  XString uri("stale");
  EXPECT_FALSE(v.dsig->ReferenceUri(5, uri));
  EXPECT_STREQ(uri.getUtf8(), "");
  EXPECT_FALSE(v.dsig->IsReferenceExternal(5));
}
