// One parsed Reference of a SignedInfo, and the holders of caller-supplied data for
// references that point outside the document.
#pragma once

#include "support/DataBuffer.h"
#include "support/ExtPtrArray.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

class ClsXml;
class LogBase;

class DSigReference {
 public:
  DSigReference() = default;
  virtual ~DSigReference() = default;
  DSigReference(const DSigReference&) = delete;
  DSigReference& operator=(const DSigReference&) = delete;

  // Fills the fields from a Reference element; always true.
  bool parseReference(ClsXml* reference, LogBase& log);
  // Hash identifier of the digest method; 0 when the URI is not a known digest method.
  int getHashAlg() const;
  void logReference(LogBase& log) const;
  // Removes the ebXML header blocks addressed to the next message handler.
  // Cuts the SOAP header blocks addressed to the next handler; false (logged) when they cannot be told exactly.
  static bool removeEbXmlFragments(StringBuffer& xml, LogBase& log);

  bool uriOmitted = true;  // no URI attribute at all
  StringBuffer uri;
  StringBuffer id;
  StringBuffer digestMethod;
  StringBuffer transforms;   // the first Transforms element as XML text, or empty
  StringBuffer digestValue;  // DigestValue content without LF, CR, TAB and space
};

// The external data of one reference: bytes, or the path of a file holding them.
class DSigRefExternalData : public BrantelObject {
 public:
  DataBuffer data;
  XString filePath;
};

// The external data the caller supplied for one signature, by reference index.
class DSigExternalData : public BrantelObject {
 public:
  ExtPtrArray refs;
};
