// The shortcuts of the element tree and the canonicalizer: tags that are copied from the
// source when they are already canonical (and the near misses that must not be), the
// 16-byte scans for bytes to escape, and trees that share the caller's text.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/ClsXml.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "xml/XmlCanon.h"

namespace {

std::string inclusive(const std::string& xml) {
  XmlCanon canon;
  StringBuffer in(xml.c_str());
  StringBuffer out;
  LogNull log;
  if (!canon.xmlCanonicalize(in, nullptr, 0, out, log)) return "<failed>";
  return out.getString();
}

}  // namespace

TEST(CanonShortcuts, OnlyCanonicalTagsAreCopied) {
  // Already canonical: the output is the input.
  const std::string canonical = "<r a=\"1\" b=\"x y\"><e></e><f c=\"&amp;\">t</f></r>";
  EXPECT_EQ(inclusive(canonical), canonical);
  EXPECT_EQ(inclusive("<r><a b=\"1\"/><c/></r>"), "<r><a b=\"1\"></a><c></c></r>");
  // Near misses, each rewritten.
  EXPECT_EQ(inclusive("<r><a c=\"2\" b=\"1\"/></r>"), "<r><a b=\"1\" c=\"2\"></a></r>");  // order
  EXPECT_EQ(inclusive("<r><a  b=\"1\" ></a ></r>"), "<r><a b=\"1\"></a></r>");            // spaces
  EXPECT_EQ(inclusive("<r><a b='1'/></r>"), "<r><a b=\"1\"></a></r>");                    // quotes
  EXPECT_EQ(inclusive("<r><a b=\"x&#9;y\" c=\"l1\nl2\" d=\"&gt;\"/></r>"),
            "<r><a b=\"x&#x9;y\" c=\"l1 l2\" d=\">\"></a></r>");  // decoded values
  EXPECT_EQ(inclusive("<r xmlns=\"u\"><a xmlns=\"u\" b=\"1\"/></r>"),
            "<r xmlns=\"u\"><a b=\"1\"></a></r>");  // redundant xmlns
  EXPECT_EQ(inclusive("<!DOCTYPE r [<!ATTLIST a d CDATA \"v\">]><r><a b=\"1\"/></r>"),
            "<r><a b=\"1\" d=\"v\"></a></r>");  // DTD default
  EXPECT_EQ(inclusive("<!DOCTYPE r [<!ATTLIST a t NMTOKENS #IMPLIED>]><r><a t=\" x  y \"/></r>"),
            "<r><a t=\"x y\"></a></r>");  // non-CDATA type
  EXPECT_EQ(inclusive("<r xmlns:p=\"urn:b\" xmlns:q=\"urn:a\"><e p:x=\"1\" q:y=\"2\" z=\"3\"/></r>"),
            "<r xmlns:p=\"urn:b\" xmlns:q=\"urn:a\"><e z=\"3\" q:y=\"2\" p:x=\"1\"></e></r>");  // by URI

  // Two names for one attribute are an error, in order or not.
  for (const char* attrs : {"a:x=\"1\" b:x=\"2\"", "b:x=\"2\" a:x=\"1\""}) {
    XmlCanon canon;
    StringBuffer in(("<r xmlns:a=\"u\" xmlns:b=\"u\"><e " + std::string(attrs) + "/></r>").c_str());
    StringBuffer out;
    _btLogger log;
    EXPECT_FALSE(canon.xmlCanonicalize(in, nullptr, 0, out, log));
    EXPECT_NE(log.lastErrorLine().find("have the same namespace and local name"), std::string::npos)
        << log.lastErrorLine();
    EXPECT_EQ(out.getSize(), 0u);
  }
}

TEST(CanonShortcuts, EscapesAtEveryPositionOfLongRuns) {
  // Special bytes before, inside and after 16-byte blocks, in text and attribute values.
  const std::string pad = "0123456789abcdef";
  EXPECT_EQ(inclusive("<r>" + pad + "&gt;" + pad + pad + "&amp;x&#13;\r\n" + pad + "&lt;</r>"),
            "<r>" + pad + "&gt;" + pad + pad + "&amp;x&#xD;\n" + pad + "&lt;</r>");
  EXPECT_EQ(inclusive("<r v=\"" + pad + "&quot;" + pad + "x&lt;&#10;" + pad + "\"/>"),
            "<r v=\"" + pad + "&quot;" + pad + "x&lt;&#xA;" + pad + "\"></r>");
  EXPECT_EQ(inclusive("<r><![CDATA[" + pad + "<&>" + pad + "]]></r>"), "<r>" + pad + "&lt;&amp;&gt;" + pad + "</r>");
}

TEST(ClsXmlShared, TreeKeepsTheCallersTextAlive) {
  auto text = std::make_shared<const std::string>(
      "<doc xmlns:p=\"urn:p\"><p:a id=\"1\">one</p:a><b><c>two</c></b></doc>");
  const std::weak_ptr<const std::string> watch = text;
  RcPtr<ClsXml> root(ClsXml::createNewCls());
  ASSERT_TRUE(root);
  LogNull log;
  ASSERT_TRUE(root->loadXmlShared(std::move(text), log));
  EXPECT_FALSE(watch.expired());  // the tree holds the only reference now

  RcPtr<ClsXml> c(root->getChildWithTagUtf8("b|c"));
  ASSERT_TRUE(c);
  StringBuffer sb;
  ASSERT_TRUE(c->getContentSb(sb));
  EXPECT_STREQ(sb.getString(), "two");
  RcPtr<ClsXml> b(c->getParent());
  ASSERT_TRUE(b);
  EXPECT_EQ(b->tagView(), "b");
  RcPtr<ClsXml> a(root->GetChild(0));
  ASSERT_TRUE(a);
  EXPECT_EQ(a->localNameView(), "a");
  EXPECT_TRUE(a->getAttrValue("id", sb));
  EXPECT_STREQ(sb.getString(), "1");
  EXPECT_EQ(root->getParent(), nullptr);

  // A handle outlives the reload of its root: the old tree and its text stay alive.
  LogNull quiet;
  ASSERT_TRUE(root->loadXmlShared(std::make_shared<const std::string>("<other/>"), quiet));
  EXPECT_FALSE(watch.expired());
  EXPECT_EQ(a->tagView(), "p:a");
  a.reset();
  b.reset();
  c.reset();
  EXPECT_TRUE(watch.expired());

  // Malformed shared text fails with the scanner's located message and empties the handle.
  _btLogger errors;
  EXPECT_FALSE(root->loadXmlShared(std::make_shared<const std::string>("<x><y></x>"), errors));
  EXPECT_TRUE(root->isEmptyHandle());
  EXPECT_NE(errors.lastErrorLine().find("line 1, column"), std::string::npos) << errors.lastErrorLine();
}
