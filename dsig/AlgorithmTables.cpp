// The algorithm URI tables. Rows marked "variant" are URIs that signers in use write for a
// known algorithm under the wrong namespace; each still names exactly one digest, so
// accepting it cannot change what a signature covers.
#include "dsig/AlgorithmTables.h"

namespace dsig_algorithms {
namespace {

constexpr KeyType kRsa = KeyType::Rsa;
constexpr KeyType kDsa = KeyType::Dsa;
constexpr KeyType kEcdsa = KeyType::Ecdsa;
constexpr KeyType kHmac = KeyType::Hmac;
constexpr KeyType kEdDsa = KeyType::EdDsa;
constexpr RsaPadding kPkcs1 = RsaPadding::Pkcs1v15;
constexpr RsaPadding kPss = RsaPadding::Pss;
constexpr RsaPadding kNone = RsaPadding::NotRsa;

// Hash identifiers: 1 SHA-1, 2 SHA-384, 3 SHA-512, 5 MD5, 7 SHA-256, 10 RIPEMD-160, 11 SHA-224,
// 12-15 SHA3-224/256/384/512. EdDSA signs SignedInfo itself, so its rows name no digest (0).
// RSA-PSS rows give the defaults that an RSAPSSParams element of the method may override.
constexpr SignatureMethod kSignatureMethods[] = {
    {"http://www.w3.org/2000/09/xmldsig#rsa-sha1", 1, kRsa, kPkcs1},
    {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256", 7, kRsa, kPkcs1},
    {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha384", 2, kRsa, kPkcs1},
    {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha512", 3, kRsa, kPkcs1},
    {"http://www.w3.org/2001/04/xmldsig-more#rsa-md5", 5, kRsa, kPkcs1},
    {"http://www.w3.org/2001/04/xmldsig-more#rsa-ripemd160", 10, kRsa, kPkcs1},
    {"http://www.w3.org/2000/09/xmldsig#rsa-sha256", 7, kRsa, kPkcs1},  // variant
    {"http://www.w3.org/2007/05/xmldsig-more#sha1-rsa-MGF1", 1, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha256-rsa-MGF1", 7, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha384-rsa-MGF1", 2, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha512-rsa-MGF1", 3, kRsa, kPss},
    {"http://www.w3.org/2000/09/xmldsig#dsa-sha1", 1, kDsa, kNone},
    {"http://www.w3.org/2009/xmldsig11#dsa-sha256", 7, kDsa, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha1", 1, kEcdsa, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha256", 7, kEcdsa, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha384", 2, kEcdsa, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha512", 3, kEcdsa, kNone},
    {"http://www.w3.org/2007/05/xmldsig-more#ecdsa-ripemd160", 10, kEcdsa, kNone},
    {"http://www.w3.org/2000/09/xmldsig#hmac-sha1", 1, kHmac, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#hmac-sha256", 7, kHmac, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#hmac-sha384", 2, kHmac, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#hmac-sha512", 3, kHmac, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#hmac-md5", 5, kHmac, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#hmac-ripemd160", 10, kHmac, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#rsa-sha224", 11, kRsa, kPkcs1},
    {"http://www.w3.org/2007/05/xmldsig-more#sha224-rsa-MGF1", 11, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-224-rsa-MGF1", 12, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-256-rsa-MGF1", 13, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-384-rsa-MGF1", 14, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-512-rsa-MGF1", 15, kRsa, kPss},
    {"http://www.w3.org/2007/05/xmldsig-more#rsa-pss", 7, kRsa, kPss},
    {"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha224", 11, kEcdsa, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#ecdsa-sha3-224", 12, kEcdsa, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#ecdsa-sha3-256", 13, kEcdsa, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#ecdsa-sha3-384", 14, kEcdsa, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#ecdsa-sha3-512", 15, kEcdsa, kNone},
    {"http://www.w3.org/2001/04/xmldsig-more#hmac-sha224", 11, kHmac, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#hmac-sha3-224", 12, kHmac, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#hmac-sha3-256", 13, kHmac, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#hmac-sha3-384", 14, kHmac, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#hmac-sha3-512", 15, kHmac, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#eddsa-ed25519", 0, kEdDsa, kNone},
    {"http://www.w3.org/2021/04/xmldsig-more#eddsa-ed448", 0, kEdDsa, kNone},
};

constexpr DigestMethod kDigestMethods[] = {
    {"http://www.w3.org/2000/09/xmldsig#sha1", 1},           {"http://www.w3.org/2001/04/xmlenc#sha256", 7},
    {"http://www.w3.org/2001/04/xmldsig-more#sha384", 2},    {"http://www.w3.org/2001/04/xmlenc#sha512", 3},
    {"http://www.w3.org/2001/04/xmldsig-more#md5", 5},       {"http://www.w3.org/2001/04/xmlenc#ripemd160", 10},
    {"http://www.w3.org/2001/04/xmldsig-more#sha256", 7},  // variant
    {"http://www.w3.org/2000/09/xmldsig#sha256", 7},       // variant
    {"http://www.w3.org/2001/04/xmlenc#sha384", 2},        // variant
    {"http://www.w3.org/2001/04/xmldsig-more#sha512", 3},  // variant
    {"http://www.w3.org/2001/04/xmldsig-more#sha224", 11},   {"http://www.w3.org/2007/05/xmldsig-more#sha3-224", 12},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-256", 13}, {"http://www.w3.org/2007/05/xmldsig-more#sha3-384", 14},
    {"http://www.w3.org/2007/05/xmldsig-more#sha3-512", 15},
};

template <typename Row, size_t N>
const Row *findRow(const Row (&table)[N], std::string_view uri) {
  for (const Row &row : table)
    if (row.uri == uri) return &row;
  return nullptr;
}

}  // namespace

const SignatureMethod *findSignatureMethod(std::string_view uri) { return findRow(kSignatureMethods, uri); }

const DigestMethod *findDigestMethod(std::string_view uri) { return findRow(kDigestMethods, uri); }

}  // namespace dsig_algorithms
