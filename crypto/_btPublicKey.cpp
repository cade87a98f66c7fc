#include "crypto/_btPublicKey.h"

#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/ec.h>
#include <openssl/encoder.h>
#include <openssl/objects.h>
#include <openssl/param_build.h>

#include <cstring>
#include <string>
#include <vector>

#include "crypto/PublicKeyCheck.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

using ParamBldPtr = std::unique_ptr<OSSL_PARAM_BLD, ossl::Deleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
using ParamPtr = std::unique_ptr<OSSL_PARAM, ossl::Deleter<OSSL_PARAM, OSSL_PARAM_free>>;
using DecoderCtxPtr = std::unique_ptr<OSSL_DECODER_CTX, ossl::Deleter<OSSL_DECODER_CTX, OSSL_DECODER_CTX_free>>;
using EncoderCtxPtr = std::unique_ptr<OSSL_ENCODER_CTX, ossl::Deleter<OSSL_ENCODER_CTX, OSSL_ENCODER_CTX_free>>;
using GroupPtr = std::unique_ptr<EC_GROUP, ossl::Deleter<EC_GROUP, EC_GROUP_free>>;

ossl::BnPtr toBn(const DataBuffer& bytes) {
  return ossl::BnPtr(BN_bin2bn(bytes.getData2(), static_cast<int>(bytes.getSize()), nullptr));
}

// Builds a public key of the named OpenSSL type from parameters.
ossl::PkeyPtr keyFromParams(const char* type, OSSL_PARAM_BLD* bld, LogBase& log) {
  ParamPtr params(OSSL_PARAM_BLD_to_param(bld));
  ossl::PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
  EVP_PKEY* raw = nullptr;
  if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) != 1 ||
      EVP_PKEY_fromdata(ctx.get(), &raw, EVP_PKEY_PUBLIC_KEY, params.get()) != 1) {
    ossl::drainErrors(log);
    return nullptr;
  }
  return ossl::PkeyPtr(raw);
}

// OpenSSL's curve name for a dotted OID, accepting a "urn:oid:" prefix; "" when unknown.
std::string curveNameFromOid(const char* oid) {
  if (!oid) return std::string();
  if (std::strncmp(oid, "urn:oid:", 8) == 0) oid += 8;
  ASN1_OBJECT* obj = OBJ_txt2obj(oid, 1);
  const int nid = obj ? OBJ_obj2nid(obj) : NID_undef;
  ASN1_OBJECT_free(obj);
  ossl::clearErrors();
  const char* sn = nid == NID_undef ? nullptr : OBJ_nid2sn(nid);
  return sn ? std::string(sn) : std::string();
}

ossl::PkeyPtr decodeDer(const DataBuffer& der, const char* structure) {
  EVP_PKEY* raw = nullptr;
  DecoderCtxPtr dctx(
      OSSL_DECODER_CTX_new_for_pkey(&raw, "DER", structure, nullptr, EVP_PKEY_PUBLIC_KEY, nullptr, nullptr));
  if (!dctx) return nullptr;
  const unsigned char* data = der.getData2();
  size_t len = der.getSize();
  if (OSSL_DECODER_from_data(dctx.get(), &data, &len) != 1 || len != 0) {
    EVP_PKEY_free(raw);
    return nullptr;
  }
  return ossl::PkeyPtr(raw);
}

}  // namespace

_btPublicKey::_btPublicKey() = default;
_btPublicKey::~_btPublicKey() = default;

void _btPublicKey::clear() {
  m_rsa.reset();
  m_dsa.reset();
  m_ecc.reset();
  m_ed.reset();
}

_btPublicKey::KeyType _btPublicKey::keyType() const {
  if (m_rsa) return kRsa;
  if (m_dsa) return kDsa;
  if (m_ecc) return kEcc;
  if (m_ed) return kEdDsa;
  return kNone;
}

const char* _btPublicKey::keyTypeName() const {
  switch (keyType()) {
    case kRsa: return "rsa";
    case kDsa: return "dsa";
    case kEcc: return "ec";
    case kEdDsa: return m_ed->isEd448() ? "ed448" : "ed25519";
    default: return "";
  }
}

