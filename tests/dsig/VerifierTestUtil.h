// Small helpers for the verifier tests: loading text, reading logged values.
#pragma once

#include <memory>
#include <string>

#include "dsig/ClsXmlDSig.h"
#include "support/LogBase.h"
#include "support/XString.h"

namespace dsigtest {

using DSigPtr = std::unique_ptr<ClsXmlDSig>;

inline DSigPtr newVerifier() { return DSigPtr(ClsXmlDSig::createNewCls()); }

inline bool loadText(ClsXmlDSig& d, const std::string& xml) {
  XString x(xml.c_str());
  return d.LoadSignature(x);
}

// The value of the first data entry with this key anywhere in the entries, or "<absent>".
inline std::string findValue(const std::vector<LogEntry>& entries, const std::string& key) {
  for (const LogEntry& e : entries) {
    if (e.kind == LogEntry::Kind::Data && e.key == key) return e.text;
    if (e.kind == LogEntry::Kind::Context) {
      std::string v = findValue(e.children, key);
      if (v != "<absent>") return v;
    }
  }
  return "<absent>";
}

inline std::string findValue(const _btLogger& log, const std::string& key) {
  return findValue(log.entries(), key);
}

// Number of error lines in the log.
inline int countErrors(const std::vector<LogEntry>& entries) {
  int n = 0;
  for (const LogEntry& e : entries) {
    if (e.kind == LogEntry::Kind::Error) ++n;
    if (e.kind == LogEntry::Kind::Context) n += countErrors(e.children);
  }
  return n;
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

}  // namespace dsigtest
