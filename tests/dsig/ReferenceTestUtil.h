// Helpers of the reference-digest tests: signatures built from hand-written references,
// digests computed with OpenSSL directly, and a verifier with a loaded document.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <memory>
#include <string>
#include <vector>

#include "LogProbe.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/ClsStringBuilder.h"
#include "support/XString.h"

namespace reftest {

inline std::string sha256(const std::string& data) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(data.data(), data.size(), md, &len, EVP_sha256(), nullptr);
  return std::string(reinterpret_cast<char*>(md), len);
}
inline std::string base64(const std::string& bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&out[0]),
                                reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  out.resize(static_cast<size_t>(n));
  return out;
}
inline std::string b64sha256(const std::string& data) { return base64(sha256(data)); }

// uriAttr is the whole attribute (" URI=\"#x\"", or "" for none); transforms "" for none.
inline std::string reference(const std::string& uriAttr, const std::string& transforms, const std::string& digest) {
  return "<ds:Reference" + uriAttr + ">" + transforms +
         "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><ds:DigestValue>" + digest +
         "</ds:DigestValue></ds:Reference>";
}
inline std::string transforms(const std::vector<std::string>& algorithms) {
  std::string s = "<ds:Transforms>";
  for (const std::string& a : algorithms) s += "<ds:Transform Algorithm=\"" + a + "\"/>";
  return s + "</ds:Transforms>";
}
inline std::string signature(const std::string& references, const std::string& tail = "") {
  return "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"><ds:SignedInfo>" + references +
         "</ds:SignedInfo><ds:SignatureValue>AAAA</ds:SignatureValue>" + tail + "</ds:Signature>";
}

struct Verifier {
  explicit Verifier(const std::string& xml, const char* options = "") : dsig(ClsXmlDSig::createNewCls()) {
    dsig->put_UncommonOptions(XString(options));
    reload(xml);
  }
  void reload(const std::string& xml) {
    XString x(xml.c_str());
    EXPECT_TRUE(dsig->LoadSignature(x));
  }
  bool verify(int index) { return dsig->VerifyReferenceDigest(index); }
  int reason() const { return dsig->get_RefFailReason(); }
  // An entry with this key, error or info text in the log of the last call.
  bool logged(const char* what) const { return logprobe::find(dsig->m_log.entries(), what) != nullptr; }
  std::string value(const char* key) const { return logprobe::value(dsig->m_log, key); }
  int count(const std::string& key) const { return countIn(dsig->m_log.entries(), key); }
  static int countIn(const std::vector<LogEntry>& entries, const std::string& key) {
    int n = 0;
    for (const LogEntry& e : entries) n += (e.kind == LogEntry::Kind::Data && e.key == key) + countIn(e.children, key);
    return n;
  }
  bool setFile(int index, const std::string& path) {
    XString p(path.c_str());
    return dsig->SetRefDataFile(index, p);
  }
  bool setText(int index, const char* utf8, const char* charset) {
    RcPtr<ClsStringBuilder> sb(ClsStringBuilder::createNewCls());
    sb->SetString(utf8);
    XString cs(charset);
    return dsig->SetRefDataSb(index, *sb, cs);
  }
  bool setBytes(int index, const std::string& bytes) {
    RcPtr<ClsBinData> bd(ClsBinData::createNewCls());
    bd->AppendBinary(bytes.data(), bytes.size());
    return dsig->SetRefDataBd(index, *bd);
  }
  std::unique_ptr<ClsXmlDSig> dsig;
};

}  // namespace reftest
