// Signed documents for the verification benchmarks, generated in memory.
//
// The invoices are written directly in canonical form (attributes in order, no empty-element
// tags, namespaces declared once on the root), so the digest of the whole-document reference
// (enveloped signature, then inclusive canonicalization) is the SHA-256 of the text without
// its Signature element, computed while the text is written. SignedInfo is canonicalized
// exclusively; its canonical text is the one written here plus the inherited default
// namespace, and OpenSSL signs it with RSA-SHA256. Another verifier accepting the result is
// the check that both are right.
#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "support/StringBuffer.h"

namespace benchdoc {

struct PkeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
struct MdCtxFree {
  void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
struct BioFree {
  void operator()(BIO* b) const { BIO_free(b); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyFree>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, MdCtxFree>;
using BioPtr = std::unique_ptr<BIO, BioFree>;

inline std::string base64(const unsigned char* data, size_t length) {
  std::string out(4 * ((length + 2) / 3) + 1, '\0');
  const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]), data, static_cast<int>(length));
  out.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return out;
}

// An RSA 2048 key made for the run.
class Signer {
 public:
  Signer() : key_(EVP_RSA_gen(2048)) {}
  bool ok() const { return key_ != nullptr; }

  std::string publicKeyPem() const {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PUBKEY(bio.get(), key_.get()) != 1) return {};
    char* data = nullptr;
    const long n = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<size_t>(n));
  }

  // Base64 of the RSA PKCS#1 v1.5 SHA-256 signature of text; empty on failure.
  std::string sign(const std::string& text) const {
    MdCtxPtr ctx(EVP_MD_CTX_new());
    size_t length = 0;
    if (!ctx || EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key_.get()) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &length, reinterpret_cast<const unsigned char*>(text.data()), text.size()) !=
            1)
      return {};
    std::string sig(length, '\0');
    if (EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(&sig[0]), &length,
                       reinterpret_cast<const unsigned char*>(text.data()), text.size()) != 1)
      return {};
    return base64(reinterpret_cast<const unsigned char*>(sig.data()), length);
  }

 private:
  PkeyPtr key_;
};

// SignedInfo as written inside <Signature xmlns="http://www.w3.org/2000/09/xmldsig#">.
inline std::string signedInfo(const std::string& digestValue) {
  return "<SignedInfo><CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\">"
         "</CanonicalizationMethod><SignatureMethod Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256\">"
         "</SignatureMethod><Reference URI=\"\"><Transforms><Transform "
         "Algorithm=\"http://www.w3.org/2000/09/xmldsig#enveloped-signature\"></Transform><Transform "
         "Algorithm=\"http://www.w3.org/TR/2001/REC-xml-c14n-20010315\"></Transform></Transforms><DigestMethod "
         "Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"></DigestMethod><DigestValue>" +
         digestValue + "</DigestValue></Reference></SignedInfo>";
}

// Appends to out an enveloped-signed document of about targetBytes (at least one invoice).
// With a null signer the SignatureValue is left empty (enough for the reference digest).
// False when hashing or signing fails.
inline bool makeSignedDocument(size_t targetBytes, const Signer* signer, StringBuffer& out) {
  MdCtxPtr sha(EVP_MD_CTX_new());
  if (!sha || EVP_DigestInit_ex(sha.get(), EVP_sha256(), nullptr) != 1) return false;
  const auto write = [&](const std::string& text, bool digested) {
    out.append(text.c_str());
    if (digested) EVP_DigestUpdate(sha.get(), text.data(), text.size());
  };
  const std::string close = "</Invoices>";
  const size_t signatureRoom = 1200;
  out.reserve(out.getSize() + targetBytes + signatureRoom + 1024);
  const size_t start = out.getSize();

  write("<Invoices xmlns=\"urn:example:invoice\" xmlns:cbc=\"urn:example:cbc\">\n", true);
  for (size_t n = 0; n == 0 || out.getSize() - start + signatureRoom < targetBytes; ++n) {
    const std::string id = std::to_string(n);
    write("  <Invoice Id=\"inv-" + id +
              "\" issued=\"2024-05-17\" status=\"open\">\n"
              "    <cbc:Party role=\"seller\"><cbc:Name>Smith &amp; Sons Ltd.</cbc:Name>"
              "<cbc:TaxId scheme=\"VAT\">DE123456789</cbc:TaxId></cbc:Party>\n"
              "    <cbc:Line number=\"1\" qty=\"3\">Widget &lt;large&gt; no. " +
              id +
              "</cbc:Line>\n"
              "    <cbc:Line currency=\"EUR\" number=\"2\" qty=\"1\">Spare part</cbc:Line>\n"
              "    <Note>Free text of the kind business documents carry in remarks fields, long enough "
              "to be typical.</Note>\n"
              "    <Empty></Empty>\n"
              "  </Invoice>\n",
          true);
  }
  EVP_DigestUpdate(sha.get(), close.data(), close.size());
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digestLength = 0;
  if (EVP_DigestFinal_ex(sha.get(), digest, &digestLength) != 1) return false;

  const std::string si = signedInfo(base64(digest, digestLength));
  std::string value;
  if (signer) {
    std::string canonical = si;
    canonical.insert(sizeof("<SignedInfo") - 1, " xmlns=\"http://www.w3.org/2000/09/xmldsig#\"");
    value = signer->sign(canonical);
    if (value.empty()) return false;
  }
  write("<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\">" + si + "<SignatureValue>" + value +
            "</SignatureValue></Signature>" + close,
        false);
  return true;
}

// Peak resident memory (kB) of fn run in a child process forked now; -1 on failure. Fork
// early, while the process is small: the child starts with the parent's pages.
inline long peakKbInChild(const std::function<bool()>& fn) {
  int fds[2];
  if (pipe(fds) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    long kb = -1;
    if (fn()) {
      rusage usage{};
      getrusage(RUSAGE_SELF, &usage);
      kb = usage.ru_maxrss;
    }
    const bool sent = write(fds[1], &kb, sizeof kb) == static_cast<ssize_t>(sizeof kb);
    _exit(sent ? 0 : 1);
  }
  close(fds[1]);
  long kb = -1;
  if (pid < 0 || read(fds[0], &kb, sizeof kb) != static_cast<ssize_t>(sizeof kb)) kb = -1;
  close(fds[0]);
  if (pid > 0) waitpid(pid, nullptr, 0);
  return kb;
}

inline long currentRssKb() {
  long pages = 0, resident = 0;
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (!f) return -1;
  const bool read = std::fscanf(f, "%ld %ld", &pages, &resident) == 2;
  std::fclose(f);
  return read ? resident * (sysconf(_SC_PAGESIZE) / 1024) : -1;
}

}  // namespace benchdoc
