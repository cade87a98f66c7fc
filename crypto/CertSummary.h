// The facts about a certificate that results report: subject and issuer names, serial
// number, validity period and fingerprint, in the text forms the results use.
#pragma once

#include <string>

#include <openssl/x509.h>

class DataBuffer;

namespace certsummary {

struct Summary {
  std::string subject;    // "CN=..., O=..., C=..." (most specific first)
  std::string issuer;     // same form
  std::string serial;     // decimal, as documents write serial numbers
  std::string notBefore;  // ISO 8601 UTC, "2025-01-31T12:00:00Z"
  std::string notAfter;
  std::string sha256;  // lower-case hex of the SHA-256 of the DER
};

// A name as "CN=..., O=..., C=..." (UTF-8, most specific component first).
std::string nameText(const X509_NAME* name);
// An ASN.1 time as ISO 8601 UTC; "" when it cannot be read.
std::string timeText(const ASN1_TIME* time);
// Seconds since 1970 as ISO 8601 UTC.
std::string timeText(long long secondsSinceEpoch);
// ISO 8601 UTC ("2025-01-31T12:00:00Z"; the date alone means midnight; fractions are
// ignored) or ASN.1 GeneralizedTime ("20250131120000Z") into seconds since 1970.
bool parseUtcTime(const std::string& text, long long& secondsSinceEpoch);

Summary summarize(X509* cert);
// False when the DER is not exactly one certificate.
bool summarize(const DataBuffer& der, Summary& out);

}  // namespace certsummary
