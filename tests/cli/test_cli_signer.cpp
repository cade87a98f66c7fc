// The signer options of `xmldsig verify` (--signer, --trust, --crl, --at), the signer in
// its text and JSON output, and the certificates `xmldsig info` lists.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "CliRun.h"
#include "dsig/SignedFixtures.h"

namespace {

using clirun::quote;
using nlohmann::json;
using trustfixtures::fixtures;

std::string fx(const char* name) { return quote(fixtures().path(name)); }

}  // namespace

TEST(CliSigner, TextAndJsonNameTheSignerAndTheChain) {
  REQUIRE_TRUST_FIXTURES();
  const std::string doc = fixtures().path("trusted.xml");
  clirun::RunResult r = clirun::xmldsig("verify " + quote(doc));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, doc + ": valid, signer CN=Signer leaf, O=xmldsig tests\n");

  r = clirun::xmldsig("verify --json --trust " + fx("root.pem") + " " + quote(doc));
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  const json j = json::parse(r.out);
  EXPECT_EQ(j["signer"]["source"], "X509Certificate");
  EXPECT_EQ(j["signer"]["subject"], "CN=Signer leaf, O=xmldsig tests");
  EXPECT_EQ(j["signer"]["issuer"], "CN=Trust Fixture Issuing CA, O=xmldsig tests");
  EXPECT_EQ(j["signer"]["sha256"].get<std::string>().size(), 64u);
  EXPECT_EQ(j["trust"]["checked"], true);
  EXPECT_EQ(j["trust"]["trusted"], true);
  EXPECT_EQ(j["trust"]["chain"].size(), 3u);
  EXPECT_EQ(j["trust"]["chain"][2], "CN=Trust Fixture Root, O=xmldsig tests");
  EXPECT_EQ(j["trust"]["validationTimeSource"], "now");
  r = clirun::xmldsig("verify --json --trust " + fx("root.pem") + " --at 2020-01-15T10:00:00Z " + fx("expired.xml"));
  const json past = json::parse(r.out);
  EXPECT_EQ(past["trust"]["trusted"], true) << r.out;
  EXPECT_EQ(past["trust"]["validationTime"], "2020-01-15T10:00:00Z");
  EXPECT_EQ(past["trust"]["validationTimeSource"], "caller");

  // The attacker's EC key made the signature: reported as the signer, without a certificate.
  r = clirun::xmldsig("verify --json " + fx("forged-ec.xml"));
  const json forged = json::parse(r.out);
  EXPECT_EQ(forged["signer"], json({{"source", "KeyValue"}}));
  EXPECT_EQ(forged["trust"]["checked"], false);
}

TEST(CliSigner, PinningAndTrustOptionsDecideTheVerdict) {
  REQUIRE_TRUST_FIXTURES();
  const std::string doc = fx("trusted.xml");
  EXPECT_EQ(clirun::xmldsig("verify --signer " + fx("leaf.der") + " " + doc).exitCode, 0);
  clirun::RunResult r = clirun::xmldsig("verify --signer " + fx("attacker.pem") + " " + fx("forged-ec.xml"));
  EXPECT_EQ(r.exitCode, 1);
  r = clirun::xmldsig("verify --signer " + fx("leaf.pem") + " " + fx("forged-token.xml"));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("INVALID (No pinned signer key verifies the signature"), std::string::npos) << r.out;

  r = clirun::xmldsig("verify --trust " + fx("root.pem") + " --crl " + fx("inter.crl") + " " + fx("revoked.xml"));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.out.find("The signer is not trusted: certificate revoked (CN=Signer revoked"), std::string::npos)
      << r.out;
  r = clirun::xmldsig("verify --json --trust " + fx("root.pem") + " " + fx("expired.xml"));
  const json expired = json::parse(r.out);
  EXPECT_EQ(expired["valid"], false);
  EXPECT_EQ(expired["signer"]["subject"], "CN=Signer expired, O=xmldsig tests");
  EXPECT_EQ(expired["trust"]["validationTimeSource"], "now");
  EXPECT_NE(expired["trust"]["error"].get<std::string>().find("expired"), std::string::npos);

  // Files that cannot be used and a time that is not UTC are usage errors.
  EXPECT_EQ(clirun::xmldsig("verify --trust " + fx("trusted.xml") + " " + doc).exitCode, 2);
  EXPECT_EQ(clirun::xmldsig("verify --signer /nonexistent.pem " + doc).exitCode, 2);
  EXPECT_EQ(clirun::xmldsig("verify --at 2026-01-01T00:00:00+02:00 " + doc).exitCode, 2);
}

TEST(CliSigner, InfoListsTheCertificatesASignatureCarries) {
  REQUIRE_TRUST_FIXTURES();
  clirun::RunResult r = clirun::xmldsig("info " + fx("trusted.xml"));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("    certificate:       CN=Signer leaf, O=xmldsig tests\n"
                       "      issuer:          CN=Trust Fixture Issuing CA, O=xmldsig tests\n"),
            std::string::npos)
      << r.out;
  r = clirun::xmldsig("info --json " + fx("trusted.xml"));
  const json certs = json::parse(r.out)["signatures"][0]["certificates"];
  ASSERT_EQ(certs.size(), 2u) << r.out;
  EXPECT_EQ(certs[1]["subject"], "CN=Trust Fixture Issuing CA, O=xmldsig tests");
  EXPECT_EQ(certs[1]["notAfter"], "2036-12-31T00:00:00Z");
}
