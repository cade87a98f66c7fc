// Base64 and hex coding of bytes.
#pragma once

#include <cstddef>
#include <string>

class DataBuffer;
class StringBuffer;

class ContentCoding {
 public:
  // Decodes base64 (white space ignored, padding optional at the end) and appends the
  // bytes; false on an invalid character or misplaced padding (the valid prefix is kept).
  static bool decodeBase64ToDb(const char* text, size_t length, DataBuffer& out);
  static void encodeBase64(const void* data, size_t n, StringBuffer& out);  // one line, padded
  // Hex digits (either case, white space ignored) to bytes; false on an odd count or a non-hex byte.
  static bool decodeHexToDb(const char* text, size_t length, DataBuffer& out);
  static void encodeHex(const void* data, size_t n, bool lowerCase, StringBuffer& out);
};
