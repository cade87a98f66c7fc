// Prints the canonical form of one element of an XML document, identified by its Id, the
// way a signature's reference "#ID" sees it: inclusive Canonical XML 1.0 (the element
// keeps every namespace declaration in scope) and Exclusive XML Canonicalization 1.0 (only
// the namespaces the element uses, plus those named in the prefix list).
//
//   canonicalize_fragment FILE ID ["PREFIX PREFIX..."]
//
// Exit status: 0 written, 2 the file could not be read or has no element with that Id.
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>

#include "dsig/ClsXmlDSig.h"
#include "support/XString.h"

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::fprintf(stderr, "usage: canonicalize_fragment FILE ID [\"PREFIX...\"]\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "%s: cannot be read\n", argv[1]);
    return 2;
  }
  std::ostringstream text;
  text << in.rdbuf();
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return 2;

  XString xml(text.str().c_str());
  XString id(argv[2]);
  XString prefixes(argc == 4 ? argv[3] : "");
  XString inclusive("c14n");  // any value but "excl_c14n" selects Canonical XML 1.0
  XString exclusive("excl_c14n");
  const bool withComments = false;  // as a reference "#ID" sees the element

  XString out;
  if (!dsig->CanonicalizeFragment(xml, id, inclusive, prefixes, withComments, out)) {
    std::fprintf(stderr, "%s: %s\n", argv[1], dsig->lastErrorLine().c_str());
    return 2;
  }
  std::printf("inclusive:\n%s\n", out.getUtf8());

  // The prefix list is used with exclusive canonicalization only.
  if (!dsig->CanonicalizeFragment(xml, id, exclusive, prefixes, withComments, out)) {
    std::fprintf(stderr, "%s: %s\n", argv[1], dsig->lastErrorLine().c_str());
    return 2;
  }
  std::printf("exclusive:\n%s\n", out.getUtf8());
  return 0;
}
