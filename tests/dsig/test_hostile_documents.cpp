// Documents built to attack a verifier: external entities, entity bombs, extreme
// nesting and sizes, comment injection, signature wrapping, truncated HMACs, forged
// SignedInfo structures and absurd keys. Each must end in a clear error or a false
// verdict (or, for wrapping, the verdict the verifier defines, recorded here); none may
// crash, hang, read a file or open a connection. Signed fixtures come from xmlsec1.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "HostileFixtures.h"
#include "KeyTestFixtures.h"
#include "TestSupport.h"
#include "support/XString.h"

using hostile::contentOf;
using hostile::kAssertion;
using hostile::Outcome;
using hostile::replaceFirst;
using hostile::responseTemplate;
using hostile::Signer;
using hostile::verify;

namespace {

#define REQUIRE_SIGNER()                                                               \
  do {                                                                                 \
    if (!Signer::get().ready()) GTEST_SKIP() << "openssl could not make the test key"; \
  } while (0)

// A loopback TCP port that records whether anything connected to it.
class Listener {
 public:
  Listener() {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&addr), len) != 0 || listen(m_fd, 8) != 0 ||
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0)
      return;
    m_url = "http://127.0.0.1:" + std::to_string(ntohs(addr.sin_port));
  }
  ~Listener() {
    if (m_fd >= 0) close(m_fd);
  }
  const std::string& url() const { return m_url; }
  int connections() {
    int n = 0;
    for (int c; (c = accept(m_fd, nullptr, nullptr)) >= 0; ++n) close(c);
    return n;
  }

 private:
  int m_fd = -1;
  std::string m_url;
};

std::string canonicalize(ClsXmlDSig& dsig, const std::string& xml, bool& ok) {
  XString in(xml.c_str()), version("C14N"), out;
  ok = dsig.CanonicalizeXml(in, version, false, out);
  return out.getUtf8();
}

}  // namespace

