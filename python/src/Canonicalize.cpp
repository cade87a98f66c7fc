#include "Canonicalize.h"

#include <memory>

#include "dsig/ClsXmlDSig.h"
#include "support/DataBuffer.h"
#include "support/XString.h"

namespace pyxmldsig {

bool canonicalizeBytes(const std::string& bytes, const CanonicalizeRequest& request, std::string& out,
                       std::string& error) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) {
    error = "out of memory";
    return false;
  }
  DataBuffer utf8(bytes.data(), bytes.size());
  if (!utf8.convertXmlToUtf8(dsig->m_log)) {
    error = dsig->lastErrorLine();
    return false;
  }
  XString xml;
  xml.getUtf8Sb_rw().appendN(reinterpret_cast<const char*>(utf8.getData2()), utf8.getSize());

  XString version(request.exclusive ? "excl_c14n" : "c14n");
  XString result;
  bool ok;
  if (request.hasFragment) {
    XString fragment(request.fragment.c_str());
    XString prefixes(request.prefixes.c_str());
    ok = dsig->CanonicalizeFragment(xml, fragment, version, prefixes, request.withComments, result);
  } else {
    ok = dsig->CanonicalizeXml(xml, version, request.withComments, result);
  }
  if (!ok) {
    error = dsig->lastErrorLine();
    if (error.empty()) error = "not canonicalized";
    return false;
  }
  const StringBuffer& sb = result.getUtf8Sb();
  out.assign(sb.getString(), sb.getSize());
  return true;
}

}  // namespace pyxmldsig