EVP_PKEY* _btPublicKey::pkey() const {
  if (m_rsa) return m_rsa->pkey();
  if (m_dsa) return m_dsa->pkey();
  if (m_ecc) return m_ecc->pkey();
  if (m_ed) return m_ed->pkey();
  return nullptr;
}

int _btPublicKey::numBits() const {
  EVP_PKEY* k = pkey();
  return k ? EVP_PKEY_get_bits(k) : 0;
}

bool _btPublicKey::setKey(ossl::PkeyPtr key, LogBase& log) {
  if (!key) return false;
  EVP_PKEY* k = key.get();
  // Every loader ends here, so no key from any source is used before its values are checked.
  m_refusal = keycheck::whyUnusable(k);
  if (!m_refusal.empty()) {
    const std::string error = "Public key refused: " + m_refusal + ".";
    log.LogError(error.c_str());
    return false;
  }
  if (EVP_PKEY_is_a(k, "RSA") || EVP_PKEY_is_a(k, "RSA-PSS")) {
    clear();
    m_rsa = std::make_unique<RsaKeyData>(std::move(key));
  } else if (EVP_PKEY_is_a(k, "DSA")) {
    clear();
    m_dsa = std::make_unique<DsaKeyData>(std::move(key));
  } else if (EVP_PKEY_is_a(k, "EC")) {
    clear();
    m_ecc = std::make_unique<EccKey>(std::move(key));
  } else if (EVP_PKEY_is_a(k, "ED25519") || EVP_PKEY_is_a(k, "ED448")) {
    clear();
    m_ed = std::make_unique<EdDsaKey>(std::move(key));
  } else {
    log.LogError("Unsupported public key type.");
    const char* name = EVP_PKEY_get0_type_name(k);
    log.LogDataStr("keyType", name ? name : "unknown");
    return false;
  }
  return true;
}

bool _btPublicKey::loadAnyDer(const DataBuffer& der, LogBase& log) {
  if (der.isEmpty()) {
    log.LogError("The public key DER is empty.");
    return false;
  }
  // d2i_PUBKEY reads a SubjectPublicKeyInfo of the common key types directly; the decoder
  // framework, which also knows the other forms, costs several times more per key.
  ossl::PkeyPtr key;
  {
    const unsigned char* p = der.getData2();
    const unsigned char* const end = p + der.getSize();
    key.reset(d2i_PUBKEY(nullptr, &p, static_cast<long>(der.getSize())));
    if (key && p != end) key.reset();  // trailing bytes: not a plain SubjectPublicKeyInfo
  }
  if (!key) key = decodeDer(der, "SubjectPublicKeyInfo");
  if (!key) key = decodeDer(der, nullptr);  // PKCS#1 RSAPublicKey and other key-specific forms
  if (!key) {
    const unsigned char* p = der.getData2();
    ossl::X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(der.getSize())));
    if (cert) key.reset(X509_get_pubkey(cert.get()));
  }
  ossl::clearErrors();
  if (!key) {
    log.LogError("The DER is not a public key or certificate.");
    return false;
  }
  return setKey(std::move(key), log);
}

bool _btPublicKey::loadRsa(const DataBuffer& modulus, const DataBuffer& exponent, LogBase& log) {
  ossl::BnPtr n = toBn(modulus);
  ossl::BnPtr e = toBn(exponent);
  ParamBldPtr bld(OSSL_PARAM_BLD_new());
  if (modulus.isEmpty() || exponent.isEmpty() || !n || !e || BN_is_zero(n.get()) || !bld ||
      !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_N, n.get()) ||
      !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_RSA_E, e.get())) {
    ossl::drainErrors(log);
    log.LogError("Invalid RSA modulus or exponent.");
    return false;
  }
  ossl::PkeyPtr key = keyFromParams("RSA", bld.get(), log);
  if (!key) {
    log.LogError("Failed to build the RSA key.");
    return false;
  }
  return setKey(std::move(key), log);
}

