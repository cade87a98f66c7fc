// The ClsXml tree: tag paths, content and attributes, searches, handle lifetime, and
// finding signatures; the reference-counted array that holds them.
#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include "SupportTestHelpers.h"
#include "support/XString.h"
#include "support/xml/XmlScanner.h"

using supporttest::loadTree;

namespace {

RcPtr<ClsXml> load(const std::string& text) {
  LogNull log;
  return loadTree(text, log);
}

std::string contentOf(ClsXml* node, const char* path) {
  StringBuffer sb;
  if (!node->getChildContentUtf8(path, sb, false)) return "<none>";
  return sb.str();
}

std::string attrOf(ClsXml* node, const char* name) {
  StringBuffer sb;
  return node && node->getAttrValue(name, sb) ? sb.str() : "<none>";
}

std::string tagOf(ClsXml* node) { return node ? std::string(node->tagView()) : "<null>"; }

const char* kKeyInfoDoc =
    "<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\" xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\">"
    "<SignedInfo Id=\"a\"/>"
    "<ds:KeyInfo>"
    "<X509Data><X509Certificate>c0</X509Certificate><X509SubjectName>CN=x</X509SubjectName></X509Data>"
    "<ds:X509Data><ds:X509SKI>sk1</ds:X509SKI><X509Certificate>c1</X509Certificate>"
    "<ds:X509Certificate>c2</ds:X509Certificate><X509Certificate>c3</X509Certificate></ds:X509Data>"
    "<X509Data><X509SKI></X509SKI></X509Data>"
    "</ds:KeyInfo></Signature>";

}  // namespace

TEST(ClsXml, TagPathsIndexedStepsAndCounts) {
  RcPtr<ClsXml> sig = load(kKeyInfoDoc);
  ASSERT_TRUE(sig);
  RcPtr<ClsXml> signedInfo(sig->getChildWithTagUtf8("*:SignedInfo"));
  EXPECT_EQ(tagOf(signedInfo.get()), "SignedInfo");
  RcPtr<ClsXml> keyInfo(sig->findChild("*:KeyInfo"));
  ASSERT_TRUE(keyInfo);
  EXPECT_EQ(tagOf(keyInfo.get()), "ds:KeyInfo");
  // A plain tag is the exact qualified name.
  EXPECT_FALSE(RcPtr<ClsXml>(sig->getChildWithTagUtf8("KeyInfo")));
  EXPECT_TRUE(RcPtr<ClsXml>(sig->getChildWithTagUtf8("ds:KeyInfo")));

  // Each step takes the first match, so only the first X509Data is looked into.
  EXPECT_EQ(contentOf(keyInfo.get(), "*:X509Data|*:X509SubjectName"), "CN=x");
  EXPECT_EQ(contentOf(keyInfo.get(), "*:X509Data|*:X509SKI"), "<none>");
  EXPECT_EQ(contentOf(sig.get(), "*:KeyInfo|*:X509Data|*:X509Certificate"), "c0");

  LogNull log;
  RcPtr<ClsXml> data(keyInfo->getNthChildWithTagUtf8("*:X509Data", 1, log));
  ASSERT_TRUE(data);
  EXPECT_EQ(data->numChildrenHavingTagUtf8("*:X509Certificate", log), 3);
  EXPECT_EQ(data->numChildrenHavingTagUtf8("X509Certificate", log), 2);
  for (const auto& [i, content] :
       std::vector<std::pair<int, std::string>>{{2, "c3"}, {0, "c1"}, {3, "<none>"}, {-1, "<none>"}}) {
    data->put_I(i);
    EXPECT_EQ(contentOf(data.get(), "*:X509Certificate[i]"), content) << i;
  }
  // An element that exists with no content: true, nothing appended.
  RcPtr<ClsXml> third(keyInfo->getNthChildWithTagUtf8("*:X509Data", 2, log));
  EXPECT_EQ(contentOf(third.get(), "*:X509SKI"), "");
  EXPECT_FALSE(RcPtr<ClsXml>(keyInfo->getNthChildWithTagUtf8("*:X509Data", 3, log)));

  EXPECT_EQ(keyInfo->get_NumChildren(), 3);
  RcPtr<ClsXml> second(keyInfo->GetChild(1));
  EXPECT_EQ(tagOf(second.get()), "ds:X509Data");
  EXPECT_FALSE(RcPtr<ClsXml>(keyInfo->GetChild(3)));
  EXPECT_TRUE(second->getChild2(0));
  EXPECT_EQ(tagOf(second.get()), "ds:X509SKI");
  EXPECT_FALSE(second->getChild2(0));
  StringBuffer sb;
  EXPECT_TRUE(second->getTagNamespace(sb));
  EXPECT_EQ(sb.str(), "ds");
  EXPECT_TRUE(signedInfo->getTagNamespace(sb));
  EXPECT_EQ(sb.str(), "");
  EXPECT_TRUE(sig->getChildAttrValue("*:SignedInfo", "Id", sb));
  EXPECT_EQ(sb.str(), "a");
  EXPECT_FALSE(sig->getChildAttrValue("*:SignedInfo", "id", sb));
}

