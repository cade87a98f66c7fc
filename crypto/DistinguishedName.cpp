#include "crypto/DistinguishedName.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "crypto/Der.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

namespace {

struct TypeName {
  const char* canonical;
  const char* oid;
  const char* display;
  const char* aliases[4];
};

// Attribute types by OID, with the names writers use for them.
const TypeName kTypes[] = {
    {"CN", "2.5.4.3", "CN", {"COMMONNAME"}},
    {"SURNAME", "2.5.4.4", "SURNAME", {"SN"}},
    {"SERIALNUMBER", "2.5.4.5", "SERIALNUMBER", {"DEVICESERIALNUMBER"}},
    {"C", "2.5.4.6", "C", {"COUNTRYNAME"}},
    {"L", "2.5.4.7", "L", {"LOCALITYNAME"}},
    {"ST", "2.5.4.8", "ST", {"S", "STATEORPROVINCENAME"}},
    {"STREET", "2.5.4.9", "STREET", {"STREETADDRESS"}},
    {"O", "2.5.4.10", "O", {"ORGANIZATIONNAME"}},
    {"OU", "2.5.4.11", "OU", {"ORGANIZATIONALUNITNAME"}},
    {"TITLE", "2.5.4.12", "T", {"T"}},
    {"DESCRIPTION", "2.5.4.13", "DESCRIPTION", {}},
    {"POSTALCODE", "2.5.4.17", "POSTALCODE", {}},
    {"TELEPHONENUMBER", "2.5.4.20", "TELEPHONENUMBER", {}},
    {"NAME", "2.5.4.41", "NAME", {}},
    {"GIVENNAME", "2.5.4.42", "GIVENNAME", {"G", "GN"}},
    {"INITIALS", "2.5.4.43", "INITIALS", {}},
    {"GENERATIONQUALIFIER", "2.5.4.44", "GENERATIONQUALIFIER", {}},
    {"DNQUALIFIER", "2.5.4.46", "DNQUALIFIER", {"DNQ"}},
    {"PSEUDONYM", "2.5.4.65", "PSEUDONYM", {}},
    {"ORGANIZATIONIDENTIFIER", "2.5.4.97", "OID.2.5.4.97", {}},
    {"EMAILADDRESS", "1.2.840.113549.1.9.1", "EMAILADDRESS", {"E", "EMAIL"}},
    {"UNSTRUCTUREDNAME", "1.2.840.113549.1.9.2", "UNSTRUCTUREDNAME", {}},
    {"DC", "0.9.2342.19200300.100.1.25", "DC", {"DOMAINCOMPONENT"}},
    {"UID", "0.9.2342.19200300.100.1.1", "UID", {"USERID"}},
};

std::string upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool looksLikeType(const std::string& t) {
  if (t.empty()) return false;
  for (char c : t)
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_')) return false;
  return true;
}

// UTF-16BE (BMPString) to UTF-8.
std::string utf16beToUtf8(const uint8_t* p, size_t n) {
  std::string out;
  for (size_t i = 0; i + 1 < n; i += 2) {
    uint32_t cp = (static_cast<uint32_t>(p[i]) << 8) | p[i + 1];
    if (cp >= 0xD800 && cp < 0xDC00 && i + 3 < n) {
      const uint32_t lo = (static_cast<uint32_t>(p[i + 2]) << 8) | p[i + 3];
      cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
      i += 2;
    }
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

// "#1306323031383033": the hex of a BER-encoded string value; its text when it is a
// string type, otherwise the hex as written.
std::string decodeHexValue(const std::string& written) {
  std::vector<uint8_t> bytes;
  for (size_t i = 1; i + 1 < written.size(); i += 2) {
    const int hi = hexDigit(written[i]), lo = hexDigit(written[i + 1]);
    if (hi < 0 || lo < 0) return written;
    bytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
  }
  der::Tlv tlv;
  if (!der::readTlv(bytes.data(), bytes.size(), 0, tlv) || tlv.end != bytes.size() || tlv.constructed ||
      tlv.tagClass != 0)
    return written;
  const uint8_t* content = bytes.data() + tlv.contentStart;
  if (tlv.tagNumber == 30) return utf16beToUtf8(content, tlv.contentLength);
  if (tlv.tagNumber == 12 || tlv.tagNumber == 19 || tlv.tagNumber == 20 || tlv.tagNumber == 22 || tlv.tagNumber == 26 ||
      tlv.tagNumber == 18)
    return std::string(reinterpret_cast<const char*>(content), tlv.contentLength);
  return written;
}

// Reads the value that starts at dn[i] (after '='), up to an unescaped separator outside
// quotes; i is left on the separator or the end.
std::string readValue(const char* dn, size_t& i) {
  while (dn[i] == ' ' || dn[i] == '\t') ++i;
  std::string value;
  if (dn[i] == '"') {
    ++i;
    while (dn[i] && dn[i] != '"') {
      if (dn[i] == '\\' && dn[i + 1]) ++i;
      value += dn[i++];
    }
    if (dn[i] == '"') ++i;
    while (dn[i] && dn[i] != ',' && dn[i] != '+' && dn[i] != ';') ++i;  // stray text after the quotes
    return value;
  }
  const bool hexForm = dn[i] == '#';
  size_t trailingSpaceStart = std::string::npos;  // escaped trailing spaces are kept
  while (dn[i] && dn[i] != ',' && dn[i] != '+') {
    if (dn[i] == '\\' && dn[i + 1]) {
      const int hi = hexDigit(dn[i + 1]), lo = hexDigit(dn[i + 2]);
      if (hi >= 0 && lo >= 0) {
        value += static_cast<char>(hi * 16 + lo);
        i += 3;
      } else {
        value += dn[i + 1];
        i += 2;
      }
      trailingSpaceStart = std::string::npos;
      continue;
    }
    if (dn[i] == ' ' || dn[i] == '\t') {
      if (trailingSpaceStart == std::string::npos) trailingSpaceStart = value.size();
    } else {
      trailingSpaceStart = std::string::npos;
    }
    value += dn[i++];
  }
  if (trailingSpaceStart != std::string::npos) value.resize(trailingSpaceStart);
  return hexForm ? decodeHexValue(value) : value;
}

}  // namespace

std::string DistinguishedName::canonicalType(const std::string& writtenType) {
  std::string t = upper(trim(writtenType));
  if (t.compare(0, 4, "OID.") == 0) t = t.substr(4);
  for (const TypeName& n : kTypes) {
    if (t == n.canonical || t == n.oid) return n.canonical;
    for (const char* alias : n.aliases)
      if (alias && t == alias) return n.canonical;
  }
  return t;
}

std::string DistinguishedName::displayTypeForOid(const std::string& oid) {
  for (const TypeName& n : kTypes)
    if (oid == n.oid) return n.display;
  return "OID." + oid;
}

std::string DistinguishedName::escapeValue(const std::string& value) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    const bool special = std::strchr(",+\"\\<>;", c) != nullptr;
    const bool edgeSpace = c == ' ' && (i == 0 || i + 1 == value.size());
    if (special || edgeSpace || (i == 0 && c == '#')) out += '\\';
    out += c;
  }
  return out;
}

