// The API guide's example programs, built from examples/*.cpp, run as a user runs them on
// the bundled invoices and on inputs that examples/make-api-inputs.sh signs with xmlsec1.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "CliRun.h"
#include "TestSupport.h"
#include "TimeStampAuthority.h"

namespace {

using clirun::quote;
using clirun::RunResult;

using testsupport::TempDir;

RunResult runExample(const std::string& name, const std::string& args) {
  return clirun::runShell(quote(testsupport::binaryDir() + "/examples/" + name) + " " + args);
}

// The inputs of make-api-inputs.sh, made once per test process.
class ApiInputs {
 public:
  static const ApiInputs& instance() {
    static const ApiInputs inputs;
    return inputs;
  }
  std::string path(const std::string& name) const { return quote(dir_.path + "/" + name); }
  const std::string& error() const { return error_; }

 private:
  ApiInputs() {
    const std::string cmd = "bash " + quote(clirun::example("make-api-inputs.sh")) + " " + quote(dir_.path) +
                            " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) != 0)
      error_ = "examples/make-api-inputs.sh failed (are openssl and xmlsec1 installed?)";
  }
  TempDir dir_{"api-inputs"};
  std::string error_;
};

#define REQUIRE_API_INPUTS()                                                                   \
  do {                                                                                         \
    if (!ApiInputs::instance().error().empty()) GTEST_SKIP() << ApiInputs::instance().error(); \
  } while (0)

}  // namespace

TEST(Examples, VerifyInvoiceSaysWhyASignatureFailed) {
  const std::string signedPath = clirun::example("invoice-signed.xml");
  RunResult r = runExample("verify_invoice", quote(signedPath));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, signedPath + ": signature 0: valid\n");

  const std::string tamperedPath = clirun::example("invoice-tampered.xml");
  r = runExample("verify_invoice", quote(tamperedPath));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out, tamperedPath +
                       ": signature 0: INVALID (Failed to verify reference digest)\n"
                       "  reference 0 (URI \"\"): RefFailReason 1, the digest does not match: the "
                       "signed data was changed\n");

  // The references intact, the signature value changed.
  std::string text = testsupport::readFile(signedPath);
  const size_t value = text.find("<ds:SignatureValue>") + 19 + 40;
  text[value] = text[value] == 'A' ? 'B' : 'A';
  const TempDir dir("example-invoice");
  const std::string badValuePath = dir.path + "/bad-value.xml";
  ASSERT_TRUE(testsupport::writeFile(badValuePath, text));
  r = runExample("verify_invoice", quote(badValuePath));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out, badValuePath +
                       ": signature 0: INVALID (RSA verify hash found the signature to be invalid.)\n"
                       "  every reference digest matches: the signature value check failed\n");

  // --log puts the verifier's whole log on standard error.
  r = runExample("verify_invoice", "--log " + quote(tamperedPath));
  EXPECT_NE(r.err.find("calculatedDigest: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("refFailureCount: 1"), std::string::npos) << r.err;

  r = runExample("verify_invoice", quote(clirun::example("make-examples.sh")));
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_FALSE(r.err.empty());
}

TEST(Examples, VerifyTrustedAcceptsOnlyTheTrustedSigner) {
  REQUIRE_API_INPUTS();
  const ApiInputs& in = ApiInputs::instance();
  const std::string invoice = quote(clirun::example("invoice-signed.xml"));

  RunResult r = runExample("verify_trusted", invoice + " " + quote(clirun::example("signer-cert.pem")));
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(r.out.find(": valid, signed with the trusted key "), std::string::npos) << r.out;

  // Intact, but the certificate it carries is not the one the caller trusts.
  r = runExample("verify_trusted", invoice + " " + in.path("other-cert.pem"));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find(": NOT TRUSTED: the signature is intact"), std::string::npos) << r.out;

  // KeyInfo names the certificate by issuer and serial: found in the vault, among others.
  r = runExample("verify_trusted", in.path("invoice-issuer-serial.xml") + " " + in.path("other-cert.pem") + " " +
                                       in.path("signer-cert.pem"));
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("signer-cert.pem"), std::string::npos) << r.out;
  r = runExample("verify_trusted", in.path("invoice-issuer-serial.xml") + " " + in.path("other-cert.pem"));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("INVALID (RSA verify hash found the signature to be invalid.)"), std::string::npos) << r.out;
}

