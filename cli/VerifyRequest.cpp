#include "cli/VerifyRequest.h"

#include <cstdlib>

#include "cli/UncommonOptions.h"
#include "crypto/CertSummary.h"

namespace cli {

namespace {

using Values = std::vector<std::string>;
// Stores the values of one option (at least one; the last for a non-repeatable option).
using Apply = bool (*)(VerifyRequest&, const Values&, std::string& error);

bool parseIndex(const std::string& text, long max, long& out) {
  char* end = nullptr;
  out = std::strtol(text.c_str(), &end, 10);
  return !text.empty() && *end == '\0' && out >= 0 && out <= max;
}

bool applySelector(VerifyRequest& r, const Values& v, std::string& error) {
  long n = 0;
  if (!parseIndex(v.back(), 1L << 30, n)) {
    error = "--selector expects a signature index (0 or more), not '" + v.back() + "'";
    return false;
  }
  r.selector = static_cast<int>(n);
  return true;
}

bool applyRefData(VerifyRequest& r, const Values& v, std::string& error) {
  for (const std::string& pair : v) {
    const size_t eq = pair.find('=');
    long index = -1;
    if (eq == std::string::npos || !parseIndex(pair.substr(0, eq), 100, index) || eq + 1 == pair.size()) {
      error = "--ref-data expects INDEX=FILE with INDEX from 0 to 100, not '" + pair + "'";
      return false;
    }
    r.refData[static_cast<int>(index)] = pair.substr(eq + 1);
  }
  return true;
}

bool applyLimits(VerifyRequest& r, const Values& v, std::string& error) {
  for (const std::string& pair : v) {
    const size_t eq = pair.find('=');
    const std::string name = pair.substr(0, eq);
    long n = 0;
    if (eq == std::string::npos || !parseIndex(pair.substr(eq + 1), (1L << 31) - 1, n) || n == 0) {
      error = "--limit expects NAME=N with N from 1, not '" + pair + "'";
      return false;
    }
    if (name == "references") {
      r.maxReferences = static_cast<int>(n);
    } else if (name == "transforms") {
      r.maxTransforms = static_cast<int>(n);
    } else if (name == "canonical-bytes") {
      r.maxCanonicalBytes = n;
    } else {
      error = "--limit knows references, transforms and canonical-bytes, not '" + name + "'";
      return false;
    }
  }
  return true;
}

// --key FILE (one key for every signature) or --key NAME=FILE (a key for the signatures
// whose KeyName is NAME). A path with a '/' before its first '=' is a file, so a file whose
// name holds '=' can still be given as ./NAME.
bool applyKeys(VerifyRequest& r, const Values& v, std::string& error) {
  for (const std::string& value : v) {
    const size_t eq = value.find('=');
    const bool named = eq != std::string::npos && eq > 0 && value.find('/') > eq;
    if (named) {
      if (eq + 1 == value.size()) {
        error = "--key " + value + " names no file";
        return false;
      }
      r.namedKeys.emplace_back(value.substr(0, eq), value.substr(eq + 1));
    } else if (!r.keyFile.empty()) {
      error = "--key FILE given twice ('" + r.keyFile + "', '" + value +
              "'): one key serves every signature; name the others with --key NAME=FILE";
      return false;
    } else {
      r.keyFile = value;
    }
  }
  return true;
}

bool applyValidationTime(VerifyRequest& r, const Values& v, std::string& error) {
  long long unused = 0;
  if (!certsummary::parseUtcTime(v.back(), unused)) {
    error = "--at expects an ISO 8601 UTC time such as 2025-03-01T12:00:00Z, not '" + v.back() + "'";
    return false;
  }
  r.validationTime = v.back();
  return true;
}

struct Row {
  const char* option;  // long name of the OptionSpec
  Apply apply;
};

// clang-format off
const Row kRows[] = {
    {"selector", applySelector},
    {"signature-id", [](VerifyRequest& r, const Values& v, std::string&) { r.signatureId = v.back(); return true; }},
    {"all", [](VerifyRequest& r, const Values&, std::string&) { r.all = true; return true; }},
    {"no-references", [](VerifyRequest& r, const Values&, std::string&) { r.noReferences = true; return true; }},
    {"key", applyKeys},
    {"hmac-key", [](VerifyRequest& r, const Values& v, std::string&) { r.hmacKey = v.back(); r.hasHmacKey = true; return true; }},
    {"hmac-encoding", [](VerifyRequest& r, const Values& v, std::string&) { r.hmacEncoding = v.back(); return true; }},
    {"cert", [](VerifyRequest& r, const Values& v, std::string&) { r.certFiles = v; return true; }},
    {"cert-dir", [](VerifyRequest& r, const Values& v, std::string&) { r.certDirs = v; return true; }},
    {"signer", [](VerifyRequest& r, const Values& v, std::string&) { r.signerFiles = v; return true; }},
    {"trust", [](VerifyRequest& r, const Values& v, std::string&) { r.trustPaths = v; return true; }},
    {"crl", [](VerifyRequest& r, const Values& v, std::string&) { r.crlFiles = v; return true; }},
    {"at", applyValidationTime},
    {"ref-data", applyRefData},
    {"external-dir", [](VerifyRequest& r, const Values& v, std::string&) { r.externalDirs = v; return true; }},
    {"ignore-external", [](VerifyRequest& r, const Values&, std::string&) { r.ignoreExternal = true; return true; }},
    {"limit", applyLimits},
    {"option", [](VerifyRequest& r, const Values& v, std::string& e) { return normalizeKeywords(v, r.options, e); }},
    {"verbose", [](VerifyRequest& r, const Values&, std::string&) { r.verbose = true; return true; }},
    {"log", [](VerifyRequest& r, const Values&, std::string&) { r.log = true; return true; }},
    {"report", [](VerifyRequest& r, const Values&, std::string&) { r.report = true; return true; }},
};
// clang-format on

}  // namespace

bool verifyRequestFromArgs(const Args& args, VerifyRequest& out, std::string& error) {
  for (const Row& row : kRows) {
    if (!args.has(row.option)) continue;
    Values values = args.values(row.option);
    if (values.empty()) values.push_back(std::string());  // a flag
    if (!row.apply(out, values, error)) return false;
  }
  return true;
}

}  // namespace cli
