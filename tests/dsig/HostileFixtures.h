// Fixtures of the hostile-document tests: an RSA key and certificate made by openssl and
// documents signed by xmlsec1 at run time (once per test process, in a temporary
// directory), and a verifier run that returns what a caller sees.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "LogProbe.h"
#include "TestSupport.h"
#include "dsig/ClsXmlDSig.h"
#include "support/XString.h"

namespace hostile {

inline bool shell(const std::string& command) { return std::system(command.c_str()) == 0; }

inline std::string replaceFirst(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << "fixture text has no '" << from << "'";
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// The text between the first start tag "<name...>" and its end tag "</name>".
inline std::string contentOf(const std::string& xml, const std::string& name) {
  const size_t open = xml.find("<" + name);
  const size_t start = open == std::string::npos ? open : xml.find('>', open) + 1;
  const size_t end = xml.find("</" + name + ">", start);
  return start == std::string::npos || end == std::string::npos ? std::string() : xml.substr(start, end - start);
}

// Key, certificate and HMAC secret in a temporary directory, and xmlsec1 to sign with them.
class Signer {
 public:
  static Signer& get() {
    static Signer signer;
    return signer;
  }
  bool ready() const { return m_ready; }
  const std::string& dir() const { return m_dir.path; }
  static constexpr const char* kHmacSecret = "hostile-secret";

  // Signs a template (empty DigestValue/SignatureValue elements) with the RSA key, or
  // with the HMAC secret; Id attributes named ID on Assertion elements of urn:test.
  std::string signRsa(const std::string& tmpl) { return signWith(tmpl, "key"); }
  // Makes NAME.key and NAME.pem (a self-signed certificate) once; newkey is the
  // -newkey argument of openssl req ("rsa:512", "ec -pkeyopt ec_paramgen_curve:P-256").
  bool makeKey(const std::string& name, const std::string& newkey) {
    return shell("cd '" + dir() + "' && { test -s " + name + ".pem || openssl req -x509 -newkey " + newkey +
                 " -nodes -keyout " + name + ".key -out " + name + ".pem -days 3650 -subj /CN=" + name +
                 " >/dev/null 2>&1; }");
  }
  // Signs with the key and certificate makeKey made under that name.
  std::string signWith(const std::string& tmpl, const std::string& name) {
    return sign(tmpl, "--privkey-pem '" + dir() + "/" + name + ".key," + dir() + "/" + name + ".pem'");
  }
  std::string signHmac(const std::string& tmpl) { return sign(tmpl, "--hmackey '" + dir() + "/hmac.bin'"); }

 private:
  Signer() : m_dir("hostile") {
    m_ready = !dir().empty() && makeKey("key", "rsa:2048") &&
              shell("printf '%s' " + std::string(kHmacSecret) + " > '" + dir() + "/hmac.bin'");
  }
  std::string sign(const std::string& tmpl, const std::string& keyArgs) {
    const std::string in = dir() + "/template.xml", out = dir() + "/signed.xml";
    testsupport::writeFile(in, tmpl);
    std::remove(out.c_str());
    if (!shell("xmlsec1 --sign " + keyArgs + " --id-attr:ID urn:test:Assertion --output '" + out + "' '" + in +
               "' 2>'" + dir() + "/xmlsec1.err'")) {
      ADD_FAILURE() << "xmlsec1 could not sign: " << testsupport::readFile(dir() + "/xmlsec1.err");
      return std::string();
    }
    return testsupport::readFile(out);
  }
  testsupport::TempDir m_dir;
  bool m_ready = false;
};

// A SAML-like response: the assertions, then a signature over URI (exclusive c14n of
// the referenced element, after the enveloped-signature transform when URI is the whole
// document; RSA-SHA256 unless told; the certificate in KeyInfo).
inline std::string responseTemplate(const std::string& assertions, const std::string& uri = "#a1",
                                    const std::string& c14n = "http://www.w3.org/2001/10/xml-exc-c14n#",
                                    const std::string& method = "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256") {
  return "<Response xmlns=\"urn:test\" ID=\"r1\">" + assertions +
         "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"><ds:SignedInfo>"
         "<ds:CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>"
         "<ds:SignatureMethod Algorithm=\"" +
         method +
         "\"/>"
         "<ds:Reference URI=\"" +
         uri + "\"><ds:Transforms>" +
         (uri.empty() ? "<ds:Transform Algorithm=\"http://www.w3.org/2000/09/xmldsig#enveloped-signature\"/>" : "") +
         "<ds:Transform Algorithm=\"" + c14n +
         "\"/></ds:Transforms>"
         "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><ds:DigestValue/></ds:Reference>"
         "</ds:SignedInfo><ds:SignatureValue/><ds:KeyInfo><ds:X509Data><ds:X509Certificate/></ds:X509Data>"
         "</ds:KeyInfo></ds:Signature></Response>";
}

inline const std::string kAssertion = "<Assertion ID=\"a1\"><NameID>alice@example.com</NameID></Assertion>";

// What a caller sees of one verification.
struct Outcome {
  bool loaded = false;
  int signatures = 0;
  bool valid = false;
  int reason = -1;
  std::string log;  // the log of the last call, as text
  std::unique_ptr<ClsXmlDSig> dsig;
  bool hasError(const char* text) const { return logprobe::hasError(dsig->m_log, text); }
  // An error, information line or key with this text in the log of the last call.
  bool logged(const char* text) const { return logprobe::find(dsig->m_log.entries(), text) != nullptr; }
};

// Loads the text and verifies signature `selector` with its reference digests. With an
// HMAC secret the verifier gets it as the HMAC key.
inline Outcome verify(const std::string& xml, int selector = 0, const char* hmacSecret = nullptr) {
  Outcome o;
  o.dsig.reset(ClsXmlDSig::createNewCls());
  if (hmacSecret) {
    XString key(hmacSecret), encoding("ascii");
    o.dsig->SetHmacKey(key, encoding);
  }
  XString text;
  text.setFromUtf8(xml.c_str());
  o.loaded = o.dsig->LoadSignature(text);
  o.signatures = o.dsig->get_NumSignatures();
  if (!o.loaded) {
    o.log = o.dsig->lastErrorText();
    return o;
  }
  o.dsig->put_Selector(selector);
  o.valid = o.dsig->VerifySignature(true);
  o.reason = o.dsig->get_RefFailReason();
  o.log = o.dsig->lastErrorText();
  return o;
}

}  // namespace hostile
