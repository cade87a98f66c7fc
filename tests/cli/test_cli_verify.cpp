// `xmldsig verify` as a user runs it: verdict lines and exit codes, JSON lines, choosing
// signatures, keys, HMAC secrets, external data, document-family options, standard input,
// parallel files and the per-reference report. Documents are the bundled examples, the
// corpus, and fixtures signed by xmlsec1 and openssl at test time.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "CliRun.h"
#include "TestSupport.h"
#include "dsig/SignedFixtures.h"

using nlohmann::json;

namespace {

using clirun::quote;
using clirun::RunResult;

using signedfixtures::fixtures;

// Runs `xmldsig verify ARGS` through the shell (so ARGS may redirect standard input).
RunResult verify(const std::string& args) { return clirun::xmldsig("verify " + args); }

using clirun::example;
using clirun::outputLines;
std::string fx(const char* name) { return fixtures().path(name); }
std::string corpus(const std::string& rel) { return testsupport::corpusDir() + "/" + rel; }

// A fixture with one substring replaced, written to the scratch directory.
std::string tamperedCopy(const char* name, const std::string& from, const std::string& to) {
  const std::string out = fixtures().scratch(std::string("tampered-") + name);
  testsupport::writeFile(out, signedfixtures::replaced(testsupport::readFile(fx(name)), from, to));
  return out;
}

const char* const kZatcaInvoice = "families/zatca/zatca-sdk348-simplified_invoice/Simplified_Invoice.xml";
const char* const kTwoSignatures = "families/tsl/tsl-dss-cz_two-sigs/CZ_two-sigs.xml";

// The verdict lines without the signer each valid one names (", signer SUBJECT").
std::string withoutSigner(const std::string& out) {
  return std::regex_replace(out, std::regex("(: valid[^\n]*?), signer [^\n]*"), "$1");
}

}  // namespace

TEST(CliVerify, VerdictLinesAndExitStatus) {
  REQUIRE_FIXTURES();
  const std::string signedInvoice = example("invoice-signed.xml");
  const std::string tamperedInvoice = example("invoice-tampered.xml");

  RunResult r = verify(quote(signedInvoice));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, signedInvoice + ": valid, signer CN=Example Invoice Signer, O=Example Seller GmbH, C=DE\n");

  r = verify(quote(signedInvoice) + " " + quote(tamperedInvoice));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(withoutSigner(r.out),
            signedInvoice + ": valid\n" + tamperedInvoice +
                ": INVALID (digest mismatch in reference 0 (URI \"\"): the data it covers was changed)\n");

  // The signature value alone is intact in a document whose signed content changed.
  const std::string tampered = tamperedCopy("two-refs.xml", "<Item>beta</Item>", "<Item>gamma</Item>");
  EXPECT_EQ(verify(quote(tampered)).exitCode, 1);
  r = verify("--no-references " + quote(tampered));
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(withoutSigner(r.out), tampered + ": valid (signature value only; references not checked)\n");

  // Inputs that cannot be read or parsed, and usage errors, exit with 2.
  const std::string notXml = fixtures().scratch("not-xml.xml");
  testsupport::writeFile(notXml, "this is not <xml");
  for (const std::string& args :
       {quote(fixtures().scratch("missing.xml")), quote(notXml), quote(signedInvoice) + " " + quote(notXml),
        "--bogus " + quote(signedInvoice), "--selector x " + quote(signedInvoice), std::string(""),
        "--selector 1 --all " + quote(signedInvoice), "--jobs 0 " + quote(signedInvoice)}) {
    SCOPED_TRACE(args);
    r = verify(args);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_FALSE(r.err.empty());
  }
  r = verify(quote(notXml));
  EXPECT_NE(r.err.find("xmldsig verify: " + notXml + ": "), std::string::npos) << r.err;
}

TEST(CliVerify, JsonLines) {
  REQUIRE_FIXTURES();
  const std::string missing = fixtures().scratch("missing.xml");
  RunResult r = verify("--json " + quote(example("invoice-signed.xml")) + " " + quote(example("invoice-tampered.xml")) +
                       " " + quote(missing));
  EXPECT_EQ(r.exitCode, 2);
  const std::vector<std::string> lines = outputLines(r.out);
  ASSERT_EQ(lines.size(), 3u) << r.out;
  const json valid = json::parse(lines[0]);
  const json invalid = json::parse(lines[1]);
  const json unread = json::parse(lines[2]);
  for (const json* j : {&valid, &invalid}) {
    for (const char* key : {"file", "signature", "id", "valid", "refFailReason"})
      EXPECT_TRUE(j->contains(key)) << key << " in " << j->dump();
    EXPECT_EQ((*j)["signature"], 0);
    EXPECT_FALSE(j->contains("log"));
  }
  EXPECT_EQ(valid["file"], example("invoice-signed.xml"));
  EXPECT_EQ(valid["valid"], true);
  EXPECT_EQ(valid["refFailReason"], 0);
  EXPECT_EQ(invalid["valid"], false);
  EXPECT_EQ(invalid["refFailReason"], 1);
  EXPECT_EQ(unread["file"], missing);
  EXPECT_TRUE(unread.contains("error"));
  EXPECT_FALSE(unread.contains("valid"));

  r = verify("--json --log " + quote(fx("two-refs.xml")));
  EXPECT_EQ(r.exitCode, 0);
  const json withLog = json::parse(r.out);
  EXPECT_EQ(withLog["id"], "sig-two");
  // The verifier's structured log, not its text rendering.
  ASSERT_TRUE(withLog["log"].is_object()) << withLog["log"];
  EXPECT_TRUE(withLog["log"]["entries"].is_array());
  EXPECT_NE(withLog["log"].dump().find("VerifySignature"), std::string::npos);
}

