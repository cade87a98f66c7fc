// Fuzz target: base64 and hex decoding of arbitrary text, with round-trip checks.
#include <cctype>
#include <string>

#include "fuzz/FuzzTarget.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/StringBuffer.h"

namespace fuzz_coding {

inline int run(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const char* name = "coding";

  // Any bytes come back unchanged through base64 and through hex.
  StringBuffer b64;
  ContentCoding::encodeBase64(data, size, b64);
  DataBuffer back;
  fuzzsupport::check(ContentCoding::decodeBase64ToDb(b64.getString(), b64.getSize(), back), name,
                     "own base64 rejected");
  fuzzsupport::check(back.view() == std::string_view(text, size), name, "base64 round trip changed bytes");
  StringBuffer hex;
  ContentCoding::encodeHex(data, size, true, hex);
  DataBuffer backHex;
  fuzzsupport::check(ContentCoding::decodeHexToDb(hex.getString(), hex.getSize(), backHex), name, "own hex rejected");
  fuzzsupport::check(backHex.view() == std::string_view(text, size), name, "hex round trip changed bytes");

  // The input as base64: whatever decodes must survive encoding and decoding again.
  DataBuffer decoded;
  if (ContentCoding::decodeBase64ToDb(text, size, decoded)) {
    StringBuffer again;
    ContentCoding::encodeBase64(decoded.getData2(), decoded.getSize(), again);
    DataBuffer twice;
    fuzzsupport::check(ContentCoding::decodeBase64ToDb(again.getString(), again.getSize(), twice), name,
                       "re-encoded base64 rejected");
    fuzzsupport::check(twice.equals(decoded), name, "base64 decode/encode/decode not stable");
  }

  // The input as hex: what decodes is the input's digits, lower-cased, without white space.
  DataBuffer fromHex;
  if (ContentCoding::decodeHexToDb(text, size, fromHex)) {
    std::string digits;
    for (size_t i = 0; i < size; ++i)
      if (!std::isspace(data[i])) digits += static_cast<char>(std::tolower(data[i]));
    StringBuffer lower;
    ContentCoding::encodeHex(fromHex.getData2(), fromHex.getSize(), true, lower);
    fuzzsupport::check(lower.view() == digits, name, "hex decode does not match the digits");
  }
  return 0;
}

}  // namespace fuzz_coding

XMLDSIG_FUZZ_TARGET(fuzz_coding::run)
