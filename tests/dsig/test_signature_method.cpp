// Signature-method URIs to hash identifiers and key types: the first fragment of each
// table that occurs wins.
#include <gtest/gtest.h>

#include "dsig/ClsXmlDSig.h"
#include "support/LogBase.h"

namespace {

struct Row {
  const char* uri;
  int hash;
  int keyType;
};

}  // namespace

TEST(SignatureMethod, HashAndKeyTypeByFragment) {
  const Row rows[] = {
      {"http://www.w3.org/2000/09/xmldsig#rsa-sha1", 1, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256", 7, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha384", 2, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha512", 3, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#rsa-md5", 5, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#rsa-ripemd160", 10, 1},
      // The PSS forms: digest after '#', key type from "-rsa-".
      {"http://www.w3.org/2007/05/xmldsig-more#sha512-rsa-MGF1", 3, 1},
      {"http://www.w3.org/2007/05/xmldsig-more#sha256-rsa-MGF1", 7, 1},
      {"http://www.w3.org/2007/05/xmldsig-more#md2-rsa-MGF1", 4, 1},
      {"http://www.w3.org/2007/05/xmldsig-more#ripemd128-rsa-MGF1", 9, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha384", 2, 3},
      {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha1", 1, 3},
      {"http://www.w3.org/2009/xmldsig11#dsa-sha256", 7, 2},
      {"http://www.w3.org/2000/09/xmldsig#dsa-sha1", 1, 2},
      {"http://www.w3.org/2001/04/xmldsig-more#hmac-sha512", 3, 4},
      {"http://www.w3.org/2000/09/xmldsig#hmac-sha1", 1, 4},
      // SHA-3 after '#' is reported as unimplemented; after '-' it is just unknown.
      {"http://www.w3.org/2007/05/xmldsig-more#sha3-256-rsa-MGF1", -1, 1},
      {"http://www.w3.org/2021/04/xmldsig-more#rsa-sha3-256", 0, 1},
      {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha224", 0, 1},
      // No fragment separator before "rsa-".
      {"urn:example/rsa-sha256", 7, 1},
      {"", 0, -1},
      {"http://example.com/unknown", 0, -1},
      // Matching is case-sensitive.
      {"http://www.w3.org/2000/09/xmldsig#RSA-SHA1", 0, -1},
      // Order: "-sha256" is tested before "-sha1", "#dsa-" before "#rsa-".
      {"urn:x#rsa-sha256-sha1", 7, 1},
      {"urn:x#dsa-x#rsa-sha1", 1, 2},
  };
  LogNull log;
  for (const Row& r : rows) {
    SCOPED_TRACE(r.uri);
    const StringBuffer uri(r.uri);
    EXPECT_EQ(ClsXmlDSig::signatureMethodToHashAlg(uri, log), r.hash);
    EXPECT_EQ(ClsXmlDSig::signatureMethodToKeyType(uri, log), r.keyType);
  }
}