// External entities and DTDs: nothing is read or fetched, whether the target is a file
// that exists or a URL on a port that listens.
TEST(HostileDocuments, ExternalEntitiesAreNeverRead) {
  const testsupport::TempDir temp("xxe");
  const std::string& dir = temp.path;
  ASSERT_FALSE(dir.empty());
  const std::string secret = "TOP-SECRET-7731";
  ASSERT_TRUE(testsupport::writeFile(dir + "/secret.txt", secret));
  ASSERT_TRUE(testsupport::writeFile(
      dir + "/leak.dtd", "<!ENTITY leak \"" + secret + "\"><!ATTLIST NameID leaked CDATA \"" + secret + "\">"));
  Listener http;
  ASSERT_FALSE(http.url().empty());
  const std::string body = "<Response xmlns=\"urn:test\"><NameID>BODY</NameID></Response>";
  struct Case {
    const char* what;
    std::string xml;
    const char* error;  // the loader's error, or null when the document loads
  } cases[] = {
      {"general entity on a file",
       "<!DOCTYPE Response [<!ENTITY x SYSTEM \"file://" + dir + "/secret.txt\">]>" + replaceFirst(body, "BODY", "&x;"),
       "External entity 'x' is not loaded"},
      {"general entity on a URL",
       "<!DOCTYPE Response [<!ENTITY x SYSTEM \"" + http.url() + "/x\">]>" + replaceFirst(body, "BODY", "&x;"),
       "External entity 'x' is not loaded"},
      {"parameter entity pulling in a DTD",
       "<!DOCTYPE Response [<!ENTITY % p SYSTEM \"file://" + dir + "/leak.dtd\"> %p;]>" +
           replaceFirst(body, "BODY", "&leak;"),
       "reference to the external parameter entity %p; (external entities are never loaded)"},
      {"external DTD subset on a file", "<!DOCTYPE Response SYSTEM \"file://" + dir + "/leak.dtd\">" + body, nullptr},
      {"external DTD subset on a URL", "<!DOCTYPE Response SYSTEM \"" + http.url() + "/leak.dtd\">" + body, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Outcome o = verify(c.xml);
    EXPECT_EQ(o.loaded, c.error == nullptr);
    if (c.error) {
      EXPECT_NE(o.log.find(c.error), std::string::npos) << o.log;
    }
    bool canonical = false;
    const std::string out = canonicalize(*o.dsig, c.xml, canonical);
    EXPECT_EQ(canonical, c.error == nullptr);
    if (canonical) {
      EXPECT_EQ(out, "<Response xmlns=\"urn:test\"><NameID>BODY</NameID></Response>");
    }
    EXPECT_EQ(o.log.find(secret), std::string::npos);
    EXPECT_EQ(o.dsig->lastErrorText().find(secret), std::string::npos);
  }
  EXPECT_EQ(http.connections(), 0);
}

// A detached reference in a hostile document reads nothing the caller did not allow:
// without ExternalRefDirs (or data set for it) no file is opened, whatever its URI
// names. With ExternalRefDirs the URI is a file name relative to those directories,
// taken as written, so "../" reaches beyond them: the file is hashed (never shown), which
// is why ExternalRefDirs is for documents expected to carry detached references.
TEST(HostileDocuments, DetachedReferencesReadOnlyWhatTheCallerAllows) {
  REQUIRE_SIGNER();
  const testsupport::TempDir temp("detached");
  const std::string& dir = temp.path;
  ASSERT_TRUE(testsupport::writeFile(dir + "/secret.txt", "TOP-SECRET-7731"));
  ASSERT_TRUE(hostile::shell("mkdir '" + dir + "/refs'"));
  const std::string signedXml = Signer::get().signRsa(responseTemplate(kAssertion));
  const std::string reference = "<ds:Reference URI=\"#a1\">";
  for (const std::string& uri : {"file://" + dir + "/secret.txt", dir + "/secret.txt", std::string("../secret.txt")}) {
    SCOPED_TRACE(uri);
    const std::string xml = replaceFirst(
        signedXml, reference,
        "<ds:Reference URI=\"" + uri +
            "\"><ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/>"
            "<ds:DigestValue>AAAA</ds:DigestValue></ds:Reference>" +
            reference);
    Outcome o = verify(xml);
    EXPECT_FALSE(o.valid);
    EXPECT_TRUE(o.hasError("No external data defined for this reference.")) << o.log;
    EXPECT_FALSE(o.logged("usingFile"));

    XString dirs((dir + "/refs").c_str());
    o.dsig->put_ExternalRefDirs(dirs);
    EXPECT_FALSE(o.dsig->VerifySignature(true));
    EXPECT_FALSE(o.logged("usingFile"));  // not even "../secret.txt" beside the directory
    EXPECT_EQ(o.dsig->lastErrorText().find("TOP-SECRET"), std::string::npos);
  }
}

// Entity bombs stop at the expansion bound with a located error, in text and in
// attribute values, on loading and on canonicalization.
TEST(HostileDocuments, EntityBombsStopAtTheExpansionBound) {
  std::string laughs = "<!DOCTYPE r [<!ENTITY l0 \"lol\">";
  for (int i = 1; i <= 9; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) laughs += "&l" + std::to_string(i - 1) + ";";
    laughs += "\">";
  }
  laughs += "]>";
  const std::string big(100000, 'a');
  std::string quadratic = "<!DOCTYPE r [<!ENTITY a \"" + big + "\">]><r>";
  for (int i = 0; i < 100000; ++i) quadratic += "&a;";
  quadratic += "</r>";

  const std::string documents[] = {laughs + "<r>&l9;</r>", laughs + "<r v=\"&l9;\"/>", quadratic};
  for (const std::string& xml : documents) {
    Outcome o = verify(xml);
    EXPECT_FALSE(o.loaded);
    EXPECT_EQ(o.signatures, 0);
    EXPECT_NE(o.log.find("entity expansion exceeds the limit of 33554432"), std::string::npos) << o.log.substr(0, 400);
    bool canonical = true;
    canonicalize(*o.dsig, xml, canonical);
    EXPECT_FALSE(canonical);
  }
}

