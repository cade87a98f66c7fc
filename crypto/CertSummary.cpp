#include "crypto/CertSummary.h"

#include <cctype>
#include <cstdio>
#include <ctime>

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/evp.h>

#include "crypto/OsslPtr.h"
#include "support/DataBuffer.h"

namespace certsummary {

namespace {

std::string bioText(BIO* bio) {
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio, &data);
  return n > 0 && data ? std::string(data, static_cast<size_t>(n)) : std::string();
}

}  // namespace

std::string nameText(const X509_NAME* name) {
  ossl::BioPtr bio(BIO_new(BIO_s_mem()));
  if (!name || !bio) return std::string();
  const unsigned long flags = XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_DN_REV | XN_FLAG_FN_SN |
                              (ASN1_STRFLGS_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  X509_NAME_print_ex(bio.get(), name, 0, flags);
  return bioText(bio.get());
}

std::string timeText(long long secondsSinceEpoch) {
  const time_t t = static_cast<time_t>(secondsSinceEpoch);
  std::tm tm{};
  if (!gmtime_r(&t, &tm)) return std::string();
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

std::string timeText(const ASN1_TIME* time) {
  std::tm tm{};
  if (!time || ASN1_TIME_to_tm(time, &tm) != 1) return std::string();
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

bool parseUtcTime(const std::string& text, long long& secondsSinceEpoch) {
  // Keep the digits of date and time: YYYYMMDD[HHMM[SS]], with the separators ISO 8601
  // allows in between; anything after the seconds other than a fraction and "Z" is refused,
  // so a local time with an offset is not taken for UTC.
  std::string digits;
  size_t i = 0;
  for (; i < text.size() && digits.size() < 14; ++i) {
    const char c = text[i];
    if (std::isdigit(static_cast<unsigned char>(c))) {
      digits.push_back(c);
    } else if (!(c == '-' || c == ':' || ((c == 'T' || c == ' ') && digits.size() == 8))) {
      break;
    }
  }
  if (i < text.size() && text[i] == '.')
    for (++i; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]));) ++i;
  const std::string rest = text.substr(i);
  if (!(rest.empty() || rest == "Z") || (digits.size() != 8 && digits.size() != 12 && digits.size() != 14))
    return false;
  digits.resize(14, '0');
  std::tm tm{};
  tm.tm_year = std::stoi(digits.substr(0, 4)) - 1900;
  tm.tm_mon = std::stoi(digits.substr(4, 2)) - 1;
  tm.tm_mday = std::stoi(digits.substr(6, 2));
  tm.tm_hour = std::stoi(digits.substr(8, 2));
  tm.tm_min = std::stoi(digits.substr(10, 2));
  tm.tm_sec = std::stoi(digits.substr(12, 2));
  if (tm.tm_mon > 11 || tm.tm_mday < 1 || tm.tm_mday > 31 || tm.tm_hour > 23 || tm.tm_min > 59 || tm.tm_sec > 60)
    return false;
  secondsSinceEpoch = static_cast<long long>(timegm(&tm));
  return true;
}

Summary summarize(X509* cert) {
  Summary s;
  if (!cert) return s;
  s.subject = nameText(X509_get_subject_name(cert));
  s.issuer = nameText(X509_get_issuer_name(cert));
  ossl::BnPtr serial(ASN1_INTEGER_to_BN(X509_get0_serialNumber(cert), nullptr));
  if (char* dec = serial ? BN_bn2dec(serial.get()) : nullptr) {
    s.serial = dec;
    OPENSSL_free(dec);
  }
  s.notBefore = timeText(X509_get0_notBefore(cert));
  s.notAfter = timeText(X509_get0_notAfter(cert));
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (X509_digest(cert, EVP_sha256(), md, &n) == 1) {
    static const char kHex[] = "0123456789abcdef";
    for (unsigned int i = 0; i < n; ++i) {
      s.sha256.push_back(kHex[md[i] >> 4]);
      s.sha256.push_back(kHex[md[i] & 15]);
    }
  }
  ossl::clearErrors();
  return s;
}

bool summarize(const DataBuffer& der, Summary& out) {
  const unsigned char* p = der.getData2();
  ossl::X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(der.getSize())));
  ossl::clearErrors();
  if (!cert || p != der.getData2() + der.getSize()) return false;
  out = summarize(cert.get());
  return true;
}

}  // namespace certsummary
