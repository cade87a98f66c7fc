// Key sources of a KeyInfo beyond literal key values and embedded certificates: keys in
// DER form, certificates named by their digest, and KeyInfo content reached through a
// same-document reference (KeyInfoReference, RetrievalMethod).
#pragma once

class ClsXml;
class ClsXmlDSig;
class ExtPtrArrayRc;
class LogBase;
class StringHashSet;

namespace keyinfo {

// Every DEREncodedKeyValue child (a SubjectPublicKeyInfo of any supported key type).
void appendDerEncodedKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log);

// Certificates of the caller's store whose digest an X509Data/X509Digest gives.
// (Certificates embedded in the same KeyInfo are candidates already.)
void appendX509DigestKeys(ClsXmlDSig& dsig, ClsXml& keyInfo, ExtPtrArrayRc& keys, LogBase& log);

// The same-document element a URI "#id" names (Id attribute, first in document order),
// or null for any other URI: keys are never fetched from outside the document.
ClsXml* sameDocumentElement(ClsXml& root, const char* uri);

}  // namespace keyinfo