std::string DistinguishedName::normalizeValue(const std::string& value) {
  std::string out;
  bool pendingSpace = false;
  for (char c : value) {
    if (std::isspace(static_cast<unsigned char>(c))) {
      pendingSpace = !out.empty();
      continue;
    }
    if (pendingSpace) out += ' ';
    pendingSpace = false;
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

bool DistinguishedName::parse(const char* dn, std::vector<Component>& out) {
  out.clear();
  if (!dn) return false;
  size_t i = 0;
  char lastSeparator = ',';
  while (dn[i]) {
    while (dn[i] == ' ' || dn[i] == '\t' || dn[i] == '\r' || dn[i] == '\n') ++i;
    if (!dn[i]) break;
    // A piece that does not start with "TYPE=" continues the previous value.
    size_t eq = i;
    while (dn[eq] && dn[eq] != '=' && dn[eq] != ',' && dn[eq] != '+') ++eq;
    const std::string type = trim(std::string(dn + i, eq - i));
    if (dn[eq] == '=' && looksLikeType(type)) {
      i = eq + 1;
      Component c;
      c.type = canonicalType(type);
      c.value = readValue(dn, i);
      out.push_back(std::move(c));
    } else {
      size_t j = i;
      std::string rest = readValue(dn, j);
      if (!out.empty()) {
        out.back().value += lastSeparator;
        if (lastSeparator == ',') out.back().value += ' ';
        out.back().value += rest;
      }
      i = j;
    }
    if (dn[i] == ',' || dn[i] == '+' || dn[i] == ';') lastSeparator = dn[i++];
  }
  return !out.empty();
}

bool DistinguishedName::getDnPart(const char* dn, const char* type, StringBuffer& out, LogBase& /*log*/) {
  std::vector<Component> parts;
  if (!parse(dn, parts)) return false;
  const std::string wanted = canonicalType(type ? type : "");
  for (const Component& c : parts) {
    if (c.type == wanted) {
      out.append(trim(c.value));
      return true;
    }
  }
  return false;
}

std::string DistinguishedName::canonicalKey(const std::vector<Component>& components) {
  std::vector<std::string> items;
  items.reserve(components.size());
  for (const Component& c : components) {
    std::string item = c.type + "=";
    for (char ch : normalizeValue(c.value)) {
      if (ch == ',' || ch == '\\') item += '\\';
      item += ch;
    }
    items.push_back(std::move(item));
  }
  std::sort(items.begin(), items.end());
  std::string key;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i) key += ',';
    key += items[i];
  }
  return key;
}

bool DistinguishedName::toBtCanonHashKey(const char* dn, StringBuffer& out, LogBase& /*log*/) {
  out.clear();
  std::vector<Component> parts;
  if (!parse(dn, parts)) return false;
  out.append(canonicalKey(parts));
  return true;
}

void DistinguishedName::removeDnTags(const char* dn, StringBuffer& out) {
  std::vector<Component> parts;
  parse(dn, parts);
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out.append(", ");
    out.append(parts[i].value);
  }
}

void DistinguishedName::removeDnTags(XString& dn) {
  StringBuffer values;
  removeDnTags(dn.getUtf8(), values);
  dn.setFromSbUtf8(values);
}