// Nesting and attribute counts past the scanner's bounds are refused; at the bounds
// the document still loads, its signature is found and it canonicalizes (no walker
// recurses once per level).
TEST(HostileDocuments, ExtremeNestingAndAttributeCounts) {
  auto nested = [](size_t depth, const std::string& inner) {
    std::string xml;
    xml.reserve(depth * 8 + inner.size());
    for (size_t i = 0; i < depth; ++i) xml += "<a>";
    xml += inner;
    for (size_t i = 0; i < depth; ++i) xml += "</a>";
    return xml;
  };
  auto attributes = [](size_t n) {
    std::string xml = "<r";
    for (size_t i = 0; i < n; ++i) xml += " a" + std::to_string(i) + "=\"" + std::to_string(n - i) + "\"";
    return xml + "/>";
  };

  Outcome deep = verify(nested(1000000, ""));
  EXPECT_FALSE(deep.loaded);
  EXPECT_NE(deep.log.find("elements nested deeper than the limit of 5000"), std::string::npos);
  Outcome wide = verify(attributes(100000));
  EXPECT_FALSE(wide.loaded);
  EXPECT_NE(wide.log.find("more attributes than the limit of 50000"), std::string::npos);
  bool canonical = true;
  canonicalize(*wide.dsig, attributes(100000), canonical);
  EXPECT_FALSE(canonical);

  // The signature's Transform element is on the 5000th level.
  const std::string atDepthLimit = nested(4994, responseTemplate(kAssertion));
  Outcome limit = verify(atDepthLimit);
  EXPECT_TRUE(limit.loaded) << limit.log.substr(0, 400);
  EXPECT_EQ(limit.signatures, 1);
  EXPECT_FALSE(limit.valid);  // an unsigned template
  canonicalize(*limit.dsig, atDepthLimit, canonical);
  EXPECT_TRUE(canonical);
  const std::string out = canonicalize(*limit.dsig, attributes(50000), canonical);
  EXPECT_TRUE(canonical);
  EXPECT_EQ(out.compare(0, 26, "<r a0=\"50000\" a1=\"49999\" a"), 0);
}

// A very large text node: loading, canonicalization and verification work in memory
// proportional to the document. (A 1 GB node needs about 4 GB and tens of seconds in a
// debug build, so 128 MB stands for it here.) In the signed element it breaks the
// digest; outside it, the signature still verifies.
TEST(HostileDocuments, HugeTextNode) {
  REQUIRE_SIGNER();
  const std::string signedXml = Signer::get().signRsa(responseTemplate(kAssertion + "<Note>NOTE</Note>"));
  ASSERT_TRUE(verify(signedXml).valid);
  const std::string huge(128u << 20, 'x');
  Outcome inside = verify(replaceFirst(signedXml, "alice@example.com", huge));
  EXPECT_TRUE(inside.loaded);
  EXPECT_FALSE(inside.valid);
  // More canonical text than a verification may write by default: refused before hashing.
  EXPECT_EQ(inside.reason, ClsXmlDSig::kRefFailLimit);
  Outcome outside = verify(replaceFirst(signedXml, "NOTE", huge));
  EXPECT_TRUE(outside.valid) << outside.log.substr(0, 2000);
  bool canonical = false;
  EXPECT_EQ(canonicalize(*outside.dsig, "<r>" + huge + "</r>", canonical).size(), huge.size() + 7);
  EXPECT_TRUE(canonical);
}

