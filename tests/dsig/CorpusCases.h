// The cases of the corpus manifests (interop.tsv, families.tsv) and a verifier set up for
// one of them the way a user would: the document's bytes (or a changed copy), the
// public key, HMAC secret, certificates and detached data its row names, and the
// uncommon option its family needs.
#pragma once

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ClsBinData.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace corpuscases {

struct Case {
  std::string manifest;
  std::string id;
  std::string xmlPath;  // relative to the corpus
  int selector = 0;
  std::string keyKind;  // keyinfo, pubkey, hmac, store ("" for families)
  std::string keyPath;
  std::string hmacSecret;
  std::string externalData;  // uri=path;... (interop)
  std::string family;
  std::string needs;        // families: what the case needs from the caller
  std::string expected;     // pass, fail, unsure
  std::string cryptoValid;  // yes, no, unknown: whether the signature is intact
};

inline std::vector<std::string> split(const std::string& text, char sep, bool dropEmpty) {
  std::vector<std::string> out;
  std::string cur;
  std::stringstream ss(text);
  while (std::getline(ss, cur, sep)) {
    if (!cur.empty() && cur.back() == '\r') cur.pop_back();
    if (!dropEmpty || !cur.empty()) out.push_back(cur);
  }
  return out;
}

inline std::vector<Case> readManifest(const std::string& name) {
  std::vector<Case> cases;
  std::ifstream in(testsupport::corpusDir() + "/" + name);
  std::string line;
  std::vector<std::string> header;
  while (std::getline(in, line)) {
    const std::vector<std::string> cols = split(line, '\t', false);
    if (header.empty()) {
      header = cols;
      continue;
    }
    std::map<std::string, std::string> row;
    for (size_t i = 0; i < header.size() && i < cols.size(); ++i) row[header[i]] = cols[i];
    Case c;
    c.manifest = name;
    c.id = row["case_id"];
    c.xmlPath = row["xml_path"];
    c.selector = row["signature_selector"].empty() ? 0 : std::stoi(row["signature_selector"]);
    c.keyKind = row["key_kind"];
    c.keyPath = row["key_path"];
    c.hmacSecret = row["hmac_secret"];
    c.externalData = row["external_data"];
    c.family = row["family"];
    c.needs = row["needs"];
    c.expected = row["verdict_expected"];
    c.cryptoValid = row["crypto_valid"];
    if (!c.id.empty()) cases.push_back(c);
  }
  return cases;
}

inline std::vector<Case> allCases() {
  std::vector<Case> cases = readManifest("interop.tsv");
  for (Case& c : readManifest("families.tsv")) cases.push_back(c);
  return cases;
}

inline std::string documentOf(const Case& c) {
  return testsupport::readFile(testsupport::corpusDir() + "/" + c.xmlPath);
}

// Gives the verifier the data of the reference whose URI is uri.
inline void supplyExternal(ClsXmlDSig& dsig, const std::string& uri, const std::string& file) {
  for (int i = 0; i < dsig.get_NumReferences(); ++i) {
    XString refUri;
    if (dsig.ReferenceUri(i, refUri) && uri == refUri.getUtf8()) {
      XString path(file.c_str());
      dsig.SetRefDataFile(i, path);
    }
  }
}

// A verifier with `bytes` loaded as the case's document and the case's keys, data and
// options set; null when the bytes do not load.
inline std::unique_ptr<ClsXmlDSig> prepare(const Case& c, const std::string& bytes) {
  const std::string corpus = testsupport::corpusDir();
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (c.family == "zatca") dsig->put_UncommonOptions(XString("ZATCA"));
  if (c.family == "myinvois") dsig->put_UncommonOptions(XString("MYINVOIS"));
  RcPtr<ClsBinData> data(ClsBinData::createNewCls());
  data->AppendBinary(bytes.data(), bytes.size());
  if (!dsig->LoadSignatureBd(*data)) return nullptr;
  dsig->put_Selector(c.selector);

  if (c.keyKind == "pubkey") {
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (key->LoadFromFile(XString((corpus + "/" + c.keyPath).c_str()))) dsig->SetPublicKey(*key);
  } else if (c.keyKind == "hmac") {
    XString secret(c.hmacSecret.c_str()), encoding("ascii");
    dsig->SetHmacKey(secret, encoding);
  } else if (c.keyKind == "store") {
    RcPtr<ClsXmlCertVault> vault(ClsXmlCertVault::createNewCls());
    for (const std::string& entry : split(c.keyPath, ';', true))
      vault->AddCertFile(XString((corpus + "/" + entry.substr(entry.find(':') + 1)).c_str()));
    dsig->UseCertVault(*vault);
  }
  for (const std::string& pair : split(c.externalData, ';', true)) {
    const size_t eq = pair.rfind('=');
    supplyExternal(*dsig, pair.substr(0, eq), corpus + "/" + pair.substr(eq + 1));
  }
  // Families: a certificate or attachment supplied in the case directory.
  const std::string caseDir = corpus + "/" + c.xmlPath.substr(0, c.xmlPath.rfind('/'));
  const std::string supplied = "(supplied: ";
  if (c.needs.rfind("a certificate", 0) == 0 && c.needs.find(supplied) != std::string::npos) {
    const size_t at = c.needs.find(supplied) + supplied.size();
    RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
    if (key->LoadFromFile(XString((caseDir + "/" + c.needs.substr(at, c.needs.find(')', at) - at)).c_str())))
      dsig->SetPublicKey(*key);
  }
  const std::string cid = "external data: cid:";
  if (c.needs.rfind(cid, 0) == 0 && c.needs.find("(supplied in case dir)") != std::string::npos) {
    const std::string uri = c.needs.substr(15, c.needs.find(' ', 15) - 15);  // "cid:..."
    supplyExternal(*dsig, uri, caseDir + "/attachment-" + uri.substr(4));
  }
  return dsig;
}

}  // namespace corpuscases
