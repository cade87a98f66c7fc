// Reading the certificate references of a KeyInfo: the parts that key resolution
// (candidate public keys) and certificate collection (GetCerts) share. Both walk the
// same sources in the same order; they differ only in what they produce from a hit.
#pragma once

class ClsXml;
class ClsXmlDSig;
class LogBase;
class StringBuffer;
class StringHashSet;

namespace keyinfo {

// The capacity hint of the set that keeps one resolution from loading a certificate twice.
constexpr int kSeenCertsCapacity = 79;

// X509Data/X509IssuerSerial with a non-empty issuer name and serial number. Logs the serial
// as written and in hex, and gives the issuer's CN and the hex serial to look up. False when
// there is no such reference, the issuer name has no CN, or that certificate was already
// decoded in this resolution (so the store is not asked).
bool issuerSerialToLookUp(ClsXml& keyInfo, const StringHashSet& seen, StringBuffer& issuerCN, StringBuffer& serialHex,
                          LogBase& log);

// X509Data/X509SubjectName with non-empty content, not already decoded in this resolution.
// Gives the DN with its components reversed, the order the store is searched in.
bool subjectNameToLookUp(ClsXml& keyInfo, const StringHashSet& seen, StringBuffer& reversedDn, LogBase& log);

// Reads the URI and ValueType of a SecurityTokenReference/Reference. Only a same-document
// reference ("#id") to an X.509 token is handled; anything else is logged as unhandled
// and gives false.
bool readTokenReference(ClsXml& reference, StringBuffer& uri, StringBuffer& valueType, LogBase& log);

// The element carrying the Id the URI names (without its '#'), located on the document tree:
// null, logged, unless exactly one element carries it and it is a BinarySecurityToken.
ClsXml* findTokenById(ClsXml& root, const StringBuffer& uri, LogBase& log);

// The base64 certificate a token carries: its content, or for an X509PKIPathv1 token the
// last certificate of the path. False when the path cannot be read.
bool tokenCertificateText(ClsXmlDSig& dsig, ClsXml& token, const StringBuffer& valueType, StringBuffer& out,
                          LogBase& log);

}  // namespace keyinfo