TEST(CliVerify, ChoosingSignatures) {
  REQUIRE_CORPUS();
  const std::string file = corpus(kTwoSignatures);
  // Two parallel signatures separated by a line break: the first cuts the second.
  RunResult r = verify("--all " + quote(file));
  EXPECT_EQ(r.exitCode, 0);
  const std::vector<std::string> lines = outputLines(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;
  EXPECT_EQ(withoutSigner(lines[0]), file + "#0: valid");
  EXPECT_EQ(withoutSigner(lines[1]), file + "#1: valid");

  r = verify("--selector 1 " + quote(file));
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(withoutSigner(r.out), file + "#1: valid\n");
  r = verify("--signature-id id-9ea5ec688d9c6e55922c6a9821235c2e " + quote(file));
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(withoutSigner(r.out), file + "#1: valid\n");
  r = verify("--json --signature-id Signature-1217271300 " + quote(file));
  EXPECT_EQ(json::parse(r.out)["signature"], 0);

  EXPECT_EQ(verify("--signature-id no-such-id " + quote(file)).exitCode, 2);
  EXPECT_EQ(verify("--selector 7 " + quote(file)).exitCode, 2);
}

TEST(CliVerify, KeysSecretsExternalDataAndOptions) {
  REQUIRE_FIXTURES();
  struct Case {
    std::string args;
    std::string verdict;  // what follows "FILE: "
  };
  const std::string pkcs1 = quote(fx("pkcs1.xml"));
  const std::string hmac = quote(fx("hmac.xml"));
  const std::string external = quote(fx("external.xml"));
  // The HMAC value with white space around it, which is trimmed before the comparison.
  const std::string spacedHmac = fixtures().scratch("spaced-hmac.xml");
  testsupport::writeFile(
      spacedHmac, signedfixtures::replaced(signedfixtures::replaced(testsupport::readFile(fx("hmac.xml")),
                                                                    "<ds:SignatureValue>", "<ds:SignatureValue>\n    "),
                                           "</ds:SignatureValue>", "  \n  </ds:SignatureValue>"));
  for (const Case& c : {
           Case{pkcs1,
                "INVALID (no key found: KeyInfo yields none (give --key FILE, or --cert/--cert-dir for the "
                "certificate it names))"},
           Case{"--key " + quote(fx("rsa-pub.pem")) + " " + pkcs1, "valid"},
           Case{"--key " + quote(fx("cert.pem")) + " " + pkcs1, "valid"},
           Case{"--hmac-key secret " + hmac, "valid"},
           Case{"--hmac-key 736563726574 --hmac-encoding hex " + hmac, "valid"},
           Case{"--hmac-key secret " + quote(spacedHmac), "valid"},
           Case{"--hmac-key Secret " + hmac,
                "INVALID (wrong key: the HMAC secret given does not verify the signature value)"},
           Case{hmac, "INVALID (no key: an HMAC signature needs its secret (--hmac-key))"},
           Case{external,
                "INVALID (external data missing for reference 0 (URI \"payload.txt\"); give it with --ref-data "
                "0=FILE or --external-dir DIR)"},
           Case{"--ref-data 0=" + quote(fx("payload.txt")) + " " + external, "valid"},
           Case{"--external-dir " + quote(fixtures().scratch("")) + " --external-dir " + quote(fx("")) + " " + external,
                "valid"},
           Case{"--ignore-external " + external, "valid (reference 0 not checked: no external data)"},
           // Ignoring covers only missing data: data that does not match still fails.
           Case{"--ignore-external --ref-data 0=" + quote(fx("hmac.xml")) + " " + external,
                "INVALID (digest mismatch in reference 0 (URI \"payload.txt\"): the data it covers was changed)"},
       }) {
    SCOPED_TRACE(c.args);
    const RunResult r = verify(c.args);
    const std::string file = c.args.substr(c.args.rfind(' ') + 1);
    EXPECT_EQ(withoutSigner(r.out), file.substr(1, file.size() - 2) + ": " + c.verdict + "\n") << r.err;
    EXPECT_EQ(r.exitCode, c.verdict.rfind("valid", 0) == 0 ? 0 : 1);
  }
  EXPECT_EQ(verify("--key " + quote(fixtures().scratch("no-key.pem")) + " " + pkcs1).exitCode, 2);
  EXPECT_EQ(verify("--ref-data zero=x " + external).exitCode, 2);

  if (testsupport::corpusDir().empty()) GTEST_SKIP() << "ZATCA invoice: shared corpus not found";
  const std::string invoice = corpus(kZatcaInvoice);
  // Only the option says how the signature value is computed when no reference is checked.
  RunResult r = verify("--option zatca --no-references " + quote(invoice));
  EXPECT_EQ(withoutSigner(r.out), invoice + ": valid (signature value only; references not checked)\n");
  EXPECT_TRUE(r.err.empty()) << r.err;  // the option matches the document's family
  r = verify("--no-references " + quote(invoice));
  EXPECT_EQ(r.out, invoice +
                       ": INVALID (wrong key: the signature value does not verify with the key tried (or "
                       "SignedInfo was changed))\n");
  EXPECT_EQ(r.exitCode, 1);
  // With the references checked, the SignedProperties digest in the ZATCA form switches to those rules.
  EXPECT_EQ(withoutSigner(verify(quote(invoice)).out), invoice + ": valid\n");
}

TEST(CliVerify, StandardInputAndParallelFilesInInputOrder) {
  REQUIRE_FIXTURES();
  RunResult r = verify("- < " + quote(example("invoice-signed.xml")));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(withoutSigner(r.out), "-: valid\n");
  r = verify("- < " + quote(example("invoice-tampered.xml")));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out.rfind("-: INVALID (", 0), 0u) << r.out;

  // Files of different sizes and verdicts, so that threads finish out of order.
  const std::vector<std::string> files = {fx("two-refs.xml"),  example("invoice-tampered.xml"), fx("hmac.xml"),
                                          fx("two-no-id.xml"), example("invoice-signed.xml"),   fx("external.xml"),
                                          fx("pss.xml"),       example("invoice-signed.xml")};
  std::string args = "--jobs 2 --key " + quote(fx("rsa-pub.pem")) + " --hmac-key secret";
  for (const std::string& f : files) args += " " + quote(f);
  r = verify(args);
  EXPECT_EQ(r.exitCode, 1);
  const std::vector<std::string> lines = outputLines(r.out);
  ASSERT_EQ(lines.size(), files.size()) << r.out;
  size_t i = 0;
  for (const std::string& f : files) {
    if (f == fx("two-no-id.xml")) {  // two signatures: the first is verified, numbered
      EXPECT_EQ(lines[i++], f + "#0: valid");
      continue;
    }
    const bool valid = f != example("invoice-tampered.xml") && f != fx("external.xml");
    EXPECT_EQ(lines[i++].rfind(f + (valid ? ": valid" : ": INVALID ("), 0), 0u) << lines[i - 1];
  }
}

