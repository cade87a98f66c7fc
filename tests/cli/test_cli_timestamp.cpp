// xmldsig timestamp add/check against the local RFC 3161 authority.
#include <gtest/gtest.h>

#include <string>

#include "CliRun.h"
#include "TestSupport.h"
#include "TimeStampAuthority.h"

using clirun::quote;
using clirun::xmldsig;

TEST(CliTimestamp, AddThenCheckAndTheFailuresAUserMeets) {
  REQUIRE_TIMESTAMP_AUTHORITY();
  auto& tsa = testsupport::TimeStampAuthority::instance();
  const std::string plain = tsa.fixturePath("plain.xml");
  const std::string stamped = testsupport::makeTempDir("cli-ts") + "/stamped.xml";

  clirun::RunResult add = xmldsig("timestamp add " + quote(plain) + " --tsa " + quote(tsa.url()) + " -o " +
                                  quote(stamped));
  ASSERT_EQ(add.exitCode, 0) << add.err;
  EXPECT_NE(testsupport::readFile(stamped).find("<xades:EncapsulatedTimeStamp"), std::string::npos);

  clirun::RunResult check = xmldsig("timestamp check " + quote(stamped));
  EXPECT_EQ(check.exitCode, 0) << check.err;
  EXPECT_EQ(check.out, stamped + "#0: time-stamp valid\n");

  clirun::RunResult none = xmldsig("timestamp check --json " + quote(plain));
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_NE(none.out.find("\"hasTimeStamp\":false"), std::string::npos) << none.out;

  // An authority that cannot be reached: the document comes back with an empty token, exit 1.
  clirun::RunResult down = xmldsig("timestamp add " + quote(plain) + " --tsa http://127.0.0.1:1/");
  EXPECT_EQ(down.exitCode, 1);
  EXPECT_NE(down.out.find("#DER\"></xades:EncapsulatedTimeStamp>"), std::string::npos);
  EXPECT_NE(down.err.find("no token was obtained"), std::string::npos) << down.err;

  // Stamping in place: the input is read whole before -o replaces it, and a stamp that
  // could not be obtained leaves it as it was.
  const std::string inPlace = testsupport::makeTempDir("cli-ts-in-place") + "/doc.xml";
  const std::string original = testsupport::readFile(plain);
  testsupport::writeFile(inPlace, original);
  down = xmldsig("timestamp add " + quote(inPlace) + " --tsa http://127.0.0.1:1/ -o " + quote(inPlace));
  EXPECT_EQ(down.exitCode, 1);
  EXPECT_EQ(testsupport::readFile(inPlace), original);
  add = xmldsig("timestamp add " + quote(inPlace) + " --tsa " + quote(tsa.url()) + " -o " + quote(inPlace));
  ASSERT_EQ(add.exitCode, 0) << add.err;
  EXPECT_EQ(xmldsig("timestamp check " + quote(inPlace)).out, inPlace + "#0: time-stamp valid\n");

  EXPECT_EQ(xmldsig("timestamp add " + quote(plain)).exitCode, 2);  // --tsa missing
  EXPECT_EQ(xmldsig("timestamp stamp " + quote(plain)).exitCode, 2);
}
