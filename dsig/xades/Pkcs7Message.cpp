#include "dsig/xades/Pkcs7Message.h"

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <string>

#include "crypto/CertSummary.h"
#include "crypto/OsslPtr.h"
#include "dsig/_clsCades.h"
#include "support/ClsHttp.h"
#include "support/ClsJsonObject.h"
#include "support/LogBase.h"

namespace {

struct CmsFree {
  void operator()(CMS_ContentInfo* p) const { CMS_ContentInfo_free(p); }
};
struct BioFree {
  void operator()(BIO* p) const { BIO_free(p); }
};
struct TsReqFree {
  void operator()(TS_REQ* p) const { TS_REQ_free(p); }
};
struct TsImprintFree {
  void operator()(TS_MSG_IMPRINT* p) const { TS_MSG_IMPRINT_free(p); }
};
struct AlgorFree {
  void operator()(X509_ALGOR* p) const { X509_ALGOR_free(p); }
};
struct Asn1IntFree {
  void operator()(ASN1_INTEGER* p) const { ASN1_INTEGER_free(p); }
};
struct TsRespFree {
  void operator()(TS_RESP* p) const { TS_RESP_free(p); }
};
struct TstInfoFree {
  void operator()(TS_TST_INFO* p) const { TS_TST_INFO_free(p); }
};
struct CertStackFree {
  void operator()(STACK_OF(X509) * p) const { sk_X509_pop_free(p, X509_free); }
};
struct BnFree {
  void operator()(BIGNUM* p) const { BN_free(p); }
};

// Moves OpenSSL's queued errors into the log so none is left behind for a later call.
void drainOpenSslErrors(LogBase& log) {
  unsigned long e;
  while ((e = ERR_get_error()) != 0) {
    char buf[256];
    ERR_error_string_n(e, buf, sizeof buf);
    log.LogDataStr("openssl", buf);
  }
}

const EVP_MD* digestByName(const std::string& name) {
  if (name == "sha1" || name == "sha-1") return EVP_sha1();
  if (name == "sha384" || name == "sha-384") return EVP_sha384();
  if (name == "sha512" || name == "sha-512") return EVP_sha512();
  if (name == "sha256" || name == "sha-256" || name.empty()) return EVP_sha256();
  return nullptr;
}

bool toDer(TS_REQ* req, DataBuffer& out) {
  unsigned char* der = nullptr;
  const int len = i2d_TS_REQ(req, &der);
  if (len <= 0) return false;
  const bool ok = out.append(der, static_cast<size_t>(len));
  OPENSSL_free(der);
  return ok;
}

}  // namespace

struct Pkcs7Message::Impl {
  std::unique_ptr<CMS_ContentInfo, CmsFree> cms;
};

Pkcs7Message::Pkcs7Message() : m_impl(std::make_unique<Impl>()) {}
Pkcs7Message::~Pkcs7Message() = default;

bool Pkcs7Message::loadPkcs7Der(const DataBuffer& der, const char*, int, bool& isSigned, SystemCerts*, LogBase& log) {
  LogContextExitor ctx(log, "loadPkcs7Der");
  isSigned = false;
  const unsigned char* p = der.getData2();
  m_impl->cms.reset(d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(der.getSize())));
  if (!m_impl->cms) {
    log.LogError("The data is not a DER-encoded CMS message.");
    drainOpenSslErrors(log);
    return false;
  }
  isSigned = OBJ_obj2nid(CMS_get0_type(m_impl->cms.get())) == NID_pkcs7_signed;
  if (!isSigned) {
    log.LogError("The CMS message is not SignedData.");
    return false;
  }
  return true;
}

bool Pkcs7Message::verifyOpaqueSignature(DataBuffer& content, _clsCades&, SystemCerts*, LogBase& log) {
  LogContextExitor ctx(log, "verifyOpaqueSignature");
  content.clear();
  if (!m_impl->cms) {
    log.LogError("No CMS message is loaded.");
    return false;
  }
  std::unique_ptr<BIO, BioFree> out(BIO_new(BIO_s_mem()));
  if (!out) return false;
  // The signer certificate must be one the token carries; no chain to a trusted root is
  // required (trust in the authority is the caller's decision).
  const int ok = CMS_verify(m_impl->cms.get(), nullptr, nullptr, nullptr, out.get(),
                            CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY);
  if (ok != 1) {
    log.LogError("The CMS signature does not verify.");
    drainOpenSslErrors(log);
    return false;
  }
  BUF_MEM* mem = nullptr;
  BIO_get_mem_ptr(out.get(), &mem);
  if (mem && mem->length > 0) content.append(mem->data, mem->length);
  log.LogInfo("The CMS signature verified.");
  return true;
}