TEST(ClsXml, ContentAttributesAndSourceText) {
  const std::string doc =
      "<?xml version=\"1.0\"?>\r\n"
      "<!DOCTYPE r [<!ENTITY co \"ACME &amp; Co\"><!ATTLIST v kind NMTOKEN \"plain\">]>\r\n"
      "<r xmlns:w=\"urn:w\">\r\n"
      "  <w:v a=\"1&#10;2\tx\" b='&co;' >MIIB&#13;\r\nQUFB<![CDATA[<&>]]>&lt;<i>skipped</i>tail</w:v>\r\n"
      "  <v kind=\"  t  \"/>\r\n"
      "  <v x=\"1\"/>\r\n"
      "</r>";
  RcPtr<ClsXml> root = load(doc);
  ASSERT_TRUE(root);
  RcPtr<ClsXml> v(root->getChildWithTagUtf8("*:v"));
  ASSERT_TRUE(v);
  // Direct text and CDATA only, references expanded, CRLF normalised.
  StringBuffer content;
  EXPECT_TRUE(v->getContentSb(content));
  EXPECT_EQ(content.str(), "MIIB\r\nQUFB<&><tail");
  XString x;
  v->get_Content(x);
  EXPECT_EQ(std::string(x.getUtf8()), content.str());

  StringBuffer value;
  EXPECT_TRUE(v->getAttrValue("a", value));
  EXPECT_EQ(value.str(), "1\n2 x");
  EXPECT_TRUE(v->getAttrValue("b", value));
  EXPECT_EQ(value.str(), "ACME & Co");
  EXPECT_FALSE(v->getAttrValue("c", value));
  EXPECT_TRUE(v->HasAttribute("a"));
  EXPECT_FALSE(v->HasAttribute("w:a"));

  // The element's own text exactly as written, prefixes, references and all.
  StringBuffer xmlText("prefix:");
  LogNull log;
  EXPECT_TRUE(v->getXml(false, xmlText, log));
  EXPECT_EQ(xmlText.str(),
            "prefix:<w:v a=\"1&#10;2\tx\" b='&co;' >MIIB&#13;\r\nQUFB<![CDATA[<&>]]>&lt;<i>skipped</i>tail</w:v>");
  EXPECT_EQ(doc.substr(v->sourceStart(), v->sourceEnd() - v->sourceStart()), xmlText.str().substr(7));

  // A DTD default is an attribute of the element; a declared token type collapses spaces.
  RcPtr<ClsXml> plainV(root->getNthChildWithTagUtf8("v", 0, log));
  EXPECT_TRUE(plainV->getAttrValue("kind", value));
  EXPECT_EQ(value.str(), "t");
  EXPECT_EQ(tagOf(RcPtr<ClsXml>(plainV->getParent()).get()), "r");
  RcPtr<ClsXml> defaultedV(root->getNthChildWithTagUtf8("v", 1, log));
  ASSERT_TRUE(defaultedV);
  ASSERT_EQ(defaultedV->get_NumAttributes(), 2);
  EXPECT_TRUE(defaultedV->getAttributeName(1, value));
  EXPECT_EQ(value.str(), "kind");
  EXPECT_TRUE(defaultedV->getAttrValue("kind", value));
  EXPECT_EQ(value.str(), "plain");
  EXPECT_TRUE(defaultedV->getAttributeValue(0, value));
  EXPECT_EQ(value.str(), "1");
}