TEST(CliVerify, ReferencesOnlyPrintsEachReference) {
  REQUIRE_FIXTURES();
  const std::string tampered = tamperedCopy("two-refs.xml", "<Item>beta</Item>", "<Item>gamma</Item>");
  const std::string original = testsupport::readFile(fx("two-refs.xml"));
  const size_t second = original.find("<ds:DigestValue>", original.find("URI=\"#obj-b\"")) + 16;
  const std::string storedB = original.substr(second, original.find('<', second) - second);

  RunResult r = verify("--references-only " + quote(tampered));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find(tampered + ": signature 0 (Id \"sig-two\"), 2 references: NOT all valid\n"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("  reference 0: URI \"#obj-a\": valid\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  reference 1: URI \"#obj-b\": INVALID, RefFailReason 1 (digest mismatch)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("    stored:     " + storedB + "\n"), std::string::npos) << r.out;

  r = verify("--references-only --json " + quote(tampered));
  const json j = json::parse(r.out);
  ASSERT_EQ(j["references"].size(), 2u);
  EXPECT_EQ(j["references"][1]["refFailReason"], 1);
  EXPECT_EQ(j["references"][1]["storedDigest"], storedB);
  EXPECT_NE(j["references"][1]["calculatedDigest"], storedB);
  EXPECT_EQ(j["references"][0]["calculatedDigest"], j["references"][0]["storedDigest"]);

  // External data missing: reason 2; skipped with --ignore-external.
  r = verify("--references-only " + quote(fx("external.xml")));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("RefFailReason 2 (external data missing or unreadable)"), std::string::npos) << r.out;
  r = verify("--references-only --ignore-external " + quote(fx("external.xml")));
  EXPECT_EQ(r.exitCode, 0) << r.out;
  EXPECT_NE(r.out.find("skipped (no external data)"), std::string::npos) << r.out;
}
