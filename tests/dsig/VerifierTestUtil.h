// Helpers of the verifier tests: hand-written signatures and references, SHA-256 digests
// computed with OpenSSL directly, and a verifier over a loaded document.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

#include "LogProbe.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/ClsStringBuilder.h"
#include "support/LogBase.h"
#include "support/XString.h"
#include "xml/XmlCanon.h"

namespace dsigtest {

using DSigPtr = std::unique_ptr<ClsXmlDSig>;

inline DSigPtr newVerifier() { return DSigPtr(ClsXmlDSig::createNewCls()); }

inline bool loadText(ClsXmlDSig& d, const std::string& xml) {
  XString x(xml.c_str());
  return d.LoadSignature(x);
}

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

// Canonicalizes the whole text (1 inclusive, 2 exclusive) and digests it; "" on failure.
inline std::string canonicalDigest(const StringBuffer& text, int method) {
  XmlCanon canon;
  canon.canonMethod = method;
  StringBuffer out;
  LogNull log;
  if (!canon.xmlCanonicalize(text, nullptr, 0, out, log)) return "";
  return b64sha256(out.str());
}

// A Signature element with the given Id and number of references.
inline std::string signatureXml(const std::string& id, int refs, const std::string& inner = "") {
  std::string s = "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"";
  if (!id.empty()) s += " Id=\"" + id + "\"";
  s += "><ds:SignedInfo>"
       "<ds:CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>"
       "<ds:SignatureMethod Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256\"/>";
  for (int i = 0; i < refs; ++i)
    s += "<ds:Reference URI=\"#r" + std::to_string(i) +
         "\"><ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/>"
         "<ds:DigestValue>AAAA</ds:DigestValue></ds:Reference>";
  s += "</ds:SignedInfo><ds:SignatureValue>QUJD</ds:SignatureValue>" + inner + "</ds:Signature>";
  return s;
}

// A signature with one whole-document reference holding this digest, without algorithms:
// what the locators and the enveloped-signature transform look at.
inline std::string digestSignature(const std::string& id, const std::string& digest, const std::string& inner = "") {
  return "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"" + (id.empty() ? "" : " Id=\"" + id + "\"") +
         "><ds:SignedInfo><ds:Reference URI=\"\"><ds:DigestValue>" + digest +
         "</ds:DigestValue></ds:Reference></ds:SignedInfo><ds:SignatureValue>c2ln</ds:SignatureValue>" + inner +
         "</ds:Signature>";
}

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

inline nlohmann::json referenceResult(ClsXmlDSig& d, int index) {
  XString json;
  return d.GetReferenceResultJson(index, json) ? nlohmann::json::parse(json.getUtf8()) : nlohmann::json();
}

// A verifier over one document, for reference checks and the data they need.
struct Verifier {
  explicit Verifier(const std::string& xml, const char* options = "") : dsig(newVerifier()) {
    dsig->put_UncommonOptions(XString(options));
    reload(xml);
  }
  void reload(const std::string& xml) { EXPECT_TRUE(loadText(*dsig, xml)); }
  bool verify(int index) { return dsig->VerifyReferenceDigest(index); }
  int reason() const { return dsig->get_RefFailReason(); }
  // The result of reference `index` as the results API gives it (null when there is none).
  nlohmann::json result(int index) const { return referenceResult(*dsig, index); }
  // An entry with this key, error or info text in the log of the last call.
  bool logged(const char* what) const { return logprobe::find(dsig->m_log.entries(), what) != nullptr; }
  std::string value(const char* key) const { return logprobe::value(dsig->m_log, key); }
  int count(const std::string& key) const { return logprobe::countData(dsig->m_log.entries(), key); }
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
  DSigPtr dsig;
};

}  // namespace dsigtest
