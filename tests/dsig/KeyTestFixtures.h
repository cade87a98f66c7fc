// Test fixtures for key resolution: RSA keys and self-signed certificates made by the
// openssl command line (once per test process, into a temporary directory), and small
// signature documents around a hand-written KeyInfo.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "LogProbe.h"
#include "TestSupport.h"
#include "VerifierTestUtil.h"
#include "crypto/ClsPublicKey.h"
#include "crypto/ClsXmlCertVault.h"
#include "dsig/ClsXmlDSig.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

namespace keyfixtures {

using dsigtest::base64;

inline std::string unbase64(const std::string& text) {
  DataBuffer out;
  ContentCoding::decodeBase64ToDb(text.data(), text.size(), out);
  return std::string(out.view());
}

// Base64 text broken into lines of 64 characters, each line ended by lineEnd.
inline std::string wrap64(const std::string& b64, const std::string& lineEnd) {
  std::string out;
  for (size_t i = 0; i < b64.size(); i += 64) out += b64.substr(i, 64) + lineEnd;
  return out;
}

// A self-signed RSA certificate, as openssl made and sees it.
struct TestCert {
  std::string derPath, certDer, certBase64;
  std::string spkiDer;        // its public key, SubjectPublicKeyInfo DER
  std::string modulusBase64;  // for RSAKeyValue
  std::string sha1Base64;     // SHA-1 of the DER: the WS-Security thumbprint
};

inline bool makeCert(const std::string& dir, const std::string& name, const std::string& subject, int serial,
                     TestCert& cert) {
  const std::string cmd = "cd '" + dir + "' && n=" + name +
                          " && openssl req -x509 -newkey rsa:2048 -nodes -keyout "
                          "$n.key -out $n.pem -days 3650 -subj '" +
                          subject + "' -set_serial " + std::to_string(serial) +
                          " >/dev/null 2>&1 && openssl x509 -in $n.pem -outform DER "
                          "-out $n.der && openssl pkey -in $n.key -pubout -outform DER -out $n.spki && openssl rsa "
                          "-in $n.key -noout -modulus 2>/dev/null | cut -d= -f2 > $n.mod && openssl dgst -sha1 "
                          "-binary $n.der > $n.sha1";
  if (std::system(cmd.c_str()) != 0) return false;
  const std::string base = dir + "/" + name;
  cert.derPath = base + ".der";
  cert.certDer = testsupport::readFile(base + ".der");
  cert.certBase64 = base64(cert.certDer);
  cert.spkiDer = testsupport::readFile(base + ".spki");
  cert.sha1Base64 = base64(testsupport::readFile(base + ".sha1"));
  const std::string modulusHex = testsupport::readFile(base + ".mod");
  DataBuffer modulus;
  ContentCoding::decodeHexToDb(modulusHex.data(), modulusHex.size(), modulus);
  cert.modulusBase64 = base64(std::string(modulus.view()));
  return !cert.certDer.empty() && !cert.spkiDer.empty() && !modulus.isEmpty();
}

struct Fixtures {
  bool ok = false;
  TestCert one;    // CN=Key One, serial 4096 (hex 1000)
  TestCert two;    // CN=Key Two, serial 255 (hex FF)
  TestCert three;  // CN=Key Three, serial 77
  TestCert noCn;   // subject and issuer without a CN
};

// Made once per test process.
inline const Fixtures& fixtures() {
  static const Fixtures made = [] {
    Fixtures f;
    const std::string dir = testsupport::makeTempDir("keys");
    f.ok = !dir.empty() && makeCert(dir, "one", "/C=US/O=Example Org/CN=Key One", 4096, f.one) &&
           makeCert(dir, "two", "/C=US/O=Example Org/CN=Key Two", 255, f.two) &&
           makeCert(dir, "three", "/C=US/O=Example Org/CN=Key Three", 77, f.three) &&
           makeCert(dir, "nocn", "/C=US/O=No Common Name Org", 12, f.noCn);
    return f;
  }();
  return made;
}

#define REQUIRE_KEY_FIXTURES()                                                               \
  do {                                                                                       \
    if (!keyfixtures::fixtures().ok) GTEST_SKIP() << "openssl could not make the test keys"; \
  } while (0)

// A document with one signature whose KeyInfo content is keyInfo (omitted when empty), and
// optional content (e.g. security tokens) placed before the signature.
inline std::string signatureDoc(const std::string& keyInfo, const std::string& before = "") {
  std::string doc =
      "<root xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\""
      " xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd\">" +
      before +
      "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"><ds:SignedInfo/>"
      "<ds:SignatureValue>AA==</ds:SignatureValue>";
  if (!keyInfo.empty()) doc += "<ds:KeyInfo>" + keyInfo + "</ds:KeyInfo>";
  return doc + "</ds:Signature></root>";
}

inline std::string x509Data(const std::vector<std::string>& certsBase64) {
  std::string out = "<ds:X509Data>";
  for (const std::string& c : certsBase64) out += "<ds:X509Certificate>" + c + "</ds:X509Certificate>";
  return out + "</ds:X509Data>";
}

inline std::string rsaKeyValue(const std::string& modulusBase64) {
  return "<ds:KeyValue><ds:RSAKeyValue><ds:Modulus>" + modulusBase64 +
         "</ds:Modulus><ds:Exponent>AQAB</ds:Exponent></ds:RSAKeyValue></ds:KeyValue>";
}

inline std::string issuerSerial(const std::string& issuer, const std::string& serial) {
  return "<ds:X509IssuerSerial><ds:X509IssuerName>" + issuer + "</ds:X509IssuerName><ds:X509SerialNumber>" + serial +
         "</ds:X509SerialNumber></ds:X509IssuerSerial>";
}

const char* const kX509v3 = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-x509-token-profile-1.0#X509v3";

inline std::string tokenReference(const std::string& uri, const std::string& valueType = kX509v3) {
  return "<wsse:SecurityTokenReference><wsse:Reference URI=\"" + uri + "\" ValueType=\"" + valueType +
         "\"/></wsse:SecurityTokenReference>";
}

inline std::string x509v3Token(const std::string& id, const std::string& content,
                               const std::string& valueType = kX509v3) {
  return "<wsse:BinarySecurityToken wsu:Id=\"" + id + "\" ValueType=\"" + valueType +
         "\" EncodingType=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-soap-message-security-1.0#Base64Binary\">" +
         content + "</wsse:BinarySecurityToken>";
}

// A DER SEQUENCE of the given elements (the X509PKIPathv1 form); content under 64 KB.
inline std::string derSequence(const std::string& content) {
  const size_t n = content.size();
  const std::string header = n < 0x80
                                 ? std::string{'\x30', static_cast<char>(n)}
                                 : std::string{'\x30', '\x82', static_cast<char>(n >> 8), static_cast<char>(n & 0xFF)};
  return header + content;
}

// ---- verifier, keys and vaults ----

inline dsigtest::DSigPtr loadedVerifier(const std::string& xml) {
  dsigtest::DSigPtr dsig = dsigtest::newVerifier();
  EXPECT_TRUE(dsigtest::loadText(*dsig, xml)) << dsig->lastErrorText();
  return dsig;
}

inline std::string keyDer(RefCountedObject* key) {
  DataBuffer der;
  LogNull quiet;
  static_cast<ClsPublicKey*>(key)->getPublicKeyDer(false, der, quiet);
  return std::string(der.view());
}

// The public key of a certificate file, loaded the way a caller would.
inline RcPtr<ClsPublicKey> keyFromFile(const std::string& path) {
  RcPtr<ClsPublicKey> key(ClsPublicKey::createNewCls());
  EXPECT_TRUE(key->LoadFromFile(XString(path.c_str()))) << path;
  return key;
}

inline RcPtr<ClsXmlCertVault> vaultWith(const std::vector<std::string>& certFiles) {
  RcPtr<ClsXmlCertVault> vault(ClsXmlCertVault::createNewCls());
  for (const std::string& path : certFiles) EXPECT_TRUE(vault->AddCertFile(XString(path.c_str()))) << path;
  return vault;
}

}  // namespace keyfixtures
