// Fuzz target: ASN.1 DER/BER rendered as XML (Asn1Xml::derToXml). What renders must
// parse as XML and encode back (xmlToDer) to the bytes of the element it came from.
#include <memory>
#include <string>

#include "crypto/Asn1Xml.h"
#include "fuzz/FuzzTarget.h"
#include "support/ClsXml.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/RefCountedObject.h"
#include "support/StringBuffer.h"

namespace fuzz_asn1 {

inline int run(const uint8_t* data, size_t size) {
  const DataBuffer der(data, size);
  LogNull log;
  for (bool declaration : {false, true}) {
    StringBuffer xml;
    if (!Asn1Xml::derToXml(der, declaration, declaration, xml, nullptr, log)) return 0;

    RcPtr<ClsXml> root(ClsXml::createNewCls());
    if (!root) return 0;
    fuzzsupport::check(root->loadXml(xml, true, log), "asn1", "rendered XML does not parse");
    DataBuffer back;
    fuzzsupport::check(Asn1Xml::xmlToDer(root.get(), back, log), "asn1", "rendered XML does not encode back");
    fuzzsupport::check(back.getSize() <= size && back.view() == der.view().substr(0, back.getSize()), "asn1",
                       "encoding back changed the bytes");
  }
  return 0;
}

}  // namespace fuzz_asn1

XMLDSIG_FUZZ_TARGET(fuzz_asn1::run)
