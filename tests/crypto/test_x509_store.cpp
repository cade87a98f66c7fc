// Certificates (fields checked against the openssl command line's output), distinguished
// names, and the certificate store with its vaults; then the corpus: every reference
// by subject name, issuer and serial, or key identifier that a document makes to a
// certificate it embeds is found.
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "CryptoFixtures.h"
#include "crypto/BrantelX509.h"
#include "crypto/CertificateHolder.h"
#include "crypto/ClsXmlCertVault.h"
#include "crypto/DistinguishedName.h"
#include "crypto/SystemCerts.h"
#include "support/XString.h"

using namespace cryptofixtures;

namespace {

std::string text(const std::string& name) {
  std::string s = testsupport::readFile(path(name));
  while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
  return s;
}

std::string canonKey(const std::string& dn) {
  StringBuffer key;
  LogNull log;
  DistinguishedName::toBtCanonHashKey(dn.c_str(), key, log);
  return key.str();
}

std::string serialOf(const BrantelX509* cert) {
  StringBuffer sb;
  if (cert) cert->get_SerialNumber(sb);
  return sb.str();
}

}  // namespace

TEST(X509Fields, MatchOpenSslOutput) {
  REQUIRE_SIG_FIXTURES();
  LogNull log;
  for (const std::string c : {"ca", "leaf", "leaf_noext"}) {
    BrantelX509 cert;
    ASSERT_TRUE(cert.loadX509Der(file(c + ".crt.der"), log)) << c;
    EXPECT_EQ(serialOf(&cert), text(c + ".serial")) << c;
    StringBuffer dn, issuer;
    ASSERT_TRUE(cert.getDN(true, true, dn, log, 0));
    ASSERT_TRUE(cert.getIssuerDN(true, true, issuer, log));
    EXPECT_EQ(canonKey(dn.str()), canonKey(text(c + ".subject"))) << dn.str();
    EXPECT_EQ(canonKey(issuer.str()), canonKey(text(c + ".issuer"))) << issuer.str();
    DataBuffer db;
    ASSERT_TRUE(cert.getSha1Thumbprint(db));
    EXPECT_EQ(hex(db, false), text(c + ".sha1"));
    ASSERT_TRUE(cert.get_PublicKey(db, log));
    EXPECT_TRUE(db.equals(file(c + ".spki.der")));
    ASSERT_TRUE(cert.getCertDer(db));
    EXPECT_TRUE(db.equals(file(c + ".crt.der")));
    StringBuffer cn;
    ASSERT_TRUE(cert.get_IssuerCN(cn, log));
    EXPECT_EQ(cn.str(), "Example Root CA");
    // The leaf without a key identifier extension gets the SHA-1 of its key bits, which is
    // what openssl wrote into the extension of the other leaf (same key).
    if (c == "ca") continue;
    ASSERT_TRUE(cert.getSubjectKeyIdentifier(db, log));
    EXPECT_EQ(hex(db, false), text("leaf.ski")) << c;
  }

  BrantelX509 ca;
  ca.loadX509Der(file("ca.crt.der"), log);
  StringBuffer rfc, encodingOrder;
  ca.getDN(true, true, rfc, log, 0);
  ca.getDN(false, false, encodingOrder, log, 0);
  EXPECT_EQ(rfc.str(), "CN=Example Root CA, O=Example CA, C=FR");
  EXPECT_EQ(encodingOrder.str(), "C=FR,O=Example CA,CN=Example Root CA");
  StringBuffer leafDn;
  BrantelX509 leaf;
  leaf.loadX509Der(file("leaf.crt.der"), log);
  leaf.getDN(true, true, leafDn, log, 0);
  EXPECT_NE(leafDn.str().find("O=Example\\, Inc."), std::string::npos) << leafDn.str();
  EXPECT_NE(leafDn.str().find("CN=Zo\xc3\xab M\xc3\xbcller"), std::string::npos) << leafDn.str();

  _btLogger errLog;
  BrantelX509 bad;
  EXPECT_FALSE(bad.loadX509Der(file("data.bin"), errLog));
  EXPECT_EQ(errLog.lastErrorLine(), "The DER is not an X.509 certificate.");
  DataBuffer withTrailer = file("ca.crt.der");
  withTrailer.appendByte(0);
  EXPECT_FALSE(bad.loadX509Der(withTrailer, errLog));
  EXPECT_FALSE(bad.isLoaded());
}