TEST(ClsXml, SearchesWalkTheSubtreeInDocumentOrder) {
  const std::string doc =
      "<e:Envelope xmlns:e=\"urn:e\" xmlns:wsse=\"urn:s\" xmlns:wsu=\"urn:u\"><e:Header><wsse:Security>"
      "<wsse:BinarySecurityToken wsu:Id=\"t1\" ValueType=\"urn:x#X509PKIPathv1\">a</wsse:BinarySecurityToken>"
      "<wsse:BinarySecurityToken wsu:Id=\"t2\" ValueType=\"urn:x#X509v3\">b</wsse:BinarySecurityToken>"
      "<BinarySecurityToken wsse:ValueType=\"#X509v3\" Id=\"t3\">c</BinarySecurityToken>"
      "</wsse:Security></e:Header><e:Body><Id/></e:Body></e:Envelope>";
  RcPtr<ClsXml> root = load(doc);
  ASSERT_TRUE(root);
  const char* token = "*:BinarySecurityToken";
  RcPtr<ClsXml> t2(root->searchForAttribute(nullptr, token, "*:ValueType", false, "*#X509v3"));
  EXPECT_EQ(attrOf(t2.get(), "wsu:Id"), "t2");
  RcPtr<ClsXml> t3(root->searchForAttribute(t2.get(), token, "*:ValueType", false, "*#X509v3"));
  EXPECT_EQ(attrOf(t3.get(), "Id"), "t3");
  EXPECT_FALSE(RcPtr<ClsXml>(root->searchForAttribute(t3.get(), token, "*:ValueType", false, "*")));
  EXPECT_FALSE(RcPtr<ClsXml>(root->searchForAttribute(nullptr, token, "*:ValueType", false, "X509v3")));
  RcPtr<ClsXml> byId(root->searchForAttribute(nullptr, "*", "*:Id", false, "t1"));
  EXPECT_EQ(tagOf(byId.get()), "wsse:BinarySecurityToken");
  RcPtr<ClsXml> first(root->searchForTag(nullptr, token));
  EXPECT_EQ(attrOf(first.get(), "wsu:Id"), "t1");
  // Confined to the subtree it is called on.
  RcPtr<ClsXml> body(root->getChildWithTagUtf8("*:Body"));
  EXPECT_FALSE(RcPtr<ClsXml>(body->searchForTag(nullptr, token)));
  EXPECT_EQ(tagOf(RcPtr<ClsXml>(body->searchForTag(nullptr, "Id")).get()), "Id");
}

TEST(ClsXml, LocalNamesFollowTheFirstColon) {
  RcPtr<ClsXml> root = load(
      "<r><Signature n=\"1\"/><ds:Signature n=\"2\"/><a:b:Signature n=\"3\"/><xSignature n=\"4\"/>"
      "<ds:SignatureX n=\"5\"/><ds:SignedInfo n=\"6\"/><ure n=\"7\"/><p: n=\"8\"/></r>");
  ASSERT_TRUE(root);
  const auto found = [&](std::initializer_list<const char*> tags) {
    std::string ns;
    for (RcPtr<ClsXml> e(root->searchForAnyTag(nullptr, tags)); e; e.reset(root->searchForAnyTag(e.get(), tags)))
      ns += attrOf(e.get(), "n");
    return ns;
  };
  LogNull log;
  EXPECT_EQ(found({"*:Signature"}), "12");  // "a:b:Signature" has the local name "b:Signature"
  EXPECT_EQ(root->numChildrenHavingTagUtf8("*:Signature", log), 2);
  EXPECT_EQ(found({"*:b:Signature"}), "3");
  EXPECT_EQ(found({"*:SignedInfo", "*:Signature", "ure"}), "1267");
  EXPECT_EQ(found({"Signature", "*:"}), "18");
  EXPECT_EQ(found({"*:ure", "ds:Signatur"}), "7");
  EXPECT_EQ(tagOf(RcPtr<ClsXml>(root->getChildWithTagUtf8("*:SignatureX")).get()), "ds:SignatureX");
}

