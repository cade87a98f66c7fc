// HMAC signature values of a document xmlsec1 signed (hmac.xml, HMAC-SHA256, secret
// "secret"): the value is compared as bytes, so white space anywhere in its base64 is
// ignored, and only the whole HMAC output is accepted.
#include <gtest/gtest.h>

#include <string>

#include "KeyTestFixtures.h"
#include "SignedFixtures.h"
#include "VerifierTestUtil.h"
#include "support/XString.h"

namespace {

using signedfixtures::fixtures;
using signedfixtures::replaced;

std::string signatureValueOf(const std::string& xml) {
  const size_t start = xml.find('>', xml.find("<ds:SignatureValue")) + 1;
  return xml.substr(start, xml.find("</ds:SignatureValue>") - start);
}

}  // namespace

TEST(HmacValues, WholeOutputComparedAsBytes) {
  REQUIRE_FIXTURES();
  const std::string genuine = fixtures().text("hmac.xml");
  const std::string value = signatureValueOf(genuine);
  const std::string mac = keyfixtures::unbase64(value);
  ASSERT_EQ(mac.size(), 32u);
  std::string flipped = mac;
  flipped[31] = static_cast<char>(flipped[31] ^ 1);

  const struct {
    const char* what;
    std::string value;
    bool valid;
  } cases[] = {
      {"as signed", value, true},
      {"wrapped and indented", "\n  " + value.substr(0, 20) + "\r\n  " + value.substr(20) + "\n", true},
      {"spaces inside", value.substr(0, 8) + " \t " + value.substr(8), true},
      {"first 16 bytes", dsigtest::base64(mac.substr(0, 16)), false},
      {"first 31 bytes", dsigtest::base64(mac.substr(0, 31)), false},
      {"one byte more", dsigtest::base64(mac + '\0'), false},
      {"last bit changed", dsigtest::base64(flipped), false},
      {"empty", "", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    dsigtest::DSigPtr d = dsigtest::newVerifier();
    ASSERT_TRUE(dsigtest::loadText(*d, replaced(genuine, ">" + value + "<", ">" + c.value + "<")));
    XString key("secret"), encoding("ascii");
    ASSERT_TRUE(d->SetHmacKey(key, encoding));
    EXPECT_EQ(d->VerifySignature(true), c.valid) << d->lastErrorText();
    if (!c.valid && !c.value.empty()) {
      EXPECT_EQ(d->lastErrorLine(), "HMAC validation failed.");
    }
  }
}
