// Reading the XML key-value forms (RSAKeyValue, DSAKeyValue, ECKeyValue and the older
// ECDSAKeyValue) from their serialised text. The elements are small and flat, so they
// are read by a direct scan of the text: any namespace prefix is accepted, and the
// base64 content may be broken by white space or by "&#13;"-style line-end references.
#pragma once

#include <string>
#include <string_view>

class DataBuffer;
class LogBase;
class _btPublicKey;

namespace keyxml {

struct Element {
  std::string_view attributes;  // raw text between the name and the end of the start tag
  std::string_view content;     // raw text between the start and end tags ("" when empty)
};

// The first element with this local name (any prefix or none) in the text.
bool findElement(std::string_view xml, std::string_view localName, Element& out);
// An attribute of a start tag by local name, with the predefined entities expanded.
bool attributeValue(std::string_view attributes, std::string_view localName, std::string& out);
// Decodes base64 content, ignoring white space and white-space character references.
bool decodeBase64Content(std::string_view content, DataBuffer& out);

// Loads whichever key-value element the text holds into key. False, with the reason
// in the log, when none is found or it is malformed.
bool loadKeyValue(std::string_view xml, _btPublicKey& key, LogBase& log);

}  // namespace keyxml
