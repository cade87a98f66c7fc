// Reading a Reference element into a DSigReference.
#include <gtest/gtest.h>

#include <string>

#include "dsig/reference/DSigReference.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

namespace {

void parse(const std::string& xml, DSigReference& ref) {
  _btLogger log;
  RcPtr<ClsXml> element(ClsXml::createNewCls());
  ASSERT_TRUE(element->loadXml(StringBuffer(xml.c_str()), true, log));
  EXPECT_TRUE(ref.parseReference(element.get(), log));
}

}  // namespace

TEST(ReferenceModel, ParseAndLogReference) {
  const std::string transforms =
      "<ds:Transforms>\n  <ds:Transform Algorithm=\"http://www.w3.org/2000/09/xmldsig#enveloped-signature\"/>\n"
      "</ds:Transforms>";
  DSigReference full, bare;
  parse("<ds:Reference xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\" Id=\"r1\" URI=\"\">" + transforms +
            "<ds:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#sha384\"/>"
            "<ds:DigestValue>\n    AbC+\r\n\tdE/f\n    gh==  \n</ds:DigestValue></ds:Reference>",
        full);
  EXPECT_FALSE(full.uriOmitted);  // present, even though empty
  EXPECT_EQ(full.id.str(), "r1");
  EXPECT_EQ(full.transforms.str(), transforms);
  EXPECT_EQ(full.digestValue.str(), "AbC+dE/fgh==");
  EXPECT_EQ(full.getHashAlg(), 2);

  parse("<Reference><DigestValue>AA==</DigestValue></Reference>", bare);
  EXPECT_TRUE(bare.uriOmitted);
  EXPECT_TRUE(bare.transforms.isEmpty());
  EXPECT_EQ(bare.getHashAlg(), 0);  // no digest method is not SHA-1
}
