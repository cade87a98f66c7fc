// Fuzz target: loading a document as text (LoadSignature) and as bytes in any encoding
// (LoadSignatureBd), then the queries that walk the loaded signatures: selection by
// index and by Id, reference counts and URIs, KeyInfo, certificates and public keys,
// time-stamp presence, and the log rendering a caller reads.
#include <memory>
#include <string>

#include "crypto/ClsPublicKey.h"
#include "dsig/ClsXmlDSig.h"
#include "fuzz/FuzzTarget.h"
#include "support/ClsBinData.h"
#include "support/ClsStringArray.h"
#include "support/ClsXml.h"
#include "support/RefCountedObject.h"
#include "support/XString.h"

namespace fuzz_load {

inline void walkSignatures(ClsXmlDSig& dsig) {
  const int count = dsig.get_NumSignatures();
  fuzzsupport::check(count >= 0, "load", "negative signature count");
  for (int i = 0; i < count && i < 8; ++i) {
    dsig.put_Selector(i);
    fuzzsupport::check(dsig.get_Selector() == i, "load", "selector not kept");
    const int refs = dsig.get_NumReferences();
    for (int r = 0; r < refs && r < 8; ++r) {
      XString uri;
      dsig.ReferenceUri(r, uri);
      dsig.IsReferenceExternal(r);
    }
    RcPtr<ClsXml> keyInfo(dsig.GetKeyInfo());
    RcPtr<ClsPublicKey> key(dsig.GetPublicKey());
    RcPtr<ClsStringArray> certs(ClsStringArray::createNewCls());
    if (certs) dsig.GetCerts(*certs);
    dsig.HasEncapsulatedTimeStamp();
  }
  dsig.SelectSignatureById(XString("sig"));
  dsig.lastErrorText();
}

inline int run(const uint8_t* data, size_t size) {
  std::unique_ptr<ClsXmlDSig> dsig(ClsXmlDSig::createNewCls());
  if (!dsig) return 0;

  XString text;
  text.setFromUtf8(fuzzsupport::asText(data, size).c_str());
  if (dsig->LoadSignature(text)) walkSignatures(*dsig);
  else fuzzsupport::check(dsig->get_NumSignatures() == 0, "load", "failed load left signatures");

  RcPtr<ClsBinData> bytes(ClsBinData::createNewCls());
  bytes->AppendBinary(data, size);
  if (dsig->LoadSignatureBd(*bytes)) walkSignatures(*dsig);
  else fuzzsupport::check(dsig->get_NumSignatures() == 0, "load", "failed load left signatures");
  return 0;
}

}  // namespace fuzz_load

XMLDSIG_FUZZ_TARGET(fuzz_load::run)
