// The digest of a reference's final data, computed while the canonicalizer writes it, so
// that the canonical form of a large document is never held in memory. Since the data is
// not kept, it also notes whether the data contains the texts that the steps after the
// digest ask about: the SWIFT SAA namespace (whose LAU block is taken out before hashing)
// and "SignedProperties" (which the ZATCA fallback of the comparison looks for).
#pragma once

#include <string>
#include <string_view>

#include "crypto/_btHash.h"

class DataBuffer;
class LogBase;

class StreamedDigest {
 public:
  bool begin(int hashId, LogBase& log);
  void write(std::string_view piece);
  // Replaces out's contents with the digest of everything written.
  bool finish(DataBuffer& out);

  bool sawSwiftSaaNamespace() const { return m_sawSwiftSaa; }
  bool sawSignedProperties() const { return m_sawSignedProperties; }

 private:
  void watch(std::string_view piece);

  _btIncrementalHash m_hash;
  bool m_ok = false;
  bool m_sawSwiftSaa = false;
  bool m_sawSignedProperties = false;
  std::string m_tail;  // the end of the data so far, for a text split between two pieces
};
