// Trust anchors and revocation lists the caller supplies, and the chain check of a signer
// certificate against them with OpenSSL's X509_STORE. Nothing is ever fetched: the chain
// is built from the anchors and the intermediates handed in, and revocation is checked
// only against the CRLs given here.
#pragma once

#include <memory>
#include <string>
#include <vector>

class LogBase;
// OpenSSL's certificate type, declared here so that this header (reachable from the
// installed verifier header) needs no OpenSSL headers.
typedef struct x509_st X509;

class TrustStore {
 public:
  TrustStore();
  ~TrustStore();
  TrustStore(const TrustStore&) = delete;
  TrustStore& operator=(const TrustStore&) = delete;

  // Every certificate of a file (PEM, possibly several, or DER) or of every file of a
  // directory (files that hold no certificate are skipped). Anchors need not be
  // self-signed. False when nothing could be read.
  bool addAnchors(const std::string& fileOrDir, LogBase& log);
  // Every CRL of a file (PEM, possibly several, or DER). False when there is none.
  bool addCrls(const std::string& file, LogBase& log);
  bool hasAnchors() const;
  void clear();

  struct Verdict {
    bool trusted = false;
    std::vector<std::string> chain;  // subjects, the signer's first
    std::string error;               // why it is not trusted
  };
  // Whether the signer certificate chains to an anchor, every certificate valid at
  // `atTime` (seconds since 1970), none revoked by a supplied CRL, and the signer's key
  // usage, when it has that extension, permitting signatures.
  Verdict verify(X509* signer, const std::vector<X509*>& intermediates, long long atTime) const;

 private:
  struct Material;  // the anchors and CRLs, as OpenSSL objects
  std::unique_ptr<Material> m_material;
};
