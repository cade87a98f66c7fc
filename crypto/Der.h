// Small DER reading and writing helpers shared by the signature code (DigestInfo,
// r||s conversion) and the ASN.1/XML converter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace der {

using Bytes = std::vector<uint8_t>;

// Universal tags used by name.
enum : uint8_t {
  kBoolean = 0x01,
  kInteger = 0x02,
  kBitString = 0x03,
  kOctetString = 0x04,
  kNull = 0x05,
  kOid = 0x06,
  kSequence = 0x30,
  kSet = 0x31,
};

// One tag-length-value as found in the input.
struct Tlv {
  uint8_t tagClass = 0;  // 0 universal, 1 application, 2 context, 3 private
  bool constructed = false;
  uint32_t tagNumber = 0;
  size_t headerStart = 0;  // offset of the identifier octet
  size_t contentStart = 0;
  size_t contentLength = 0;  // for indefinite lengths: up to (not including) the end-of-contents
  size_t end = 0;            // offset just past the element (and its end-of-contents octets)
  size_t lengthOctets = 0;   // octets after the initial length octet in long form (0: short form)
  bool indefinite = false;
  bool minimalLength = true;  // false when the long form was used where DER wants shorter
};

// Reads the element at `pos` within data[0, size). False when it is malformed or overruns.
bool readTlv(const uint8_t* data, size_t size, size_t pos, Tlv& out);

void appendLength(Bytes& out, size_t length);
void appendTlv(Bytes& out, uint8_t tag, const uint8_t* content, size_t length);
inline void appendTlv(Bytes& out, uint8_t tag, const Bytes& content) {
  appendTlv(out, tag, content.data(), content.size());
}
// An INTEGER holding the unsigned big-endian value (leading zeros dropped, 0x00 added
// when the top bit is set).
void appendUnsignedInteger(Bytes& out, const uint8_t* value, size_t length);

// Dotted OID text <-> content octets of an OBJECT IDENTIFIER.
bool encodeOid(const char* dotted, Bytes& out);
bool decodeOid(const uint8_t* content, size_t length, std::string& dotted);

// The DER SEQUENCE { INTEGER r, INTEGER s } of an XML-Signature r||s value (two equal
// halves). False when the length is odd or zero.
bool rsToDer(const uint8_t* sig, size_t length, Bytes& out);
// True when the bytes are exactly one SEQUENCE holding two INTEGERs.
bool isSequenceOfTwoIntegers(const uint8_t* data, size_t length);

}  // namespace der
