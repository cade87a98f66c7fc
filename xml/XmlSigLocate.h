// Text locators of signatures. They scan the exact document text with the project's
// XML scanner (so comments, CDATA and attribute values that merely contain "<Signature"
// cannot fool them) and report byte offsets into that text.
#pragma once

#include <cstddef>

#include "support/StringBuffer.h"
#include "support/xml/XmlDtd.h"

class LogBase;

class XmlSigLocate {
 public:
  // Also record the XAdES positions (SignatureValue, QualifyingProperties, ...).
  bool m_recordXadesPositions = false;

  // Finds the Signature element (any prefix, XML-Signature namespace or unprefixed) whose
  // Id attribute equals id.
  bool FindXmlSigById(const char* id, const StringBuffer& xmlText, _btXmlDtd& dtd, LogBase& log);
  // Finds the Signature element whose SignedInfo holds a Reference whose DigestValue
  // content (white space removed) equals digestValue.
  bool FindXmlSigByRefDigest(const char* digestValue, const StringBuffer& xmlText, _btXmlDtd& dtd, LogBase& log);

  // After a successful search: the Signature element and its SignedInfo element
  // (start offset of '<' and length through the end tag).
  unsigned m_sigStart = 0;
  unsigned m_sigLength = 0;
  unsigned m_signedInfoStart = 0;
  unsigned m_signedInfoLength = 0;

  // XAdES positions within the found signature (0 = not present), when requested.
  unsigned m_signatureValueLoc = 0;               // start of SignatureValue
  unsigned m_qualifyingPropertiesLoc = 0;         // start tag of QualifyingProperties
  unsigned m_unsignedPropertiesLoc = 0;           // start tag of UnsignedProperties
  unsigned m_unsignedSignaturePropertiesLoc = 0;  // start tag of UnsignedSignatureProperties
  unsigned m_signedPropertiesLoc = 0;             // start of SignedProperties
  unsigned m_signedPropertiesLen = 0;             // its length through the end tag
  unsigned m_objectLoc = 0;                       // start tag of an Object child of the signature
  unsigned m_lastChildLoc = 0;                    // start of the signature's last child element
  unsigned m_lastChildLen = 0;                    // its length through its end tag
};

class XmlSigRemoval {
 public:
  // Writes into out the whole text with every Signature element of the XML-Signature
  // namespace (any prefix, any depth, with all its content) removed, everything else
  // unchanged byte for byte. False when the text cannot be scanned.
  static bool removeSignatures(const StringBuffer& xmlText, _btXmlDtd& dtd, StringBuffer& out, LogBase& log);
};
