// The ASN.1 <-> XML converter: exact round trips of real certificates, CRLs and
// time-stamp tokens from the corpus and of BER forms; one certificate out of a PKI path.
#include <filesystem>
#include <regex>
#include <string>

#include "CryptoFixtures.h"
#include "crypto/Asn1Xml.h"

using namespace cryptofixtures;

namespace {

// A SEQUENCE around the bytes, with a two-byte length.
DataBuffer sequenceOf(const DataBuffer& body) {
  DataBuffer seq;
  for (unsigned char b : {0x30, 0x82, static_cast<int>(body.getSize() >> 8), static_cast<int>(body.getSize() & 0xff)})
    seq.appendByte(b);
  seq.append(body);
  return seq;
}

// derToXml, parse, xmlToDer; true when the bytes come back unchanged for both layouts.
bool roundTrips(const DataBuffer& der, std::string* xmlOut = nullptr) {
  for (bool indent : {false, true}) {
    LogNull log;
    StringBuffer xml;
    if (!Asn1Xml::derToXml(der, !indent, indent, xml, nullptr, log)) return false;
    RcPtr<ClsXml> root(ClsXml::createNewCls());
    if (!root->loadXml(xml, true, log)) return false;
    DataBuffer back;
    if (!Asn1Xml::xmlToDer(root.get(), back, log) || !back.equals(der)) return false;
    if (xmlOut && !indent) *xmlOut = xml.str();
  }
  return true;
}

}  // namespace

TEST(Asn1Xml, CorpusCertificatesCrlsAndTimeStampTokensRoundTrip) {
  REQUIRE_CORPUS();
  const std::regex b64Re("<([A-Za-z0-9_]+:)?(X509Certificate|EncapsulatedTimeStamp|X509CRL)[^>]*>([^<]+)<");
  int files = 0, embedded = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(testsupport::corpusDir())) {
    const std::string ext = entry.path().extension().string();
    const std::string path = entry.path().string();
    if (ext == ".der" || ext == ".crt" || ext == ".cer") {
      const std::string bytes = testsupport::readFile(path);
      if (bytes.empty() || bytes[0] != 0x30) continue;
      EXPECT_TRUE(roundTrips(DataBuffer(bytes.data(), bytes.size()))) << path;
      ++files;
    } else if (ext == ".xml" && embedded < 400) {
      const std::string xml = testsupport::readFile(path);
      for (std::sregex_iterator it(xml.begin(), xml.end(), b64Re), end; it != end; ++it) {
        const DataBuffer der = fromBase64((*it)[3]);
        if (der.isEmpty()) continue;
        EXPECT_TRUE(roundTrips(der)) << path << " " << (*it)[2].str();
        ++embedded;
      }
    }
  }
  EXPECT_GT(files, 50);
  EXPECT_GT(embedded, 100);
}

// A PkiPath (a SEQUENCE of certificates): the last child converts back to the last certificate.
TEST(Asn1Xml, LastCertificateOfAPath) {
  REQUIRE_SIG_FIXTURES();
  const DataBuffer certs[3] = {file("ca.crt.der"), file("leaf.crt.der"), file("leaf_noext.crt.der")};
  DataBuffer body;
  for (const DataBuffer& c : certs) body.append(c);
  LogNull log;
  StringBuffer xml;
  ASSERT_TRUE(Asn1Xml::derToXml(sequenceOf(body), false, true, xml, nullptr, log));
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  ASSERT_TRUE(root->loadXml(xml, true, log));
  ASSERT_EQ(root->get_NumChildren(), 3);
  ASSERT_TRUE(root->getChild2(2));
  DataBuffer last;
  ASSERT_TRUE(Asn1Xml::xmlToDer(root.get(), last, log));
  EXPECT_TRUE(last.equals(certs[2]));
}