bool Pkcs7Message::describeTimeStamp(std::string& time, std::string& authority, LogBase& log) const {
  time.clear();
  authority.clear();
  if (!m_impl->cms) return false;
  ASN1_OCTET_STRING** content = CMS_get0_content(m_impl->cms.get());
  if (!content || !*content) {
    log.LogError("The CMS message has no content.");
    return false;
  }
  const unsigned char* p = ASN1_STRING_get0_data(*content);
  std::unique_ptr<TS_TST_INFO, TstInfoFree> info(d2i_TS_TST_INFO(nullptr, &p, ASN1_STRING_length(*content)));
  if (!info) {
    log.LogError("The CMS content is not a time-stamp (TSTInfo).");
    drainOpenSslErrors(log);
    return false;
  }
  time = certsummary::timeText(TS_TST_INFO_get_time(info.get()));
  const GENERAL_NAME* tsa = TS_TST_INFO_get_tsa(info.get());
  if (tsa && tsa->type == GEN_DIRNAME) {
    authority = certsummary::nameText(tsa->d.directoryName);
    return true;
  }
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(m_impl->cms.get());
  std::unique_ptr<STACK_OF(X509), CertStackFree> certs(CMS_get1_certs(m_impl->cms.get()));
  if (!signers || sk_CMS_SignerInfo_num(signers) < 1 || !certs) return true;
  CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, 0);
  for (int i = 0; i < sk_X509_num(certs.get()); ++i) {
    X509* cert = sk_X509_value(certs.get(), i);
    if (CMS_SignerInfo_cert_cmp(signer, cert) == 0) {
      authority = certsummary::nameText(X509_get_subject_name(cert));
      break;
    }
  }
  return true;
}

std::vector<std::string> Pkcs7Message::certificatesSignerFirst() const {
  std::vector<std::string> out;
  bool signerFound = false;
  if (!m_impl->cms) return out;
  std::unique_ptr<STACK_OF(X509), CertStackFree> certs(CMS_get1_certs(m_impl->cms.get()));
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(m_impl->cms.get());
  CMS_SignerInfo* signer = signers && sk_CMS_SignerInfo_num(signers) > 0 ? sk_CMS_SignerInfo_value(signers, 0)
                                                                         : nullptr;
  for (int i = 0; certs && i < sk_X509_num(certs.get()); ++i) {
    X509* cert = sk_X509_value(certs.get(), i);
    unsigned char* der = nullptr;
    const int len = i2d_X509(cert, &der);
    if (len <= 0) continue;
    std::string bytes(reinterpret_cast<const char*>(der), static_cast<size_t>(len));
    OPENSSL_free(der);
    if (!signerFound && signer && CMS_SignerInfo_cert_cmp(signer, cert) == 0) {
      signerFound = true;
      out.insert(out.begin(), std::move(bytes));
    } else {
      out.push_back(std::move(bytes));
    }
  }
  if (!signerFound) out.clear();
  return out;
}