// The verifier's mode: the tree reads the caller's text in place, and a handle meant to
// outlive that text is moved onto a tree of its own.
TEST(ClsXml, BorrowedTextAndHandlesThatOwnTheirs) {
  auto text = std::make_unique<StringBuffer>(kKeyInfoDoc);
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  LogNull log;
  ASSERT_TRUE(root->loadXmlBorrowed(*text, log));
  RcPtr<ClsXml> certs(root->getChildWithTagUtf8("*:KeyInfo|ds:X509Data"));
  ASSERT_TRUE(certs);
  certs->put_I(2);
  RcPtr<ClsXml> own(certs->handleOwningText());
  ASSERT_TRUE(own);
  // Moved onto a handle of an owning tree, a handle stays on that tree.
  RcPtr<ClsXml> again(own->handleOwningText());
  ASSERT_TRUE(again);
  root.reset();
  certs.reset();
  text.reset();

  EXPECT_EQ(contentOf(own.get(), "*:X509Certificate[i]"), "c3");
  EXPECT_EQ(contentOf(again.get(), "*:X509SKI"), "sk1");
  EXPECT_EQ(own->sourceStart(), std::string(kKeyInfoDoc).find("<ds:X509Data>"));
  RcPtr<ClsXml> keyInfo(own->getParent());
  EXPECT_EQ(tagOf(keyInfo.get()), "ds:KeyInfo");
  EXPECT_EQ(contentOf(keyInfo.get(), "X509Data|X509SubjectName"), "CN=x");

  _btLogger errors;
  RcPtr<ClsXml> bad(ClsXml::createNewCls());
  EXPECT_FALSE(bad->loadXmlBorrowed(StringBuffer("<a><b></a>"), errors));
  EXPECT_TRUE(bad->isEmptyHandle());
  EXPECT_EQ(RcPtr<ClsXml>(bad->handleOwningText()).get(), nullptr);
}

TEST(ClsXml, HandlesKeepTheirTreeAcrossReloadsAndFailedLoadsExplain) {
  _btLogger log;
  RcPtr<ClsXml> root = loadTree(kKeyInfoDoc, log);
  ASSERT_TRUE(root);
  RcPtr<ClsXml> keyInfo(root->getChildWithTagUtf8("*:KeyInfo"));
  ASSERT_TRUE(root->loadXml(StringBuffer("<other><x>1</x></other>"), true, log));
  EXPECT_EQ(contentOf(root.get(), "x"), "1");
  // Releasing the root first leaves the old tree alive for the KeyInfo handle.
  root.reset();
  EXPECT_EQ(contentOf(keyInfo.get(), "*:X509Data|*:X509Certificate"), "c0");
  EXPECT_EQ(keyInfo->getRefCount(), 1);

  RcPtr<ClsXml> empty(ClsXml::createNewCls());
  ASSERT_TRUE(empty);
  EXPECT_FALSE(RcPtr<ClsXml>(empty->getChildWithTagUtf8("*:a")));
  EXPECT_EQ(empty->get_NumChildren(), 0);
  EXPECT_FALSE(empty->loadXml(StringBuffer("<a>\n  <b></c>\n</a>"), false, log));
  EXPECT_EQ(log.lastErrorLine(), "line 2, column 6: end tag </c> does not match start tag <b>");
  EXPECT_TRUE(empty->isEmptyHandle());

  // Nesting at the scanner's depth limit is built, walked and torn down without recursion.
  std::string allowed;
  for (size_t i = 0; i < xml::kMaxElementDepth; ++i) allowed += "<d>";
  allowed += "x";
  for (size_t i = 0; i < xml::kMaxElementDepth; ++i) allowed += "</d>";
  ASSERT_TRUE(empty->loadXml(StringBuffer(allowed), false, log));
  int steps = 0;
  while (empty->getChild2(0)) ++steps;
  EXPECT_EQ(steps, static_cast<int>(xml::kMaxElementDepth) - 1);
  StringBuffer inner;
  EXPECT_TRUE(empty->getContentSb(inner));
  EXPECT_EQ(inner.str(), "x");
}

