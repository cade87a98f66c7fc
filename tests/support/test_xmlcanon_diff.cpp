// Differential test: our canonical form against libxml2's (xmllint --c14n / --exc-c14n,
// which always keep comments) over hand-written documents that exercise one area each.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "xml/XmlCanon.h"

namespace {

bool haveXmllint() { return std::system("command -v xmllint >/dev/null 2>&1") == 0; }

std::string runXmllint(const std::string& option, const std::string& path) {
  std::string out;
  FILE* pipe = popen(("xmllint " + option + " '" + path + "' 2>/dev/null").c_str(), "r");
  if (!pipe) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, n);
  pclose(pipe);
  return out;
}

std::string ours(const std::string& xml, int method) {
  XmlCanon canon;
  canon.canonMethod = method;
  canon.withComments = true;
  StringBuffer out;
  _btLogger log;
  if (!canon.xmlCanonicalize(StringBuffer(xml), nullptr, 0, out, log)) return "FAILED: " + log.lastErrorLine();
  return out.str();
}

const std::vector<std::pair<const char*, std::string>>& documents() {
  static const std::vector<std::pair<const char*, std::string>> docs = {
      {"namespaces redeclared and undeclared",
       "<?xml version=\"1.0\"?>\n"
       "<a:root xmlns:a=\"urn:a\" xmlns:b=\"urn:b\" xmlns=\"urn:default\" xmlns:unused=\"urn:unused\">\n"
       "  <child xmlns:a=\"urn:a\"><a:x xmlns:b=\"urn:b2\" b:attr=\"1\"/></child>\n"
       "  <plain xmlns=\"\"><inner xmlns=\"urn:other\"><deep xmlns=\"\"><b:z/></deep></inner></plain>\n"
       "  <b:y xmlns=\"urn:default\"><again xmlns=\"urn:default\"/></b:y>\n"
       "</a:root>\n"},
      {"empty default namespace at the root and below",
       "<root xmlns=\"\"><p:a xmlns:p=\"http://p.example/\" xmlns=\"http://d.example/\"><b xmlns=\"\"/><c/></p:a></root>"},
      {"attribute order and xml attributes",
       "<doc xmlns:z=\"http://a.example/z\" xmlns:a=\"http://z.example/a\" xml:lang=\"en\" z:first=\"1\" "
       "a:second=\"2\" b=\"3\" a=\"4\" xml:space=\"preserve\" A=\"5\">"
       "<e xml:lang=\"fr\" z:k=\"v\" k=\"w\" a:k=\"x\"/></doc>"},
      {"entities, character references and attribute escaping",
       "<!DOCTYPE doc [\n<!ENTITY ent \"entity &#38;amp; text\">\n<!ENTITY nested \"[&ent;]\">\n]>\n"
       "<doc><e>&ent; &nested; &#x41;&#9;&#13;&lt;&gt;\"' &#xE9;&#x10000;</e>"
       "<f attr=\"a&#9;b&#10;c&#13;d &quot; &lt; &amp; '&gt; &ent;\" other='\"quoted\"' "
       "spaces=\"  tab\tnewline\n  \"/></doc>"},
      {"DTD default attributes and attribute types",
       "<!DOCTYPE doc [\n<!ATTLIST doc def CDATA \"default value\" tok NMTOKENS #IMPLIED>\n"
       "<!ATTLIST e id ID #IMPLIED kind (x|y) \"x\" fixed CDATA #FIXED \"f\">\n]>\n"
       "<doc tok=\"  a   b  \"><e id=\"  spaced  \"/><e kind=\"y\" fixed=\"f\"/></doc>"},
      {"CDATA, comments, PIs and white space outside the root",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<?pi-before some data ?>\n<!-- before -->\n\n"
       "<doc>\n<![CDATA[ <cdata> & ]]> ]]&gt; text\n<?inner   pi data  ?><?empty?><!-- inner\ncomment -->\n"
       "<![CDATA[]]></doc>\n\n<!-- after -->\n<?pi-after?>\n"},
      {"line ends",
       "<doc attr=\"one\r\ntwo\rthree\">line1\r\nline2\rline3\r\n<!-- c\r\nd --><![CDATA[x\r\ny]]></doc>\r\n"},
      {"exclusive visibility",
       "<r:root xmlns:r=\"urn:r\" xmlns:u=\"urn:u\" xmlns:v=\"urn:v\" xmlns=\"urn:d\">"
       "<r:a><b u:at=\"1\"><r:c xmlns:v=\"urn:v2\"><v:d/></r:c></b></r:a><u:e xmlns=\"\"><f/></u:e></r:root>"},
      {"empty elements and mixed content",
       "<doc><a/><b></b><c>x<d/>y<e>z</e></c>  <f  a = 'v' /></doc>"},
  };
  return docs;
}

}  // namespace

TEST(XmlCanonDifferential, MatchesXmllintInclusiveAndExclusive) {
  if (!haveXmllint()) GTEST_SKIP() << "xmllint not installed (package libxml2-utils); differential test skipped";
  const std::string dir = testsupport::makeTempDir("canon-diff");
  ASSERT_FALSE(dir.empty());
  int index = 0;
  for (const auto& doc : documents()) {
    const std::string path = dir + "/doc" + std::to_string(index++) + ".xml";
    ASSERT_TRUE(testsupport::writeFile(path, doc.second));
    const std::string inclusive = runXmllint("--c14n", path);
    const std::string exclusive = runXmllint("--exc-c14n", path);
    ASSERT_FALSE(inclusive.empty()) << doc.first << ": xmllint rejected the document";
    EXPECT_EQ(ours(doc.second, 1), inclusive) << doc.first << " (inclusive)";
    EXPECT_EQ(ours(doc.second, 2), exclusive) << doc.first << " (exclusive)";
    std::remove(path.c_str());
  }
  std::remove(dir.c_str());
}