TEST(DistinguishedNames, CanonicalKeyAndParts) {
  // Order, case, spacing, aliases, OIDs, quoting, escaping and hex values do not matter.
  EXPECT_EQ(canonKey("CN=Alice, O=Example, C=FR"), canonKey("C=fr,O=EXAMPLE ,  CN=alice"));
  EXPECT_EQ(canonKey("E=a@b.c, S=Bayern, OID.2.5.4.5=123, CN=x"),
            canonKey("CN=x,2.5.4.5=123,ST=Bayern,EMAILADDRESS=a@b.c"));
  EXPECT_EQ(canonKey("O=\"Example, Inc.\", C=US"), canonKey("C=US, O=Example\\, Inc."));
  EXPECT_EQ(canonKey("O=Example, Inc., C=US"), canonKey("C=US, O=Example\\, Inc."));  // unescaped comma
  EXPECT_EQ(canonKey("2.5.4.5=#1306323031383033,CN=Citizen CA"), canonKey("SERIALNUMBER=201803, CN=Citizen CA"));
  EXPECT_EQ(canonKey("O=Prvn\\C3\\AD"), canonKey("O=Prvn\xc3\xad"));
  EXPECT_NE(canonKey("CN=Alice, O=Example"), canonKey("CN=Alice, O=Example2"));
  EXPECT_NE(canonKey("CN=Alice, O=Example"), canonKey("CN=Alice, OU=Example"));

  const struct {
    const char *dn, *cn;
  } parts[] = {{"emailAddress=x@y,CN=Aleksey Sanin,OU=Root CA", "Aleksey Sanin"},
               {"OU=x, 2.5.4.3 =  I.CA - Authority\\, 09/2009 ,C=CZ", "I.CA - Authority, 09/2009"},
               {"OU=AC RAIZ FNMT-RCM,O=FNMT-RCM,C=ES", nullptr}};
  for (const auto& p : parts) {
    StringBuffer cn;
    LogNull log;
    EXPECT_EQ(DistinguishedName::getDnPart(p.dn, "CN", cn, log), p.cn != nullptr) << p.dn;
    EXPECT_EQ(cn.str(), p.cn ? p.cn : "");
  }

  XString tagged("CN=Alice, O=Example, C=FR");
  DistinguishedName::removeDnTags(tagged);
  EXPECT_STREQ(tagged.getUtf8(), "Alice, Example, FR");
}

