// Signature time-stamps end to end: documents signed by xmlsec1 in each XAdES shape get a
// time-stamp from a real RFC 3161 authority running on 127.0.0.1 (openssl ts behind a small
// HTTP server), are loaded again, checked and verified; tampering makes them fail.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "TestSupport.h"
#include "TimeStampAuthority.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsJsonObject.h"
#include "support/ClsStringBuilder.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace {

using testsupport::readFile;

testsupport::TimeStampAuthority& authority() { return testsupport::TimeStampAuthority::instance(); }

struct Verifier {
  std::unique_ptr<ClsXmlDSig> dsig{ClsXmlDSig::createNewCls()};
  bool load(const std::string& xml) {
    XString x(xml.c_str());
    return dsig->LoadSignature(x);
  }
  bool verifyWithTimeStamp() {
    dsig->put_UncommonOptions(XString("VerifyEncapsulatedTimeStamp"));
    return dsig->VerifySignature(true);
  }
};

std::string addTimeStamp(ClsXmlDSig& dsig, const std::string& url, bool& ok) {
  RcPtr<ClsJsonObject> options(ClsJsonObject::createNewCls());
  options->UpdateString("tsaUrl", url.c_str());
  RcPtr<ClsStringBuilder> out(ClsStringBuilder::createNewCls());
  ok = dsig.AddEncapsulatedTimeStamp(*options, *out);
  return out->getXString().getUtf8();
}

}  // namespace

TEST(TimeStamp, AddsAtTheRightPlaceForEveryXadesShapeAndVerifies) {
  REQUIRE_TIMESTAMP_AUTHORITY();
  struct Shape {
    const char* file;
    const char* mustContain;  // where the new element must stand
  } shapes[] = {
      {"plain.xml", "<ds:Object Id=\"signature-object-"},
      {"qualifying.xml",
       "</xades:SignedProperties><xades:UnsignedProperties><xades:UnsignedSignatureProperties>"
       "<xades:SignatureTimeStamp"},
      {"unsigned.xml", "<xades:UnsignedSignatureProperties><xades:SignatureTimeStamp"},
      {"declared.xml", "<xades:QualifyingProperties Target=\"#sig-d\">"},
  };
  for (const Shape& shape : shapes) {
    SCOPED_TRACE(shape.file);
    const std::string original = authority().fixture(shape.file);
    ASSERT_FALSE(original.empty());
    Verifier v;
    ASSERT_TRUE(v.load(original));
    EXPECT_FALSE(v.dsig->HasEncapsulatedTimeStamp());
    bool ok = false;
    const std::string stamped = addTimeStamp(*v.dsig, authority().url(), ok);
    ASSERT_TRUE(ok) << v.dsig->lastErrorText();
    EXPECT_NE(stamped.find(shape.mustContain), std::string::npos) << stamped;
    EXPECT_EQ(stamped.find("ENCAP_TIMESTAMP_BASE64"), std::string::npos);
    if (std::string(shape.file) == "unsigned.xml") {  // existing unsigned properties are kept after the stamp
      EXPECT_NE(stamped.find("</xades:SignatureTimeStamp><xades:Note>kept</xades:Note>"), std::string::npos);
    }

    Verifier reloaded;
    ASSERT_TRUE(reloaded.load(stamped));
    EXPECT_TRUE(reloaded.dsig->HasEncapsulatedTimeStamp());
    EXPECT_TRUE(reloaded.verifyWithTimeStamp()) << reloaded.dsig->lastErrorText();
    EXPECT_NE(reloaded.dsig->lastErrorText().find("The computed hash is equal to the expected hash."),
              std::string::npos);
  }
}

TEST(TimeStamp, TamperingAndAMissingAuthorityAreReported) {
  REQUIRE_TIMESTAMP_AUTHORITY();
  Verifier v;
  ASSERT_TRUE(v.load(authority().fixture("plain.xml")));
  bool ok = false;
  const std::string stamped = addTimeStamp(*v.dsig, authority().url(), ok);
  ASSERT_TRUE(ok);

  // Change one character inside the token's base64 (well inside, so it stays base64).
  std::string badToken = stamped;
  const size_t tokenAt = badToken.find("#DER\">") + 6 + 200;
  badToken[tokenAt] = badToken[tokenAt] == 'A' ? 'B' : 'A';
  Verifier t;
  ASSERT_TRUE(t.load(badToken));
  EXPECT_FALSE(t.verifyWithTimeStamp());
  EXPECT_NE(t.dsig->lastErrorText().find("Verification of encapsulated timestamp failed."), std::string::npos);

  // Change the SignatureValue: the stamp no longer covers it (and the signature fails too).
  std::string badValue = stamped;
  const size_t valueAt = badValue.find("Id=\"sv-plain\">") + 14 + 10;
  badValue[valueAt] = badValue[valueAt] == 'A' ? 'B' : 'A';
  Verifier s;
  ASSERT_TRUE(s.load(badValue));
  EXPECT_FALSE(s.verifyWithTimeStamp());
  EXPECT_NE(s.dsig->lastErrorText().find("Computed hash not equal to the expected hash."), std::string::npos);

  // Options without an authority URL are refused with a clear reason (the document is still
  // returned). An unreachable authority and a second stamp are the example program's tests.
  Verifier u;
  ASSERT_TRUE(u.load(authority().fixture("plain.xml")));
  RcPtr<ClsJsonObject> empty(ClsJsonObject::createNewCls());
  RcPtr<ClsStringBuilder> out(ClsStringBuilder::createNewCls());
  EXPECT_TRUE(u.dsig->AddEncapsulatedTimeStamp(*empty, *out));
  EXPECT_NE(u.dsig->lastErrorText().find("set \"tsaUrl\""), std::string::npos);
}

TEST(TimeStamp, CorpusXadesTDocumentsVerifyTheirTimeStamps) {
  REQUIRE_CORPUS();
  namespace fs = std::filesystem;
  int checked = 0;
  for (const auto& entry : fs::recursive_directory_iterator(testsupport::corpusDir() + "/families/xades-t")) {
    if (entry.path().extension() != ".xml") continue;
    Verifier v;
    ASSERT_TRUE(v.load(readFile(entry.path().string()))) << entry.path();
    if (!v.dsig->HasEncapsulatedTimeStamp()) continue;
    SCOPED_TRACE(entry.path().string());
    // Only the time-stamp is of interest here: verify the signature value alone.
    v.dsig->put_UncommonOptions(XString("VerifyEncapsulatedTimeStamp"));
    v.dsig->VerifySignature(false);
    EXPECT_NE(v.dsig->lastErrorText().find("The computed hash is equal to the expected hash."), std::string::npos)
        << v.dsig->lastErrorText();
    ++checked;
  }
  EXPECT_GT(checked, 0);
}
