#include "crypto/PublicKeyCheck.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>

#include "crypto/OsslPtr.h"

namespace keycheck {
namespace {

using BnCtxPtr = std::unique_ptr<BN_CTX, ossl::Deleter<BN_CTX, BN_CTX_free>>;

// Bounds that no genuine key comes near; they also keep the arithmetic below cheap.
constexpr int kMinModulusBits = 512;
constexpr int kMaxModulusBits = 16384;
constexpr int kMinSubgroupBits = 160;
constexpr int kMaxSubgroupBits = 512;

ossl::BnPtr param(EVP_PKEY* key, const char* name) {
  BIGNUM* raw = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &raw) != 1) return nullptr;
  return ossl::BnPtr(raw);
}

std::string rsaProblem(EVP_PKEY* key) {
  const ossl::BnPtr n = param(key, OSSL_PKEY_PARAM_RSA_N);
  const ossl::BnPtr e = param(key, OSSL_PKEY_PARAM_RSA_E);
  if (!n || !e) return "the RSA key has no modulus or no public exponent";
  const int bits = BN_num_bits(n.get());
  if (bits < kMinModulusBits || bits > kMaxModulusBits)
    return "the RSA modulus has " + std::to_string(bits) + " bits, outside " + std::to_string(kMinModulusBits) +
           " to " + std::to_string(kMaxModulusBits);
  if (!BN_is_odd(n.get())) return "the RSA modulus is even";
  if (BN_is_one(e.get())) return "the RSA public exponent is 1";
  if (!BN_is_odd(e.get())) return "the RSA public exponent is even";
  if (BN_cmp(e.get(), n.get()) >= 0) return "the RSA public exponent is not smaller than the modulus";
  return std::string();
}

// Whether 1 < v < p and v^q = 1 (mod p): v lies in the subgroup of order q.
bool inSubgroup(const BIGNUM* v, const BIGNUM* p, const BIGNUM* q, BN_CTX* ctx) {
  if (BN_cmp(v, BN_value_one()) <= 0 || BN_cmp(v, p) >= 0) return false;
  ossl::BnPtr r(BN_new());
  return r && BN_mod_exp(r.get(), v, q, p, ctx) == 1 && BN_is_one(r.get());
}

std::string dsaProblem(EVP_PKEY* key) {
  const ossl::BnPtr p = param(key, OSSL_PKEY_PARAM_FFC_P);
  const ossl::BnPtr q = param(key, OSSL_PKEY_PARAM_FFC_Q);
  const ossl::BnPtr g = param(key, OSSL_PKEY_PARAM_FFC_G);
  const ossl::BnPtr y = param(key, OSSL_PKEY_PARAM_PUB_KEY);
  if (!p || !q || !g || !y) return "the DSA key lacks one of P, Q, G and Y";
  const int pBits = BN_num_bits(p.get());
  const int qBits = BN_num_bits(q.get());
  if (pBits < kMinModulusBits || pBits > kMaxModulusBits)
    return "the DSA prime P has " + std::to_string(pBits) + " bits, outside " + std::to_string(kMinModulusBits) +
           " to " + std::to_string(kMaxModulusBits);
  if (qBits < kMinSubgroupBits || qBits > kMaxSubgroupBits || qBits >= pBits)
    return "the DSA subgroup order Q has " + std::to_string(qBits) + " bits, outside " +
           std::to_string(kMinSubgroupBits) + " to " + std::to_string(kMaxSubgroupBits);
  if (!BN_is_odd(p.get())) return "the DSA prime P is even";

  BnCtxPtr ctx(BN_CTX_new());
  ossl::BnPtr pMinusOne(BN_dup(p.get()));
  ossl::BnPtr rem(BN_new());
  if (!ctx || !pMinusOne || !rem || BN_sub_word(pMinusOne.get(), 1) != 1 ||
      BN_mod(rem.get(), pMinusOne.get(), q.get(), ctx.get()) != 1)
    return "the DSA key values cannot be checked";
  if (!BN_is_zero(rem.get())) return "the DSA subgroup order Q does not divide P-1";
  if (BN_check_prime(q.get(), ctx.get(), nullptr) != 1) return "the DSA subgroup order Q is not prime";
  if (!inSubgroup(g.get(), p.get(), q.get(), ctx.get()))
    return "the DSA generator G is not an element of order Q with 1 < G < P";
  if (!inSubgroup(y.get(), p.get(), q.get(), ctx.get()))
    return "the DSA public value Y is not in the subgroup of G with 1 < Y < P";
  return std::string();
}

std::string ecProblem(EVP_PKEY* key) {
  // Checks that the point is on the curve, is not the point at infinity and has the
  // order of the curve's base point.
  ossl::PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  if (!ctx || EVP_PKEY_public_check(ctx.get()) != 1) return "the EC public point is not a valid point of its curve";
  return std::string();
}

}  // namespace

std::string whyUnusable(EVP_PKEY* key) {
  std::string problem;
  if (!key) {
    problem = "there is no key";
  } else if (EVP_PKEY_is_a(key, "RSA") || EVP_PKEY_is_a(key, "RSA-PSS")) {
    problem = rsaProblem(key);
  } else if (EVP_PKEY_is_a(key, "DSA")) {
    problem = dsaProblem(key);
  } else if (EVP_PKEY_is_a(key, "EC")) {
    problem = ecProblem(key);
  }
  ossl::clearErrors();
  return problem;
}

}  // namespace keycheck
