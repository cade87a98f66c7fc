// Fuzz target: the public canonicalization operations (CanonicalizeXml and
// CanonicalizeFragment), inclusive and exclusive, with and without comments.
#include <memory>
#include <string>

#include "dsig/ClsXmlDSig.h"
#include "fuzz/FuzzTarget.h"
#include "support/XString.h"

namespace fuzz_canonicalize {

inline int run(const uint8_t* data, size_t size) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return 0;
  const std::string text = fuzzsupport::asText(data, size);
  XString xml(text.c_str());

  // The fragment: the value of the first Id attribute, as a signer would reference it.
  std::string id;
  const size_t at = text.find("Id=\"");
  if (at != std::string::npos) {
    const size_t end = text.find('"', at + 4);
    if (end != std::string::npos) id = text.substr(at + 4, end - at - 4);
  }
  XString fragmentId(id.c_str());
  XString prefixes("#default ds xs");

  for (const char* method : {"C14N", "EXCL_C14N"}) {
    for (bool comments : {false, true}) {
      XString version(method);
      XString out;
      dsig->CanonicalizeXml(xml, version, comments, out);
      XString fragmentOut;
      dsig->CanonicalizeFragment(xml, fragmentId, version, prefixes, comments, fragmentOut);
    }
  }
  return 0;
}

}  // namespace fuzz_canonicalize

XMLDSIG_FUZZ_TARGET(fuzz_canonicalize::run)
