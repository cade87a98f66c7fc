// DistinguishedName: reading distinguished names as documents write them
// ("CN=Alice, O=Example, C=FR", in either component order, with quoted or escaped
// values, attribute types as short names, long names or OIDs) and comparing them.
#pragma once

#include <string>
#include <vector>

class LogBase;
class StringBuffer;
class XString;

class DistinguishedName {
 public:
  struct Component {
    std::string type;   // canonical attribute type: "CN", "O", "EMAILADDRESS", or a dotted OID
    std::string value;  // unquoted, unescaped UTF-8
  };

  // Splits a DN into its components in written order: separators are unescaped ','
  // (and '+' inside multi-valued RDNs) outside quotes; a piece without "TYPE=" is taken
  // as the rest of the previous value (an unescaped comma inside it). False for text
  // with no component.
  static bool parse(const char* dn, std::vector<Component>& out);

  // The value of the first component of that attribute type (aliases and OIDs accepted,
  // "CN" matches "2.5.4.3"), trimmed. False when the DN has none.
  static bool getDnPart(const char* dn, const char* type, StringBuffer& out, LogBase& log);

  // A key equal for two texts of the same name, whatever their component order, case,
  // white space, quoting, escaping or type aliases: the components as TYPE=value with
  // the value case-folded and its white space collapsed, sorted, joined with ','.
  // Replaces out. False when the DN has no component.
  static bool toBtCanonHashKey(const char* dn, StringBuffer& out, LogBase& log);
  static std::string canonicalKey(const std::vector<Component>& components);

  // The values alone, in written order, joined with ", " ("CN=A, O=B" gives "A, B").
  static void removeDnTags(XString& dn);
  static void removeDnTags(const char* dn, StringBuffer& out);

  // The canonical attribute type of a written type ("e", "OID.2.5.4.5", "2.5.4.3", "S").
  static std::string canonicalType(const std::string& writtenType);
  // The name used when writing a DN for a dotted OID ("2.5.4.3" gives "CN"; an OID
  // without a name gives "OID." and the OID).
  static std::string displayTypeForOid(const std::string& oid);
  // A value escaped for writing in a DN.
  static std::string escapeValue(const std::string& value);
  // Case-folded (ASCII) value with white space collapsed and trimmed.
  static std::string normalizeValue(const std::string& value);
};
