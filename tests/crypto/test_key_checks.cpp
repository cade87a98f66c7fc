// Public keys with degenerate values (tests/crypto/data/public-keys.tsv) are refused with
// the reason logged, whether they arrive as key values or as DER (a certificate's or a
// caller's key), and genuine keys stay usable.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>

#include <cctype>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "crypto/OsslPtr.h"
#include "crypto/_btPublicKey.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

using Values = std::map<std::string, ossl::BnPtr>;

struct KeyCase {
  int line = 0;
  std::string kind, values, expected;
};

std::vector<KeyCase> readCases() {
  std::ifstream in(testsupport::sourceDir() + "/tests/crypto/data/public-keys.tsv");
  std::vector<KeyCase> cases;
  std::string text;
  for (int line = 1; std::getline(in, text); ++line) {
    if (text.empty() || text[0] == '#') continue;
    std::istringstream fields(text);
    KeyCase c;
    c.line = line;
    std::getline(fields, c.kind, '\t');
    std::getline(fields, c.values, '\t');
    std::getline(fields, c.expected);
    cases.push_back(c);
  }
  return cases;
}

// "0xHEX", "123", or "name", "name+N", "name-N" over the base values.
ossl::BnPtr evaluate(const std::string& expr, const Values& base) {
  BIGNUM* raw = nullptr;
  if (expr.compare(0, 2, "0x") == 0) {
    BN_hex2bn(&raw, expr.c_str() + 2);
    return ossl::BnPtr(raw);
  }
  if (std::isdigit(static_cast<unsigned char>(expr[0]))) {
    BN_dec2bn(&raw, expr.c_str());
    return ossl::BnPtr(raw);
  }
  const size_t op = expr.find_first_of("+-");
  const auto it = base.find(expr.substr(0, op));
  if (it == base.end()) return nullptr;
  ossl::BnPtr v(BN_dup(it->second.get()));
  if (op != std::string::npos) {
    const unsigned long n = std::stoul(expr.substr(op + 1));
    expr[op] == '+' ? BN_add_word(v.get(), n) : BN_sub_word(v.get(), n);
  }
  return v;
}

// The base values with the case's assignments applied; "curve" is kept as text.
bool applyValues(const std::string& assignments, const Values& base, Values& out, std::string& curve) {
  for (const auto& [name, v] : base) out[name].reset(BN_dup(v.get()));
  std::istringstream in(assignments);
  for (std::string a; in >> a;) {
    if (a == "-") continue;
    const size_t eq = a.find('=');
    if (eq == std::string::npos) return false;
    if (a.compare(0, eq, "curve") == 0) {
      curve = a.substr(eq + 1);
      continue;
    }
    ossl::BnPtr v = evaluate(a.substr(eq + 1), base);
    if (!v) return false;
    out[a.substr(0, eq)] = std::move(v);
  }
  return true;
}

DataBuffer bytesOf(const BIGNUM* bn) {
  DataBuffer out;
  out.resize(static_cast<size_t>(BN_num_bytes(bn)));
  if (out.getSize()) BN_bn2bin(bn, out.getDataRw());
  return out;
}

bool load(_btPublicKey& key, const std::string& kind, Values& v, const std::string& curve, LogBase& log) {
  if (kind == "rsa") return key.loadRsa(bytesOf(v["n"].get()), bytesOf(v["e"].get()), log);
  if (kind == "dsa")
    return key.loadDsa(bytesOf(v["p"].get()), bytesOf(v["q"].get()), bytesOf(v["g"].get()), bytesOf(v["y"].get()), log);
  return key.loadEcXY(curve.c_str(), bytesOf(v["x"].get()), bytesOf(v["y"].get()), log);
}

// The same values as SubjectPublicKeyInfo DER, made by OpenSSL without any check of ours;
// empty when OpenSSL itself will not build such a key.
DataBuffer spkiOf(const std::string& kind, Values& v) {
  using ParamBldPtr = std::unique_ptr<OSSL_PARAM_BLD, ossl::Deleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
  using ParamPtr = std::unique_ptr<OSSL_PARAM, ossl::Deleter<OSSL_PARAM, OSSL_PARAM_free>>;
  ParamBldPtr bld(OSSL_PARAM_BLD_new());
  const char* type = kind == "rsa" ? "RSA" : "DSA";
  if (kind == "rsa") {
    OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_N, v["n"].get());
    OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_E, v["e"].get());
  } else if (kind == "dsa") {
    OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_FFC_P, v["p"].get());
    OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_FFC_Q, v["q"].get());
    OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_FFC_G, v["g"].get());
    OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, v["y"].get());
  } else {
    return DataBuffer();
  }
  ParamPtr params(OSSL_PARAM_BLD_to_param(bld.get()));
  ossl::PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
  EVP_PKEY* raw = nullptr;
  DataBuffer der;
  if (params && ctx && EVP_PKEY_fromdata_init(ctx.get()) == 1 &&
      EVP_PKEY_fromdata(ctx.get(), &raw, EVP_PKEY_PUBLIC_KEY, params.get()) == 1) {
    ossl::PkeyPtr pkey(raw);
    unsigned char* out = nullptr;
    const int n = i2d_PUBKEY(pkey.get(), &out);
    if (n > 0) der.append(out, static_cast<size_t>(n));
    OPENSSL_free(out);
  }
  ossl::clearErrors();
  return der;
}

bool loggedError(const _btLogger& log, const std::string& text) {
  for (const LogEntry& e : log.entries())
    if (e.kind == LogEntry::Kind::Error && e.text == text) return true;
  return false;
}

}  // namespace

TEST(KeyChecks, DegenerateKeysAreRefusedWithTheirReason) {
  const std::vector<KeyCase> cases = readCases();
  ASSERT_GT(cases.size(), 20u);
  std::map<std::string, Values> bases;
  std::map<std::string, std::string> baseCurves;
  int refusedAsDer = 0;
  for (const KeyCase& c : cases) {
    SCOPED_TRACE("public-keys.tsv line " + std::to_string(c.line) + ": " + c.kind + " " + c.values);
    if (c.kind == "base") {
      // "base <kind> <values>": the genuine key the cases of that kind change.
      ASSERT_TRUE(applyValues(c.expected, {}, bases[c.values], baseCurves[c.values]));
      continue;
    }
    ASSERT_EQ(bases.count(c.kind), 1u) << "no base key for " << c.kind;
    Values values;
    std::string curve = baseCurves[c.kind];
    ASSERT_TRUE(applyValues(c.values, bases[c.kind], values, curve));

    _btLogger log;
    _btPublicKey key;
    const bool usable = c.expected == "usable";
    EXPECT_EQ(load(key, c.kind, values, curve, log), usable) << log.renderText();
    EXPECT_EQ(key.isEmpty(), !usable);
    if (!usable) {
      EXPECT_TRUE(loggedError(log, c.expected)) << log.renderText();
    }

    // The same key as DER, the form certificates and callers' key files take.
    const DataBuffer der = spkiOf(c.kind, values);
    if (der.isEmpty()) continue;
    _btLogger derLog;
    _btPublicKey derKey;
    EXPECT_EQ(derKey.loadAnyDer(der, derLog), usable) << derLog.renderText();
    if (!usable) {
      EXPECT_TRUE(loggedError(derLog, c.expected)) << derLog.renderText();
      ++refusedAsDer;
    }
  }
  EXPECT_GT(refusedAsDer, 10);
}
