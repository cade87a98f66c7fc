// Maps a SignatureMethod Algorithm URI to the hash identifier and the key type of the
// verification. Both tables are searched in order and the first fragment found wins:
// several fragments can occur in one URI ("#sha512-rsa-MGF1"), so the order matters.
#include "dsig/ClsXmlDSig.h"

namespace {

struct FragmentRule {
  const char* fragment;
  int result;
};

constexpr FragmentRule kHashRules[] = {
    {"-sha256", 7},     {"#sha256", 7},     {"-sha1", 1},   {"#sha1", 1},   {"-sha384", 2},
    {"#sha384", 2},     {"-sha512", 3},     {"#sha512", 3}, {"-ripemd160", 10}, {"#ripemd160", 10},
    {"-ripemd128", 9},  {"#ripemd128", 9},  {"-md5", 5},    {"#md5", 5},    {"-md2", 4},
    {"#md2", 4},
    // RSA-PSS with a SHA-3 digest: reported by the driver as an unimplemented hash.
    {"#sha3", -1},
};

// "-rsa-" is the RSA-PSS form ("#sha256-rsa-MGF1"); "/rsa-" an RSA method whose URI has
// no '#' before the name.
constexpr FragmentRule kKeyTypeRules[] = {
    {"#dsa-", 2}, {"#rsa-", 1}, {"-rsa-", 1}, {"/rsa-", 1}, {"#hmac-", 4}, {"#ecdsa-", 3},
};

template <size_t N>
int firstMatch(const StringBuffer& uri, const FragmentRule (&rules)[N], int none) {
  for (const FragmentRule& rule : rules)
    if (uri.containsSubstring(rule.fragment)) return rule.result;
  return none;
}

}  // namespace

// Any other digest (SHA-224, or a SHA-3 name after a hyphen) gives 0: the driver goes on
// with an empty hash and the signature then fails at the key step.
int ClsXmlDSig::signatureMethodToHashAlg(const StringBuffer& algorithmUri, LogBase&) {
  return firstMatch(algorithmUri, kHashRules, 0);
}

int ClsXmlDSig::signatureMethodToKeyType(const StringBuffer& algorithmUri, LogBase&) {
  return firstMatch(algorithmUri, kKeyTypeRules, -1);
}