TEST(ClsXml, FindSignaturesByNamespaceInDocumentOrder) {
  const std::string doc =
      "<root xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\" xmlns:f=\"urn:fake\">"
      "<ds:Signature Id=\"s1\"><ds:SignedInfo/><ds:SignatureValue/>"
      "<ds:Object><Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\" Id=\"s2\"/></ds:Object>"
      "</ds:Signature>"
      "<f:Signature Id=\"fake\"/><Signature Id=\"nons\"/>"
      "<eb:AuthSignature xmlns:eb=\"urn:ebics\" Id=\"s3\"><ds:SignedInfo/><ds:SignatureValue/></eb:AuthSignature>"
      "<Half Id=\"half\"><ds:SignedInfo/></Half>"
      // Found once, though both its name and its children qualify it.
      "<f:Signature Id=\"s4\"><ds:SignatureValue/><ds:SignedInfo/></f:Signature>"
      // The holder comes before the signature nested in it, which precedes its SignedInfo.
      "<eb:Auth xmlns:eb=\"urn:ebics\" Id=\"s5\"><ds:Signature Id=\"s6\"/><ds:SignatureValue/><ds:SignedInfo/></eb:Auth>"
      "</root>";
  RcPtr<ClsXml> root = load(doc);
  ASSERT_TRUE(root);
  ExtPtrArrayRc sigs;
  LogNull log;
  ASSERT_TRUE(root->findSignatures(sigs, log));
  std::vector<std::string> ids;
  for (int i = 0; i < sigs.getSize(); ++i) ids.push_back(attrOf(static_cast<ClsXml*>(sigs.elementAt(i)), "Id"));
  EXPECT_EQ(ids, (std::vector<std::string>{"s1", "s2", "s3", "s4", "s5", "s6"}));

  // The array owns one reference per slot and hands it back on replace and remove.
  EXPECT_EQ(sigs.elementAt(-1), nullptr);
  EXPECT_EQ(sigs.elementAt(sigs.getSize()), nullptr);
  ExtPtrArrayRc slots;
  ClsXml* node = static_cast<ClsXml*>(sigs.elementAt(0));
  node->incRefCount();
  EXPECT_EQ(slots.replaceRefCountedAt(5, node), nullptr);
  EXPECT_EQ(slots.getSize(), 6);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(slots.elementAt(i), nullptr) << i;
  EXPECT_EQ(node->getRefCount(), 2);
  RcPtr<ClsXml> back(static_cast<ClsXml*>(slots.removeRefCountedAt(5)));
  EXPECT_EQ(back.get(), node);
  EXPECT_EQ(slots.getSize(), 5);
  slots.appendRefCounted(back.release());
  slots.removeAllObjects();
  EXPECT_EQ(node->getRefCount(), 1);
}

// Every signed document of the corpus: findSignatures finds as many signatures as the
// manifest lists (EBICS AuthSignature included).
TEST(ClsXml, FindSignaturesOnCorpusDocuments) {
  REQUIRE_CORPUS();
  int checked = 0;
  for (const auto& cols : supporttest::manifestRows("families.tsv")) {
    if (cols.size() < 4) continue;
    int expected = 0;  // "0 ds:Signature + 1 ebics:AuthSignature" counts as 1
    for (size_t i = 0; i < cols[3].size(); ++i)
      if (std::isdigit(static_cast<unsigned char>(cols[3][i])) && (i == 0 || cols[3][i - 1] == ' '))
        expected += std::atoi(cols[3].c_str() + i);
    _btLogger log;
    RcPtr<ClsXml> root = loadTree(testsupport::readFile(testsupport::corpusDir() + "/" + cols[2]), log);
    ASSERT_TRUE(root) << cols[2] << ": " << log.lastErrorLine();
    ExtPtrArrayRc sigs;
    root->findSignatures(sigs, log);
    EXPECT_EQ(sigs.getSize(), expected) << cols[0];
    if (cols[1] == "ebics") {
      ASSERT_GE(sigs.getSize(), 1);
      EXPECT_EQ(static_cast<ClsXml*>(sigs.elementAt(0))->localNameView(), "AuthSignature") << cols[0];
    }
    ++checked;
  }
  EXPECT_GT(checked, 50);
}

// A tree loaded from shared text keeps that text alive as long as a handle on it lives,
// also across a reload of the root.
TEST(ClsXml, SharedTextLivesAsLongAsTheTree) {
  auto text = std::make_shared<const std::string>("<doc xmlns:p=\"urn:p\"><p:a id=\"1\">one</p:a><b/></doc>");
  const std::weak_ptr<const std::string> watch = text;
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  LogNull log;
  ASSERT_TRUE(root->loadXmlShared(std::move(text), log));
  RcPtr<ClsXml> a(root->GetChild(0));
  ASSERT_TRUE(a);
  ASSERT_TRUE(root->loadXmlShared(std::make_shared<const std::string>("<other/>"), log));
  EXPECT_FALSE(watch.expired());
  EXPECT_EQ(a->tagView(), "p:a");
  a.reset();
  EXPECT_TRUE(watch.expired());

  _btLogger errors;
  EXPECT_FALSE(root->loadXmlShared(std::make_shared<const std::string>("<x><y></x>"), errors));
  EXPECT_TRUE(root->isEmptyHandle());
  EXPECT_NE(errors.lastErrorLine().find("line 1, column"), std::string::npos) << errors.lastErrorLine();
}