bool _btPublicKey::loadDsa(const DataBuffer& p, const DataBuffer& q, const DataBuffer& g, const DataBuffer& y,
                           LogBase& log) {
  ossl::BnPtr bp = toBn(p), bq = toBn(q), bg = toBn(g), by = toBn(y);
  ParamBldPtr bld(OSSL_PARAM_BLD_new());
  if (p.isEmpty() || q.isEmpty() || g.isEmpty() || y.isEmpty() || !bp || !bq || !bg || !by || !bld ||
      !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_FFC_P, bp.get()) ||
      !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_FFC_Q, bq.get()) ||
      !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_FFC_G, bg.get()) ||
      !OSSL_PARAM_BLD_push_BN(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, by.get())) {
    ossl::drainErrors(log);
    log.LogError("Invalid DSA key values.");
    return false;
  }
  ossl::PkeyPtr key = keyFromParams("DSA", bld.get(), log);
  if (!key) {
    log.LogError("Failed to build the DSA key.");
    return false;
  }
  return setKey(std::move(key), log);
}

bool _btPublicKey::loadEcPoint(const char* curveOid, const DataBuffer& point, LogBase& log) {
  const std::string curve = curveNameFromOid(curveOid);
  if (curve.empty()) {
    log.LogError("Unsupported elliptic curve.");
    log.LogDataStr("curveOid", curveOid ? curveOid : "");
    return false;
  }
  ParamBldPtr bld(OSSL_PARAM_BLD_new());
  if (point.isEmpty() || !bld ||
      !OSSL_PARAM_BLD_push_utf8_string(bld.get(), OSSL_PKEY_PARAM_GROUP_NAME, curve.c_str(), 0) ||
      !OSSL_PARAM_BLD_push_octet_string(bld.get(), OSSL_PKEY_PARAM_PUB_KEY, point.getData2(), point.getSize())) {
    ossl::drainErrors(log);
    log.LogError("Invalid EC public key.");
    return false;
  }
  ossl::PkeyPtr key = keyFromParams("EC", bld.get(), log);
  if (!key) {
    log.LogError("The EC point is not on the curve or is malformed.");
    log.LogDataStr("curve", curve.c_str());
    return false;
  }
  return setKey(std::move(key), log);
}

bool _btPublicKey::loadEcXY(const char* curveOid, const DataBuffer& x, const DataBuffer& y, LogBase& log) {
  const std::string curve = curveNameFromOid(curveOid);
  GroupPtr group(curve.empty() ? nullptr : EC_GROUP_new_by_curve_name(OBJ_sn2nid(curve.c_str())));
  if (!group) {
    ossl::clearErrors();
    log.LogError("Unsupported elliptic curve.");
    log.LogDataStr("curveOid", curveOid ? curveOid : "");
    return false;
  }
  const size_t fieldBytes = (static_cast<size_t>(EC_GROUP_get_degree(group.get())) + 7) / 8;
  // Coordinates are written as integers: strip leading zeros, then pad to the field size.
  auto appendCoordinate = [fieldBytes](const DataBuffer& v, DataBuffer& out) {
    const unsigned char* p = v.getData2();
    size_t n = v.getSize();
    while (n > 0 && *p == 0) ++p, --n;
    if (n > fieldBytes) return false;
    for (size_t i = n; i < fieldBytes; ++i) out.appendByte(0);
    return out.append(p, n);
  };
  DataBuffer point;
  point.appendByte(0x04);
  if (!appendCoordinate(x, point) || !appendCoordinate(y, point)) {
    log.LogError("An EC coordinate is longer than the curve's field.");
    return false;
  }
  return loadEcPoint(curveOid, point, log);
}

bool _btPublicKey::toDer(bool pkcs1, DataBuffer& out, LogBase& log) const {
  out.clear();
  EVP_PKEY* k = pkey();
  if (!k) {
    log.LogError("No public key is loaded.");
    return false;
  }
  const char* structure = (pkcs1 && m_rsa) ? "type-specific" : "SubjectPublicKeyInfo";
  EncoderCtxPtr ectx(OSSL_ENCODER_CTX_new_for_pkey(k, EVP_PKEY_PUBLIC_KEY, "DER", structure, nullptr));
  unsigned char* data = nullptr;
  size_t len = 0;
  if (!ectx || OSSL_ENCODER_to_data(ectx.get(), &data, &len) != 1) {
    ossl::drainErrors(log);
    log.LogError("Failed to encode the public key.");
    return false;
  }
  const bool ok = out.append(data, len);
  OPENSSL_free(data);
  return ok;
}
