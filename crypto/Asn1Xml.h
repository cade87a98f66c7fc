// Asn1Xml: ASN.1 DER (and BER) rendered as XML and back, so that structures such as
// PKI paths and time-stamp token contents can be read with XML tag paths.
//
// Each element becomes an XML element named after its type:
//   <sequence>, <set>                 children in order
//   <oid>1.2.840.113549.1.7.2</oid>   dotted text
//   <int>00A1</int>, <enum>, <bool>   content octets in upper-case hex
//   <octets>base64</octets>           OCTET STRING content
//   <bits unused="0">base64</bits>    BIT STRING: unused-bit count, then the bits
//   <null/>
//   <utf8>, <printable>, <t61>, <ia5>, <numeric>, <visible>, <bmp>, <utctime>,
//   <gentime>                         the text (UTF-8); with b64="1" the content octets
//                                     in base64 when they are not representable as text
//   <contextSpecific tag="0" constructed="1">, <application ...>, <private ...>,
//   <universal tag="n" constructed="0|1"> (other universal types)
//                                     children when constructed, else base64 content
//   <raw>base64</raw>                 a whole element that could not be rendered exactly
// BER details are kept as attributes so the DER/BER comes back byte for byte:
// indefinite="1" for an indefinite length, lengthOctets="n" for a long-form length
// longer than needed, constructed="1" on a constructed string type.
#pragma once

class ClsXml;
class DataBuffer;
class LogBase;
class StringBuffer;

class Asn1Xml {
 public:
  // Renders the first ASN.1 element of der (normally the outer SEQUENCE) as the root
  // element, appending to xmlOut. withXmlDeclaration prefixes an XML declaration;
  // indent puts each element on its own line, indented by depth. The list argument is
  // reserved (pass null). False, with the reason logged, for bytes that are not ASN.1.
  static bool derToXml(const DataBuffer& der, bool withXmlDeclaration, bool indent, StringBuffer& xmlOut,
                       void* reserved, LogBase& log);

  // The DER of an element of that rendering (with its descendants), replacing der.
  static bool xmlToDer(ClsXml* element, DataBuffer& der, LogBase& log);
};