// A comment injected into signed text: covered by a WithComments canonicalization of an
// XPointer reference, left out by canonicalization without comments and by a bare-name
// or whole-document reference (which select their data without comments whatever the
// method). A caller that reads the text must therefore take all of it, comments
// skipped.
TEST(HostileDocuments, CommentInjectionIsCoveredOnlyWhenTheMethodKeepsComments) {
  REQUIRE_SIGNER();
  const std::string assertion = "<Assertion ID=\"a1\"><NameID>a@x.com.evil</NameID></Assertion>";
  const std::string withComments = "http://www.w3.org/2001/10/xml-exc-c14n#WithComments";
  struct Case {
    const char* what;
    std::string uri, c14n;
    bool validAfterInjection;
  } cases[] = {
      {"xpointer, with comments", "#xpointer(id('a1'))", withComments, false},
      {"xpointer, without comments", "#xpointer(id('a1'))", "http://www.w3.org/2001/10/xml-exc-c14n#", true},
      {"bare name, with comments", "#a1", withComments, true},
      {"whole document, with comments", "", withComments, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string signedXml = Signer::get().signRsa(responseTemplate(assertion, c.uri, c.c14n));
    ASSERT_TRUE(verify(signedXml).valid) << verify(signedXml).log;
    Outcome o = verify(replaceFirst(signedXml, "a@x.com.evil", "a@x.com<!---->.evil"));
    EXPECT_EQ(o.valid, c.validAfterInjection);
    EXPECT_EQ(o.reason, c.validAfterInjection ? 0 : 1);
  }
}

// Signature wrapping. An Id carried by two elements is refused ("ambiguous Id"), wherever
// the copy stands. A signed assertion moved under another element still verifies next to
// an unsigned one of another Id: the verifier reports whether what it digested is intact,
// not which element the application then reads (see the README's security notes).
TEST(HostileDocuments, SignatureWrapping) {
  REQUIRE_SIGNER();
  const std::string signedXml = Signer::get().signRsa(responseTemplate(kAssertion));
  const std::string original = kAssertion;
  const std::string forged = "<Assertion ID=\"a1\"><NameID>mallory@example.com</NameID></Assertion>";
  const std::string unsignedOne = "<Assertion ID=\"a2\"><NameID>mallory@example.com</NameID></Assertion>";
  struct Case {
    const char* what;
    std::string assertions;
    int reason;
  } cases[] = {
      {"signed assertion moved under Extensions, unsigned one in its place",
       unsignedOne + "<Extensions>" + original + "</Extensions>", 0},
      {"forged copy with the same Id before the original", forged + original, ClsXmlDSig::kRefFailAmbiguousId},
      {"forged copy with the same Id after the original", original + forged, ClsXmlDSig::kRefFailAmbiguousId},
      {"forged assertion in place, original removed", forged, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Outcome o = verify(replaceFirst(signedXml, original, c.assertions));
    EXPECT_EQ(o.valid, c.reason == 0);
    EXPECT_EQ(o.reason, c.reason);
    if (c.reason == ClsXmlDSig::kRefFailAmbiguousId) {
      EXPECT_TRUE(o.hasError("ambiguous Id: \"a1\" identifies 2 elements.")) << o.log;
    }
  }
}

namespace {

// A Response whose signature is an HMAC-SHA1 with HMACOutputLength `bits`, SignedInfo
// written in its exclusive canonical form so that openssl can compute the HMAC over it.
std::string hmacSignedInfo(const std::string& bits, const std::string& digest) {
  return "<ds:SignedInfo xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\"><ds:CanonicalizationMethod "
         "Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"></ds:CanonicalizationMethod><ds:SignatureMethod "
         "Algorithm=\"http://www.w3.org/2000/09/xmldsig#hmac-sha1\"><ds:HMACOutputLength>" +
         bits +
         "</ds:HMACOutputLength></ds:SignatureMethod><ds:Reference URI=\"#a1\"><ds:Transforms><ds:Transform "
         "Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"></ds:Transform></ds:Transforms><ds:DigestMethod "
         "Algorithm=\"http://www.w3.org/2000/09/xmldsig#sha1\"></ds:DigestMethod><ds:DigestValue>" +
         digest + "</ds:DigestValue></ds:Reference></ds:SignedInfo>";
}
std::string hmacResponse(const std::string& signedInfo, const std::string& value) {
  return "<Response xmlns=\"urn:test\" ID=\"r1\">" + kAssertion +
         "<ds:Signature xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\">" + signedInfo + "<ds:SignatureValue>" + value +
         "</ds:SignatureValue></ds:Signature></Response>";
}

// HMAC-SHA1 of the text under the test secret, cut to `bits` bits (base64), by openssl.
std::string opensslHmac(const std::string& text, int bits) {
  const std::string dir = Signer::get().dir();
  testsupport::writeFile(dir + "/hmac-input", text);
  if (!hostile::shell("openssl dgst -sha1 -hmac " + std::string(Signer::kHmacSecret) + " -binary '" + dir +
                      "/hmac-input' > '" + dir + "/hmac-output'"))
    return "openssl failed";
  std::string mac = testsupport::readFile(dir + "/hmac-output").substr(0, (bits + 7) / 8);
  if (bits % 8) mac.back() = static_cast<char>(mac.back() & (0xff << (8 - bits % 8)));
  return keyfixtures::base64(mac);
}

}  // namespace

// HMAC output lengths: a value is accepted only as the whole HMAC, never truncated to
// what HMACOutputLength claims (0, 8, 79 or 80 bits), however it was computed.
TEST(HostileDocuments, TruncatedHmacIsNeverAccepted) {
  REQUIRE_SIGNER();
  const char* secret = Signer::kHmacSecret;
  // xmlsec1 signs the full and the 80-bit forms; the SignedInfo text it signed must be
  // the one written here, so that openssl's HMACs of the other lengths are over it too.
  const std::string full = Signer::get().signHmac(hmacResponse(hmacSignedInfo("160", ""), ""));
  const std::string digest = contentOf(full, "ds:DigestValue");
  ASSERT_EQ(opensslHmac(hmacSignedInfo("160", digest), 160), contentOf(full, "ds:SignatureValue"));
  EXPECT_TRUE(verify(full, 0, secret).valid);
  Outcome eighty = verify(Signer::get().signHmac(hmacResponse(hmacSignedInfo("80", ""), "")), 0, secret);
  EXPECT_FALSE(eighty.valid);
  EXPECT_TRUE(eighty.hasError("HMAC validation failed."));

  for (int bits : {0, 8, 79, 80, 160}) {
    SCOPED_TRACE(bits);
    const std::string signedInfo = hmacSignedInfo(std::to_string(bits), digest);
    Outcome o = verify(hmacResponse(signedInfo, opensslHmac(signedInfo, bits)), 0, secret);
    EXPECT_EQ(o.valid, bits == 160);
    // Zero bits leave the SignatureValue empty, which counts as no value at all.
    EXPECT_EQ(o.hasError("HMAC validation failed."), bits != 160 && bits != 0);
    EXPECT_EQ(o.hasError("Unable to find the SignatureValue element."), bits == 0);
  }
}

// Forged SignedInfo structures over changed content: the digest of the forgery hidden in
// a comment of DigestValue, a second SignedInfo, a reference that resolves to nothing,
// an empty SignatureValue, a reference whose canonicalization fails. All fail.
TEST(HostileDocuments, ForgedSignedInfoStructuresFail) {
  REQUIRE_SIGNER();
  const std::string forgedAssertion = "<Assertion ID=\"a1\"><NameID>mallory@example.com</NameID></Assertion>";
  const std::string signedXml = Signer::get().signRsa(responseTemplate(kAssertion));
  ASSERT_TRUE(verify(signedXml).valid);
  // The digest that the forged content has (xmlsec1 computes it by signing the forgery).
  const std::string forgedSigned = Signer::get().signRsa(responseTemplate(forgedAssertion));
  const std::string digest = contentOf(signedXml, "ds:DigestValue");
  const std::string forgedDigest = contentOf(forgedSigned, "ds:DigestValue");
  const std::string signedInfo = "<ds:SignedInfo>" + contentOf(signedXml, "ds:SignedInfo") + "</ds:SignedInfo>";
  const std::string forgedSignedInfo = replaceFirst(signedInfo, digest, forgedDigest);
  const std::string forgedXml = replaceFirst(signedXml, kAssertion, forgedAssertion);
  const std::string signatureValue = contentOf(signedXml, "ds:SignatureValue");

  struct Case {
    const char* what;
    std::string xml;
    int reason;
    const char* error;
  } cases[] = {
      {"forged digest in a comment before the stored one",
       replaceFirst(forgedXml, digest, "<!--" + forgedDigest + "-->" + digest), 1, nullptr},
      {"forged digest in a comment after the stored one",
       replaceFirst(forgedXml, digest, digest + "<!--" + forgedDigest + "-->"), 1, nullptr},
      {"only a comment with the forged digest", replaceFirst(forgedXml, digest, "<!--" + forgedDigest + "-->"), 1,
       nullptr},
      {"forged SignedInfo before the signed one", replaceFirst(forgedXml, signedInfo, forgedSignedInfo + signedInfo), 0,
       "The Signature's children are out of order or repeated at <ds:SignedInfo>."},
      {"forged SignedInfo after the signed one", replaceFirst(forgedXml, signedInfo, signedInfo + forgedSignedInfo), 0,
       "The Signature's children are out of order or repeated at <ds:SignedInfo>."},
      {"reference to an Id nobody has", replaceFirst(signedXml, "URI=\"#a1\"", "URI=\"#a9\""), 5, nullptr},
      {"signed element's Id renamed", replaceFirst(signedXml, "ID=\"a1\"", "ID=\"a9\""), 5, nullptr},
      {"empty SignatureValue", replaceFirst(signedXml, signatureValue, ""), 0,
       "Unable to find the SignatureValue element."},
      {"reference through an XPointer the canonicalizer does not know",
       replaceFirst(signedXml, "URI=\"#a1\"", "URI=\"#xpointer(//Assertion)\""), 5, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Outcome o = verify(c.xml);
    EXPECT_TRUE(o.loaded);
    EXPECT_FALSE(o.valid);
    EXPECT_EQ(o.reason, c.reason) << o.log;
    if (c.error) {
      EXPECT_TRUE(o.hasError(c.error)) << o.log;
    } else {
      EXPECT_TRUE(o.hasError("Failed to verify reference digest")) << o.log;
    }
  }
}

namespace {

// n random bytes (base64) from openssl, the first byte with its top bit set (a modulus
// of exactly 8n bits) and the last one odd.
std::string randomModulus(int bytes) {
  const std::string path = Signer::get().dir() + "/random";
  if (!hostile::shell("openssl rand -out '" + path + "' " + std::to_string(bytes))) return std::string();
  std::string raw = testsupport::readFile(path);
  raw.front() = static_cast<char>(raw.front() | 0x80);
  raw.back() = static_cast<char>(raw.back() | 1);
  return keyfixtures::base64(raw);
}

std::string withKeyInfo(const std::string& signedXml, const std::string& keyInfoContent) {
  return replaceFirst(signedXml, contentOf(signedXml, "ds:KeyInfo"), keyInfoContent);
}

std::string rsaKeyValue(const std::string& modulus) {
  return "<ds:KeyValue><ds:RSAKeyValue><ds:Modulus>" + modulus +
         "</ds:Modulus><ds:Exponent>AQAB</ds:Exponent></ds:RSAKeyValue></ds:KeyValue>";
}
std::string x509(const std::string& certBase64) {
  return "<ds:X509Data><ds:X509Certificate>" + certBase64 + "</ds:X509Certificate></ds:X509Data>";
}

}  // namespace

// Absurd values where keys and signature values are read: huge base64 texts,
// certificates whose DER lengths lie, RSA moduli of extreme sizes, curves OpenSSL does
// not know. Each gives a false verdict with the verifier's error for it.
TEST(HostileDocuments, AbsurdKeysAndValuesFailClearly) {
  REQUIRE_SIGNER();
  const std::string signedXml = Signer::get().signRsa(responseTemplate(kAssertion));
  ASSERT_TRUE(verify(signedXml).valid);
  const std::string signatureValue = contentOf(signedXml, "ds:SignatureValue");
  const std::string hugeBase64(16u << 20, 'Q');
  const std::string cert = contentOf(signedXml, "ds:X509Certificate");
  const std::string modulus16k = randomModulus(2048), modulus64k = randomModulus(8192);
  const std::string noKey = "No public key available to verify signature.";
  struct Case {
    const char* what;
    std::string xml;
    std::string message;
  } cases[] = {
      {"16 MB SignatureValue", replaceFirst(signedXml, signatureValue, hugeBase64), "Not the correct key."},
      {"16 MB certificate", withKeyInfo(signedXml, x509(hugeBase64)), noKey},
      {"certificate claiming 2 GB", withKeyInfo(signedXml, x509(keyfixtures::base64("\x30\x84\x7f\xff\xff\xff\x30"))),
       noKey},
      {"certificate claiming 2^64 bytes",
       withKeyInfo(signedXml, x509(keyfixtures::base64("\x30\x88\xff\xff\xff\xff\xff\xff\xff\xff\x02\x01\x01"))),
       noKey},
      {"certificate cut in half", withKeyInfo(signedXml, x509(cert.substr(0, cert.size() / 2))), noKey},
      {"16384-bit modulus", withKeyInfo(signedXml, rsaKeyValue(modulus16k)), "Not the correct key."},
      {"16384-bit modulus and value",
       replaceFirst(withKeyInfo(signedXml, rsaKeyValue(modulus16k)), signatureValue, randomModulus(2048)),
       "RSA verify hash found the signature to be invalid."},
      // Moduli beyond 16384 bits are refused when the key is built, before any arithmetic.
      {"65536-bit modulus and value",
       replaceFirst(withKeyInfo(signedXml, rsaKeyValue(modulus64k)), signatureValue, randomModulus(8192)),
       "Public key refused: the RSA modulus has 65536 bits, outside 512 to 16384."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Outcome o = verify(c.xml);
    EXPECT_TRUE(o.loaded);
    EXPECT_FALSE(o.valid);
    EXPECT_TRUE(o.logged(c.message.c_str())) << o.log.substr(o.log.find("SignatureMethod:"), 3000);
  }
}

// Key strength is not judged: a 512-bit RSA signature verifies like any other (whether
// such a signer is acceptable is the caller's decision, as with certificate trust).
// An EC key on a curve OpenSSL does not know is no key at all.
TEST(HostileDocuments, WeakAndUnknownKeys) {
  REQUIRE_SIGNER();
  Signer& signer = Signer::get();
  ASSERT_TRUE(signer.makeKey("rsa512", "rsa:512"));
  Outcome weak = verify(signer.signWith(responseTemplate(kAssertion), "rsa512"));
  EXPECT_TRUE(weak.valid) << weak.log;

  ASSERT_TRUE(signer.makeKey("p256", "ec -pkeyopt ec_paramgen_curve:P-256"));
  const std::string ecSigned = signer.signWith(
      responseTemplate(kAssertion, "#a1", "http://www.w3.org/2001/10/xml-exc-c14n#",
                       "http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha256"),
      "p256");
  ASSERT_TRUE(verify(ecSigned).valid) << verify(ecSigned).log;
  // The certificate with its curve OID (1.2.840.10045.3.1.7) replaced by an unknown
  // one of the same length (1.3.6.1.4.1.99999.7).
  const std::string cert = contentOf(ecSigned, "ds:X509Certificate");
  const std::string p256Oid("\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07", 10);
  const std::string unknownOid("\x06\x08\x2b\x06\x01\x04\x01\x86\x8d\x1f", 10);
  const std::string unknownCert = keyfixtures::base64(replaceFirst(keyfixtures::unbase64(cert), p256Oid, unknownOid));
  Outcome patched = verify(replaceFirst(ecSigned, cert, unknownCert));
  EXPECT_FALSE(patched.valid);
  EXPECT_TRUE(patched.hasError("No public key available to verify signature.")) << patched.log;
  const std::string ecKeyValue =
      "<ds:KeyValue><dsig11:ECKeyValue xmlns:dsig11=\"http://www.w3.org/2009/xmldsig11#\"><dsig11:NamedCurve "
      "URI=\"urn:oid:1.3.6.1.4.1.99999.7\"/><dsig11:PublicKey>BEFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFB"
      "QUFBQUFBQUFBQUFBQUFBQUFBQUFBQUFBQUE=</dsig11:PublicKey></dsig11:ECKeyValue></ds:KeyValue>";
  Outcome keyValue = verify(withKeyInfo(ecSigned, ecKeyValue));
  EXPECT_FALSE(keyValue.valid);
  EXPECT_TRUE(keyValue.hasError("No public key available to verify signature.")) << keyValue.log;
}