bool Pkcs7Message::getTimestampToken(ClsJsonObject& options, const DataBuffer& data, _clsCades& cades,
                                     DataBuffer& token, LogBase& log) {
  LogContextExitor ctx(log, "getTimestampToken");
  token.clear();
  const std::string url = options.stringOf("tsaUrl");
  if (url.empty()) {
    log.LogError("The time-stamp options name no authority: set \"tsaUrl\" to its URL.");
    return false;
  }
  const std::string hashName = options.stringOf("hashAlgorithm", "sha256");
  const EVP_MD* md = digestByName(hashName);
  if (!md) {
    log.LogError("Unsupported time-stamp hash algorithm (use sha1, sha256, sha384 or sha512).");
    log.LogDataStr("hashAlgorithm", hashName.c_str());
    return false;
  }
  log.LogDataStr("tsaUrl", url.c_str());
  log.LogDataStr("hashAlgorithm", hashName.c_str());

  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned int hashLen = 0;
  if (EVP_Digest(data.getData2(), data.getSize(), hash, &hashLen, md, nullptr) != 1) {
    drainOpenSslErrors(log);
    return false;
  }

  std::unique_ptr<TS_REQ, TsReqFree> req(TS_REQ_new());
  std::unique_ptr<TS_MSG_IMPRINT, TsImprintFree> imprint(TS_MSG_IMPRINT_new());
  std::unique_ptr<X509_ALGOR, AlgorFree> algor(X509_ALGOR_new());
  std::unique_ptr<BIGNUM, BnFree> nonceBn(BN_new());
  if (!req || !imprint || !algor || !nonceBn) return false;
  X509_ALGOR_set0(algor.get(), OBJ_nid2obj(EVP_MD_get_type(md)), V_ASN1_NULL, nullptr);
  std::unique_ptr<ASN1_INTEGER, Asn1IntFree> nonce;
  if (BN_rand(nonceBn.get(), 64, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1)
    nonce.reset(BN_to_ASN1_INTEGER(nonceBn.get(), nullptr));
  if (!nonce || TS_REQ_set_version(req.get(), 1) != 1 || TS_MSG_IMPRINT_set_algo(imprint.get(), algor.get()) != 1 ||
      TS_MSG_IMPRINT_set_msg(imprint.get(), hash, static_cast<int>(hashLen)) != 1 ||
      TS_REQ_set_msg_imprint(req.get(), imprint.get()) != 1 || TS_REQ_set_nonce(req.get(), nonce.get()) != 1 ||
      TS_REQ_set_cert_req(req.get(), options.boolOf("requestTsaCert", true) ? 1 : 0) != 1) {
    log.LogError("Failed to build the time-stamp request.");
    drainOpenSslErrors(log);
    return false;
  }
  DataBuffer requestDer;
  if (!toDer(req.get(), requestDer)) {
    drainOpenSslErrors(log);
    return false;
  }

  RcPtr<ClsHttp> ownHttp;
  ClsHttp* http = cades.tsaHttpObj();
  if (!http) {
    ownHttp.reset(ClsHttp::createNewCls());
    http = ownHttp.get();
    if (!http) return false;
  }
  http->login = options.stringOf("tsaUsername");
  http->password = options.stringOf("tsaPassword");
  DataBuffer reply;
  std::string replyType;
  if (!http->postBinary(url.c_str(), requestDer, "application/timestamp-query", reply, replyType, log)) {
    log.LogError("The time-stamp authority could not be reached or refused the request.");
    return false;
  }
  if (replyType.find("timestamp-reply") == std::string::npos) {
    const std::string msg = "The time-stamp authority answered with content type '" + replyType +
                            "', not application/timestamp-reply.";
    log.LogError(msg.c_str());
    return false;
  }

  const unsigned char* p = reply.getData2();
  std::unique_ptr<TS_RESP, TsRespFree> resp(d2i_TS_RESP(nullptr, &p, static_cast<long>(reply.getSize())));
  if (!resp) {
    log.LogError("The time-stamp reply is not a valid RFC 3161 response.");
    drainOpenSslErrors(log);
    return false;
  }
  const long status = ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(TS_RESP_get_status_info(resp.get())));
  log.LogDataLong("timestampStatus", status);
  if (status != 0 && status != 1) {
    log.LogError("The time-stamp authority did not grant the request.");
    return false;
  }
  TS_TST_INFO* info = TS_RESP_get_tst_info(resp.get());
  PKCS7* tokenP7 = TS_RESP_get_token(resp.get());
  if (!info || !tokenP7) {
    log.LogError("The time-stamp reply carries no token.");
    return false;
  }
  const ASN1_INTEGER* replyNonce = TS_TST_INFO_get_nonce(info);
  if (!replyNonce || ASN1_INTEGER_cmp(replyNonce, nonce.get()) != 0) {
    log.LogError("The time-stamp token does not answer this request (nonce differs).");
    return false;
  }
  const ASN1_OCTET_STRING* stamped = TS_MSG_IMPRINT_get_msg(TS_TST_INFO_get_msg_imprint(info));
  if (!stamped || static_cast<unsigned>(ASN1_STRING_length(stamped)) != hashLen ||
      CRYPTO_memcmp(ASN1_STRING_get0_data(stamped), hash, hashLen) != 0) {
    log.LogError("The time-stamp token covers other data than was sent.");
    return false;
  }
  unsigned char* der = nullptr;
  const int len = i2d_PKCS7(tokenP7, &der);
  if (len <= 0) {
    drainOpenSslErrors(log);
    return false;
  }
  token.append(der, static_cast<size_t>(len));
  OPENSSL_free(der);
  log.LogDataLong("timestampTokenSize", len);
  return true;
}
