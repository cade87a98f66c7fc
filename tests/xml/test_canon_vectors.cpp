// The stream canonicalizer driven by tests/xml/data/canon.txt: a document (inline or from
// the shared corpus), the settings and the subset, and the expected output, digest, error
// or the output of xmllint on the same document.
#include <openssl/evp.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "VectorFile.h"
#include "XmlTestHelpers.h"

namespace {

std::string digestBase64(const std::string& data, const std::string& name) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(data.data(), data.size(), md, &len, EVP_get_digestbyname(name.c_str()), nullptr);
  unsigned char b64[2 * EVP_MAX_MD_SIZE];
  const int n = EVP_EncodeBlock(b64, md, static_cast<int>(len));
  return name + " " + std::string(reinterpret_cast<char*>(b64), static_cast<size_t>(n));
}

std::string xmllint(const std::string& option, const std::string& doc) {
  const testsupport::TempDir dir("canon-xmllint");
  const std::string path = dir.path + "/doc.xml";
  std::string out;
  if (!testsupport::writeFile(path, doc)) return out;
  FILE* pipe = popen(("xmllint --" + option + " '" + path + "' 2>/dev/null").c_str(), "r");
  if (!pipe) return out;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  pclose(pipe);
  return out;
}

// The canonical form of the case's subset of doc, or "error: <last error line>".
std::string canonicalize(const vectors::Case& c, const std::string& doc) {
  XmlCanon canon;
  std::istringstream words(c.get("canon"));
  for (std::string word; words >> word;) {
    if (word == "exclusive") canon.canonMethod = 2;
    else if (word == "comments") canon.withComments = true;
    else if (word == "sortbug") canon.emulateAttrSortBug = true;
    else if (word == "ebics") canon.ebicsMode = true;
    else if (word.rfind("prefixes=", 0) == 0)
      StringBuffer(word.substr(9)).split(canon.inclusivePrefixes, ',', true, true);
    else ADD_FAILURE() << "unknown canon word " << word;
  }
  size_t offset = 0;
  if (c.has("at")) offset = c.get("at") == "end" ? doc.size() : doc.find(c.get("at"));
  if (offset == std::string::npos) return "error: the text of 'at' is not in the document";
  offset += std::stoul(c.get("shift", "0"));
  if (c.has("cut")) {
    canon.cutStart = doc.find(c.get("cut"));
    const std::string end = c.get("cut-end");
    canon.cutLength = doc.find(end, canon.cutStart) + end.size() - canon.cutStart;
  }
  const std::string select = c.get("select");
  const char* fragment = c.has("select") ? select.c_str() : nullptr;
  const StringBuffer in(doc);
  StringBuffer out;
  _btLogger log;
  if (canon.ebicsMode) {  // the caller's loop: element 0, 1, 2... until a call fails
    for (; canon.ebicsIndex < 100 && canon.xmlCanonicalize(in, fragment, offset, out, log); ++canon.ebicsIndex)
      canon.ebicsCount = 0;
    return canon.ebicsIndex == 0 ? "error: " + log.lastErrorLine() : out.str();
  }
  if (!canon.xmlCanonicalize(in, fragment, offset, out, log)) return "error: " + log.lastErrorLine();
  return out.str();
}

}  // namespace

TEST(CanonVectors, CasesOfTheVectorFile) {
  const auto cases = vectors::read(testsupport::sourceDir() + "/tests/xml/data/canon.txt",
                                   {"doc", "file", "canon", "select", "at", "shift", "cut", "cut-end", "expect",
                                    "expect-file", "digest", "error", "xmllint"});
  ASSERT_GT(cases.size(), 40u);
  const bool haveXmllint = std::system("command -v xmllint >/dev/null 2>&1") == 0;
  int skipped = 0;
  for (const vectors::Case& c : cases) {
    SCOPED_TRACE(c.where());
    if ((c.has("file") && testsupport::corpusDir().empty()) || (c.has("xmllint") && !haveXmllint)) {
      ++skipped;
      continue;
    }
    const std::string doc = c.has("file") ? testsupport::readFile(testsupport::corpusDir() + "/" + c.get("file"))
                                          : vectors::unescaped(c.get("doc"));
    ASSERT_FALSE(doc.empty());
    const std::string got = canonicalize(c, doc);
    if (c.has("error")) {
      EXPECT_EQ(got.rfind("error: ", 0), 0u) << got;
      EXPECT_NE(got.find(c.get("error")), std::string::npos) << got;
    } else if (c.has("digest")) {
      EXPECT_EQ(digestBase64(got, c.get("digest").substr(0, c.get("digest").find(' '))), c.get("digest"));
    } else if (c.has("xmllint")) {
      EXPECT_EQ(got, xmllint(c.get("xmllint"), doc));
    } else if (c.has("expect-file")) {
      EXPECT_EQ(got, testsupport::readFile(testsupport::corpusDir() + "/" + c.get("expect-file")));
    } else {
      EXPECT_EQ(got, vectors::unescaped(c.get("expect")));
    }
  }
  if (skipped > 0)
    std::printf("%d cases skipped: they need the shared corpus (../shared/corpus) or xmllint (libxml2-utils)\n",
                skipped);
}
