// Owning pointers for the OpenSSL objects the crypto layer uses, and the helper that
// moves OpenSSL's per-thread error queue into our log so that no error is left behind
// for an unrelated later call to trip over.
#pragma once

#include <memory>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

class LogBase;

namespace ossl {

template <class T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const {
    if (p) Free(p);
  }
};

using PkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using MdPtr = std::unique_ptr<EVP_MD, Deleter<EVP_MD, EVP_MD_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX, EVP_MD_CTX_free>>;
using MacPtr = std::unique_ptr<EVP_MAC, Deleter<EVP_MAC, EVP_MAC_free>>;
using MacCtxPtr = std::unique_ptr<EVP_MAC_CTX, Deleter<EVP_MAC_CTX, EVP_MAC_CTX_free>>;
using BnPtr = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using X509Ptr = std::unique_ptr<X509, Deleter<X509, X509_free>>;

// Pops every pending OpenSSL error and records each under the key "openSslError"
// (a data entry, not an error line: the caller decides what the failure means).
void drainErrors(LogBase& log);
// Discards every pending OpenSSL error (for failures that are an expected outcome,
// such as a signature that does not match).
void clearErrors();

// A digest implementation fetched from the default providers by name, or null.
MdPtr fetchDigest(const char* name);

}  // namespace ossl
