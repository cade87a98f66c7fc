// `xmldsig c14n` as a user runs it: whole documents and fragments, the exclusive prefix
// list, output to a file, input in a legacy encoding, and the failures.
#include <gtest/gtest.h>

#include <string>

#include "CliRun.h"
#include "TestSupport.h"

using clirun::quote;

namespace {

clirun::RunResult runC14n(const std::string& arguments) { return clirun::xmldsig("c14n " + arguments); }

}  // namespace

TEST(CliC14n, DocumentsFragmentsAndFailures) {
  const testsupport::TempDir temp("cli-c14n");
  const std::string& dir = temp.path;
  ASSERT_FALSE(dir.empty());
  const std::string doc = dir + "/doc.xml";
  ASSERT_TRUE(testsupport::writeFile(
      doc, "<?xml version=\"1.0\"?>\n<r xmlns:a=\"urn:a\" xmlns:b=\"urn:b\"><!--c--><a:x Id=\"f\" b=\"1\"/></r>\n"));

  clirun::RunResult r = runC14n(quote(doc));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "<r xmlns:a=\"urn:a\" xmlns:b=\"urn:b\"><a:x Id=\"f\" b=\"1\"></a:x></r>");
  r = runC14n("--with-comments --exclusive " + quote(doc));
  EXPECT_EQ(r.out, "<r><!--c--><a:x xmlns:a=\"urn:a\" Id=\"f\" b=\"1\"></a:x></r>");
  r = runC14n("--exclusive --fragment f --prefixes b -o " + quote(dir + "/out.xml") + " " + quote(doc));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(testsupport::readFile(dir + "/out.xml"),
            "<a:x xmlns:a=\"urn:a\" xmlns:b=\"urn:b\" Id=\"f\" b=\"1\"></a:x>");

  // The declared encoding is honoured; the output is UTF-8.
  const std::string latin1 = dir + "/latin1.xml";
  ASSERT_TRUE(testsupport::writeFile(latin1, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r>\xE9</r>"));
  EXPECT_EQ(runC14n(quote(latin1)).out, "<r>\xC3\xA9</r>");

  r = runC14n("--fragment nope " + quote(doc));
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("Element with Id 'nope' not found."), std::string::npos) << r.err;
  EXPECT_EQ(runC14n("--prefixes b " + quote(doc)).exitCode, 2);
  EXPECT_EQ(runC14n(quote(dir + "/missing.xml")).exitCode, 2);
}