TEST(CertStore, LookupsByIssuerSerialSubjectAndKeyId) {
  REQUIRE_SIG_FIXTURES();
  LogNull log;
  SystemCerts store;
  ASSERT_TRUE(store.addCertFile(path("chain.pem").c_str(), log));
  ASSERT_TRUE(store.addCertDer(file("leaf_noext.crt.der"), log));
  ASSERT_TRUE(store.addCertDer(file("leaf.crt.der"), log));  // already held
  EXPECT_EQ(store.numCerts(), 3);

  const struct {
    const char *serial, *issuerCN, *found;
  } bySerial[] = {{"FF", "Example Root CA", "FF"},
                  {"00ff", " example  ROOT ca", "FF"},
                  {"FF", "Other CA", ""},
                  {"1000", "Example Root CA", "1000"},
                  {"C0FFEE0123456789", "Example Root CA", "C0FFEE0123456789"}};
  for (const auto& b : bySerial) EXPECT_EQ(serialOf(store.findX509(b.serial, b.issuerCN, nullptr, log)), b.found);

  // Subject names as documents write them, in either component order.
  const std::string leafSubject = text("leaf.subject");
  EXPECT_EQ(serialOf(store.findBySubjectDN_x509("", leafSubject.c_str(), true, log)), "FF");
  EXPECT_EQ(serialOf(store.findBySubjectDN_x509("", "C=FR, O=Example CA, CN=Example Root CA", true, log)), "1000");
  EXPECT_EQ(store.findBySubjectDN_x509("", "CN=Nobody, C=FR", true, log), nullptr);
  // An attribute type spelled in a way no table knows: only the values can match.
  const char* oddTypes = "CN=Example Root CA, ORGNAME=Example CA, C=FR";
  XString valuesOnly(oddTypes);
  DistinguishedName::removeDnTags(valuesOnly);
  EXPECT_EQ(store.findBySubjectDN_x509(valuesOnly.getUtf8(), oddTypes, false, log), nullptr);
  EXPECT_EQ(serialOf(store.findBySubjectDN_x509(valuesOnly.getUtf8(), oddTypes, true, log)), "1000");

  // Key identifiers in hex (any case, with colons) or base64, and SHA-1 thumbprints.
  const std::string skiHex = text("leaf.ski");
  std::string colonLower;
  for (size_t i = 0; i < skiHex.size(); i += 2) colonLower += (i ? ":" : "") + skiHex.substr(i, 2);
  for (char& ch : colonLower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  for (const std::string& form : {skiHex, base64(fromHex(skiHex)), colonLower}) {
    CertRecord* rec = store.findBySubjectKeyId(form.c_str(), log);
    ASSERT_NE(rec, nullptr) << form;
    EXPECT_EQ(serialOf(rec->getX509Holder().getX509Ptr()), "FF") << form;
  }
  const std::string thumb = base64(fromHex(text("leaf_noext.sha1")));
  EXPECT_EQ(serialOf(store.findBySubjectKeyId(thumb.c_str(), log)->getX509Ptr()), "C0FFEE0123456789");
  EXPECT_EQ(store.findBySubjectKeyId("AAAAAAAAAAAAAAAAAAAAAAAAAAA=", log), nullptr);
  EXPECT_EQ(store.findBySubjectKeyId("", log), nullptr);
}

TEST(CertStore, VaultsAttachedToAStoreAndHoldersFromText) {
  REQUIRE_SIG_FIXTURES();
  LogNull log;
  ClsXmlCertVault* vault = ClsXmlCertVault::createNewCls();
  ASSERT_TRUE(vault->AddCertDir(XString(path("certdir").c_str())));  // readme.txt skipped
  EXPECT_EQ(vault->get_NumCerts(), 2);
  EXPECT_FALSE(vault->AddCertFile(XString(path("data.bin").c_str())));
  EXPECT_FALSE(vault->AddCertDir(XString("/nonexistent-dir")));
  EXPECT_NE(vault->lastErrorText().find("Failed to read the directory."), std::string::npos);

  SystemCerts store;
  EXPECT_EQ(store.findX509("FF", "Example Root CA", nullptr, log), nullptr);
  ASSERT_TRUE(store.addCertVault(vault->getCertMgr(), log));
  EXPECT_EQ(serialOf(store.findX509("FF", "Example Root CA", nullptr, log)), "FF");
  // Certificates added to the vault later are seen, also after the caller released it.
  const std::string pem = testsupport::readFile(path("leaf_noext.crt.pem"));
  ASSERT_TRUE(vault->AddCertString(XString(pem.c_str())));
  vault->decRefCount();
  EXPECT_EQ(store.numCerts(), 3);
  EXPECT_EQ(serialOf(store.findX509("C0FFEE0123456789", "Example Root CA", nullptr, log)), "C0FFEE0123456789");

  _btLogger errLog;
  EXPECT_FALSE(store.addCertVault(nullptr, errLog));
  CertMgr unshared;
  EXPECT_FALSE(store.addCertVault(&unshared, errLog));
  EXPECT_EQ(errLog.lastErrorLine(), "The certificate manager does not belong to a vault.");

  // A certificate holder made from document text.
  const std::string b64 = base64(file("leaf.crt.der"));
  std::string broken;  // base64 with "&#13;" line ends, as documents carry it
  for (size_t i = 0; i < b64.size(); i += 64) broken += b64.substr(i, 64) + "&#13;\n";
  std::unique_ptr<CertificateHolder> holder = CertificateHolder::createFromBase64(broken.data(), broken.size(), nullptr,
                                                                                  log);
  ASSERT_NE(holder, nullptr);
  CertRecord* rec = holder->getCertPtr(log);
  ASSERT_NE(rec, nullptr);
  EXPECT_EQ(serialOf(rec->getX509Holder().getX509Ptr()), "FF");
  EXPECT_EQ(CertificateHolder::createFromBase64("bm90IGEgY2VydA==", 16, nullptr, log), nullptr);
}

// Documents from real signing software and the interoperability vectors whose X509Data
// refers by subject name, issuer and serial, or SKI to a certificate the document
// embeds: each reference must find it. (References elsewhere, such as XAdES
// certificate references to CAs, often name certificates the document does not carry.)
TEST(CertStore, CorpusReferencesFindTheEmbeddedCertificate) {
  REQUIRE_CORPUS();
  const std::regex x509DataRe("<([A-Za-z0-9_]+:)?X509Data[ >]");
  const std::regex certRe("<([A-Za-z0-9_]+:)?X509Certificate[^>]*>([^<]+)<");
  const std::regex subjectRe("<([A-Za-z0-9_]+:)?X509SubjectName[^>]*>([^<]+)<");
  const std::regex issuerSerialRe(
      "<([A-Za-z0-9_]+:)?X509IssuerName[^>]*>([^<]+)</[^>]+>\\s*<([A-Za-z0-9_]+:)?X509SerialNumber[^>]*>\\s*([0-9]+)\\s*<");
  const std::regex skiRe("<([A-Za-z0-9_]+:)?X509SKI[^>]*>([^<]+)<");
  int checked = 0;
  std::vector<std::string> unresolved;
  LogNull log;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(testsupport::corpusDir())) {
    if (entry.path().extension() != ".xml") continue;
    const std::string xml = testsupport::readFile(entry.path().string());
    if (xml.find("X509Certificate") == std::string::npos) continue;
    SystemCerts store;
    for (std::sregex_iterator it(xml.begin(), xml.end(), certRe), end; it != end; ++it)
      store.addCertBase64(StringBuffer((*it)[2].str()), log);
    if (store.numCerts() == 0) continue;
    const std::string where = entry.path().filename().string();
    // The text of every X509Data element, from its start tag to the next "X509Data>" (a
    // regex over the whole element recurses once per character and overflows the stack).
    std::string refs;
    for (std::sregex_iterator it(xml.begin(), xml.end(), x509DataRe), end; it != end; ++it) {
      const size_t from = static_cast<size_t>(it->position());
      const size_t close = xml.find("X509Data>", from + it->length());
      if (close != std::string::npos) refs += xml.substr(from, close + 9 - from);
    }
    for (std::sregex_iterator it(refs.begin(), refs.end(), subjectRe), end; it != end; ++it, ++checked) {
      const std::string dn = (*it)[2].str();
      if (!store.findBySubjectDN_x509("", dn.c_str(), true, log)) unresolved.push_back(where + " subject " + dn);
    }
    for (std::sregex_iterator it(refs.begin(), refs.end(), issuerSerialRe), end; it != end; ++it, ++checked) {
      XString serial((*it)[4].str().c_str());
      serial.reencode("decimal", "hex");
      StringBuffer cn;
      if (!DistinguishedName::getDnPart((*it)[2].str().c_str(), "CN", cn, log)) continue;
      if (!store.findX509(serial.getUtf8(), cn.getString(), nullptr, log))
        unresolved.push_back(where + " issuer/serial " + (*it)[2].str() + " / " + (*it)[4].str());
    }
    for (std::sregex_iterator it(refs.begin(), refs.end(), skiRe), end; it != end; ++it, ++checked) {
      if (!store.findBySubjectKeyId((*it)[2].str().c_str(), log))
        unresolved.push_back(where + " ski " + (*it)[2].str());
    }
  }
  EXPECT_GT(checked, 40) << "the corpus lost its X509Data references";
  std::string list;
  for (const std::string& u : unresolved) list += u + "\n";
  EXPECT_TRUE(unresolved.empty()) << unresolved.size() << " of " << checked << " unresolved:\n" << list;
}