TEST(Asn1Xml, BerFormsAndTextTypesComeBackExactly) {
  const struct {
    const char* hex;
    const char* expectInXml;
  } cases[] = {
      {"300802010005000101FF", "<sequence><int>00</int><null/><bool>FF</bool></sequence>"},
      {"3009060755040301FF0000", "<oid>2.5.4.3.1.16256.0</oid>"},
      {"3080020101"
       "0000",
       "<sequence indefinite=\"1\"><int>01</int></sequence>"},
      {"30810302017F", "<sequence lengthOctets=\"1\"><int>7F</int></sequence>"},
      {"2480040161040162"
       "0000",
       "<octets constructed=\"1\" indefinite=\"1\"><octets>YQ==</octets>"},
      {"0303056080", "<bits unused=\"5\">YIA=</bits>"},
      {"1E0400E90041",
       "<bmp>\xc3\xa9"
       "A</bmp>"},
      {"14024AE9", "<t61 b64=\"1\">Suk=</t61>"},  // Latin-1 byte, not UTF-8
      {"0C063C610D0A0926", "<utf8>&lt;a&#13;&#10;&#9;&amp;</utf8>"},
      {"0C0101", "<utf8 b64=\"1\">AQ==</utf8>"},  // a control character
      {"BF8A3B03020101", "<contextSpecific tag=\"1339\" constructed=\"1\"><int>01</int>"},
      {"A003020102", "<contextSpecific tag=\"0\" constructed=\"1\"><int>02</int></contextSpecific>"},
      {"8001FF", "<contextSpecific tag=\"0\" constructed=\"0\">/w==</contextSpecific>"},
      {"1F2001AA", "<universal tag=\"32\" constructed=\"0\">qg==</universal>"},
      {"060A2B0601040182371402FF", "<raw>BgorBgEEAYI3FAL/</raw>"},  // unterminated last arc
      {"06038001FF", "<raw>"},                                      // non-minimal arc
  };
  for (const auto& c : cases) {
    const DataBuffer der = fromHex(c.hex);
    std::string xml;
    EXPECT_TRUE(roundTrips(der, &xml)) << c.hex << " -> " << xml;
    EXPECT_NE(xml.find(c.expectInXml), std::string::npos) << c.hex << " -> " << xml;
  }
}

TEST(Asn1Xml, InvalidInputFailsWithReason) {
  for (const char* hex : {"", "30", "3005020101", "0485FFFFFFFFFF00"}) {
    _btLogger log;
    StringBuffer xml;
    EXPECT_FALSE(Asn1Xml::derToXml(fromHex(hex), false, false, xml, nullptr, log)) << hex;
    EXPECT_TRUE(xml.isEmpty());
    EXPECT_FALSE(log.lastErrorLine().empty());
  }
  // Nesting far deeper than any real structure is refused, not recursed into.
  std::string deepIndefinite;
  for (int i = 0; i < 5000; ++i) deepIndefinite += "3080";
  for (int i = 0; i < 5000; ++i) deepIndefinite += "0000";
  StringBuffer xml;
  LogNull quiet;
  EXPECT_FALSE(Asn1Xml::derToXml(fromHex(deepIndefinite), false, false, xml, nullptr, quiet));
  DataBuffer nested;
  for (int i = 0; i < 200; ++i) nested = sequenceOf(nested);
  _btLogger log;
  EXPECT_FALSE(Asn1Xml::derToXml(nested, false, false, xml, nullptr, log));
  EXPECT_EQ(log.lastErrorLine(), "ASN.1 nesting is too deep.");
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  ASSERT_TRUE(root->loadXml(StringBuffer("<sequence><int>XYZ</int></sequence>"), true, log));
  DataBuffer der;
  EXPECT_FALSE(Asn1Xml::xmlToDer(root.get(), der, log));
  EXPECT_EQ(log.lastErrorLine(), "Invalid hex content.");
  ASSERT_TRUE(root->loadXml(StringBuffer("<widget/>"), true, log));
  EXPECT_FALSE(Asn1Xml::xmlToDer(root.get(), der, log));
  EXPECT_EQ(log.lastErrorLine(), "Unknown ASN.1 XML element.");
}
