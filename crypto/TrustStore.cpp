#include "crypto/TrustStore.h"

#include <filesystem>

#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "crypto/CertSummary.h"
#include "crypto/OsslPtr.h"
#include "crypto/PemFile.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace {

struct StoreFree {
  void operator()(X509_STORE* s) const { X509_STORE_free(s); }
};
struct StoreCtxFree {
  void operator()(X509_STORE_CTX* c) const { X509_STORE_CTX_free(c); }
};
struct StackFree {
  void operator()(STACK_OF(X509) * s) const { sk_X509_free(s); }  // the certificates are borrowed
};

// The DER bodies of a file: its PEM blocks with one of the labels, or the whole file.
bool derBodies(const std::string& path, const std::vector<std::string>& labels, std::vector<DataBuffer>& out,
               LogBase& log) {
  DataBuffer bytes;
  if (!pem::readFile(path.c_str(), bytes, log)) return false;
  if (!pem::looksLikePem(bytes)) {
    out.emplace_back();
    out.back().append(bytes);
    return true;
  }
  std::vector<pem::Block> blocks;
  if (!pem::parse(bytes, blocks, log)) return false;
  for (const pem::Block& block : blocks)
    for (const std::string& label : labels)
      if (block.label == label) {
        out.emplace_back();
        out.back().append(block.der.data(), block.der.size());
        if (label == "TRUSTED CERTIFICATE") pem::stripTrustedCertAux(out.back());
      }
  return true;
}

int addCertsOfFile(const std::string& path, std::vector<ossl::X509Ptr>& out, LogBase& log) {
  std::vector<DataBuffer> bodies;
  if (!derBodies(path, {"CERTIFICATE", "X509 CERTIFICATE", "TRUSTED CERTIFICATE"}, bodies, log)) return 0;
  int added = 0;
  for (const DataBuffer& der : bodies) {
    const unsigned char* p = der.getData2();
    ossl::X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(der.getSize())));
    if (!cert) continue;
    out.push_back(std::move(cert));
    ++added;
  }
  ossl::clearErrors();
  return added;
}

// Revocation is checked only where the caller supplied a CRL: a certificate whose issuer
// has none is not failed for that.
int ignoreMissingCrl(int ok, X509_STORE_CTX* ctx) {
  if (!ok && X509_STORE_CTX_get_error(ctx) == X509_V_ERR_UNABLE_TO_GET_CRL) return 1;
  return ok;
}

std::string errorText(int error, X509_STORE_CTX* ctx) {
  X509* at = X509_STORE_CTX_get_current_cert(ctx);
  const std::string who = at ? " (" + certsummary::nameText(X509_get_subject_name(at)) + ")" : std::string();
  switch (error) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return "the signer certificate does not chain to a trust anchor" + who;
    case X509_V_ERR_CERT_HAS_EXPIRED: return "certificate expired at the validation time" + who;
    case X509_V_ERR_CERT_NOT_YET_VALID: return "certificate not yet valid at the validation time" + who;
    case X509_V_ERR_CERT_REVOKED: return "certificate revoked" + who;
    default: return std::string(X509_verify_cert_error_string(error)) + who;
  }
}

}  // namespace

struct TrustStore::Material {
  struct CrlFree {
    void operator()(X509_CRL* crl) const { X509_CRL_free(crl); }
  };
  std::vector<ossl::X509Ptr> anchors;
  std::vector<std::unique_ptr<X509_CRL, CrlFree>> crls;
};

TrustStore::TrustStore() : m_material(std::make_unique<Material>()) {}
TrustStore::~TrustStore() = default;

bool TrustStore::hasAnchors() const { return !m_material->anchors.empty(); }

bool TrustStore::addAnchors(const std::string& fileOrDir, LogBase& log) {
  std::error_code ec;
  int added = 0;
  if (std::filesystem::is_directory(fileOrDir, ec)) {
    LogNull quiet;  // files that are not certificates are expected in a directory
    for (const auto& entry : std::filesystem::directory_iterator(fileOrDir, ec))
      if (entry.is_regular_file(ec)) added += addCertsOfFile(entry.path().string(), m_material->anchors, quiet);
  } else {
    added = addCertsOfFile(fileOrDir, m_material->anchors, log);
  }
  if (added == 0) log.LogError("No trust anchor certificate could be read.");
  return added > 0;
}

bool TrustStore::addCrls(const std::string& file, LogBase& log) {
  std::vector<DataBuffer> bodies;
  if (!derBodies(file, {"X509 CRL"}, bodies, log)) return false;
  size_t added = 0;
  for (const DataBuffer& der : bodies) {
    const unsigned char* p = der.getData2();
    X509_CRL* crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(der.getSize()));
    if (!crl) continue;
    m_material->crls.emplace_back(crl);
    ++added;
  }
  ossl::clearErrors();
  if (added == 0) log.LogError("No certificate revocation list could be read.");
  return added > 0;
}

void TrustStore::clear() {
  m_material->anchors.clear();
  m_material->crls.clear();
}

TrustStore::Verdict TrustStore::verify(X509* signer, const std::vector<X509*>& intermediates, long long atTime) const {
  Verdict v;
  std::unique_ptr<X509_STORE, StoreFree> store(X509_STORE_new());
  std::unique_ptr<X509_STORE_CTX, StoreCtxFree> ctx(X509_STORE_CTX_new());
  std::unique_ptr<STACK_OF(X509), StackFree> untrusted(sk_X509_new_null());
  if (!signer || !store || !ctx || !untrusted) {
    v.error = "out of memory";
    return v;
  }
  for (const ossl::X509Ptr& anchor : m_material->anchors) X509_STORE_add_cert(store.get(), anchor.get());
  for (const auto& crl : m_material->crls) X509_STORE_add_crl(store.get(), crl.get());
  for (X509* cert : intermediates)
    if (cert) sk_X509_push(untrusted.get(), cert);
  if (X509_STORE_CTX_init(ctx.get(), store.get(), signer, untrusted.get()) != 1) {
    ossl::clearErrors();
    v.error = "the certificate chain could not be set up";
    return v;
  }
  X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(ctx.get());
  unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN;  // an anchor need not be self-signed
  if (!m_material->crls.empty()) {
    flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
    X509_STORE_CTX_set_verify_cb(ctx.get(), ignoreMissingCrl);
  }
  X509_VERIFY_PARAM_set_flags(param, flags);
  X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(atTime));

  const bool chained = X509_verify_cert(ctx.get()) == 1;
  if (STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(ctx.get()))
    for (int i = 0; i < sk_X509_num(chain); ++i)
      v.chain.push_back(certsummary::nameText(X509_get_subject_name(sk_X509_value(chain, i))));
  if (!chained) {
    v.error = errorText(X509_STORE_CTX_get_error(ctx.get()), ctx.get());
    ossl::clearErrors();
    return v;
  }
  if (v.chain.empty()) v.chain.push_back(certsummary::nameText(X509_get_subject_name(signer)));
  // Key usage limits what the key may do only when the extension is there.
  if ((X509_get_extension_flags(signer) & EXFLAG_KUSAGE) != 0 &&
      (X509_get_key_usage(signer) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) == 0) {
    v.error = "the signer certificate's key usage does not permit signatures (" + v.chain.front() + ")";
    ossl::clearErrors();
    return v;
  }
  ossl::clearErrors();
  v.trusted = true;
  return v;
}