TEST(Examples, VerifyDetachedTakesTheDataFromAFileMemoryOrADirectory) {
  REQUIRE_API_INPUTS();
  const ApiInputs& in = ApiInputs::instance();
  const std::string sig = in.path("statement-signature.xml");
  const std::string intact = "reference 0: URI \"statement.txt\" (external): digest matches\n";

  RunResult r = runExample("verify_detached", sig + " --dir /nonexistent --dir " + in.path(""));
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(r.out.rfind(intact, 0), 0u) << r.out;
  r = runExample("verify_detached", sig + " 0=" + in.path("statement.txt"));
  EXPECT_EQ(r.exitCode, 0) << r.out;
  r = runExample("verify_detached", sig + " 0=- < " + in.path("statement.txt"));
  EXPECT_EQ(r.exitCode, 0) << r.out;

  r = runExample("verify_detached", sig + " 0=- < " + in.path("other-cert.pem"));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("(external): FAILED, RefFailReason 1\n"), std::string::npos) << r.out;

  r = runExample("verify_detached", sig);  // no data given
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("(external): FAILED, RefFailReason 2\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(": INVALID (Failed to verify reference digest)"), std::string::npos) << r.out;
}

TEST(Examples, CanonicalizeFragmentInclusiveAndExclusive) {
  const TempDir dir("c14n-example");
  const std::string file = dir.path + "/envelope.xml";
  ASSERT_TRUE(testsupport::writeFile(
      file,
      "<?xml version=\"1.0\"?>\n"
      "<env:Envelope xmlns:env=\"urn:envelope\" xmlns:inv=\"urn:invoice\" xmlns:unused=\"urn:unused\">\n"
      "  <env:Body>\n"
      "    <inv:Invoice Id=\"inv-1\" b=\"2\"   a=\"1\"><!-- note --><inv:Total currency=\"EUR\">10.00</inv:Total>"
      "<inv:Empty/></inv:Invoice>\n"
      "  </env:Body>\n"
      "</env:Envelope>\n"));
  const std::string content =
      " Id=\"inv-1\" a=\"1\" b=\"2\"><inv:Total currency=\"EUR\">10.00</inv:Total><inv:Empty></inv:Empty>"
      "</inv:Invoice>\n";
  const std::string inclusive =
      "inclusive:\n<inv:Invoice xmlns:env=\"urn:envelope\" xmlns:inv=\"urn:invoice\" xmlns:unused=\"urn:unused\"" +
      content;

  RunResult r = runExample("canonicalize_fragment", quote(file) + " inv-1");
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, inclusive + "exclusive:\n<inv:Invoice xmlns:inv=\"urn:invoice\"" + content);

  // The prefix list brings named namespaces back into the exclusive form, in prefix order.
  r = runExample("canonicalize_fragment", quote(file) + " inv-1 'unused env'");
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, inclusive +
                       "exclusive:\n<inv:Invoice xmlns:env=\"urn:envelope\" xmlns:inv=\"urn:invoice\" "
                       "xmlns:unused=\"urn:unused\"" +
                       content);

  r = runExample("canonicalize_fragment", quote(file) + " inv-2");
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("inv-2"), std::string::npos) << r.err;
}

TEST(Examples, TimestampSignatureStampsAndVerifies) {
  REQUIRE_API_INPUTS();
  REQUIRE_TIMESTAMP_AUTHORITY();
  const ApiInputs& in = ApiInputs::instance();
  const std::string url = testsupport::TimeStampAuthority::instance().url();
  const TempDir dir("ts-example");
  const std::string out = dir.path + "/stamped.xml";

  RunResult r = runExample("timestamp_signature",
                           in.path("invoice-for-timestamp.xml") + " " + quote(url) + " " + quote(out) + " sha384");
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(r.out, out + ": time-stamped and verified\n");
  EXPECT_NE(testsupport::readFile(out).find("<xades:EncapsulatedTimeStamp Encoding="), std::string::npos);

  // A second stamp is refused; a signature whose SignatureValue has no Id cannot take one.
  r = runExample("timestamp_signature", quote(out) + " " + quote(url) + " " + quote(out + ".2"));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("no time-stamp added (Already has an EncapsulatedTimeStamp.)"), std::string::npos) << r.out;
  r = runExample("timestamp_signature",
                 quote(clirun::example("invoice-signed.xml")) + " " + quote(url) + " " + quote(out));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("(No SignatureValue Id attribute found.)"), std::string::npos) << r.out;

  // No authority at the address: the document comes back with an empty token.
  r = runExample("timestamp_signature", in.path("invoice-for-timestamp.xml") + " http://127.0.0.1:1/ " + quote(out));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out, out +
                       ": no token from the authority (The time-stamp authority could not be reached or refused "
                       "the request.)\n");
  EXPECT_NE(testsupport::readFile(out).find("#DER\"></xades:EncapsulatedTimeStamp>"), std::string::npos);
}
