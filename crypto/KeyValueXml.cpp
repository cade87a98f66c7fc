#include "crypto/KeyValueXml.h"

#include <openssl/bn.h>

#include <cctype>
#include <cstdlib>

#include "crypto/OsslPtr.h"
#include "crypto/_btPublicKey.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"

namespace keyxml {

namespace {

bool isNameEnd(char c) { return c == '>' || c == '/' || c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Text with the predefined entities and numeric character references expanded
// (only code points below 128 are expected in key values).
std::string expandEntities(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '&') {
      out += text[i];
      continue;
    }
    const size_t semi = text.find(';', i);
    if (semi == std::string_view::npos) {
      out += text.substr(i);
      break;
    }
    const std::string_view ref = text.substr(i + 1, semi - i - 1);
    if (ref == "lt") out += '<';
    else if (ref == "gt") out += '>';
    else if (ref == "amp") out += '&';
    else if (ref == "quot") out += '"';
    else if (ref == "apos") out += '\'';
    else if (!ref.empty() && ref[0] == '#') {
      const bool hex = ref.size() > 1 && (ref[1] == 'x' || ref[1] == 'X');
      const std::string digits(ref.substr(hex ? 2 : 1));
      const long code = std::strtol(digits.c_str(), nullptr, hex ? 16 : 10);
      if (code > 0 && code < 128) out += static_cast<char>(code);
    } else {
      out += text.substr(i, semi - i + 1);
    }
    i = semi;
  }
  return out;
}

std::string trimmed(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

// A child's base64 content; false when the child is absent or not valid base64.
bool childBase64(std::string_view parent, const char* name, DataBuffer& out) {
  Element e;
  out.clear();
  return findElement(parent, name, e) && decodeBase64Content(e.content, out) && !out.isEmpty();
}

// A decimal integer attribute value (the RFC 4050 coordinates) as big-endian bytes.
bool decimalToBytes(const std::string& decimal, DataBuffer& out) {
  out.clear();
  BIGNUM* raw = nullptr;
  const std::string digits = trimmed(decimal);
  if (digits.empty() || BN_dec2bn(&raw, digits.c_str()) != static_cast<int>(digits.size())) {
    BN_free(raw);
    ossl::clearErrors();
    return false;
  }
  ossl::BnPtr bn(raw);
  out.resize(static_cast<size_t>(BN_num_bytes(bn.get())));
  if (out.getSize()) BN_bn2bin(bn.get(), out.getDataRw());
  return true;
}

bool loadRsaKeyValue(std::string_view xml, _btPublicKey& key, LogBase& log) {
  DataBuffer modulus, exponent;
  if (!childBase64(xml, "Modulus", modulus) || !childBase64(xml, "Exponent", exponent)) {
    log.LogError("RSAKeyValue needs base64 Modulus and Exponent.");
    return false;
  }
  return key.loadRsa(modulus, exponent, log);
}

bool loadDsaKeyValue(std::string_view xml, _btPublicKey& key, LogBase& log) {
  DataBuffer p, q, g, y;
  if (!childBase64(xml, "P", p) || !childBase64(xml, "Q", q) || !childBase64(xml, "G", g) ||
      !childBase64(xml, "Y", y)) {
    log.LogError("DSAKeyValue needs base64 P, Q, G and Y.");
    return false;
  }
  return key.loadDsa(p, q, g, y, log);
}

// The curve OID of a NamedCurve element: URI="urn:oid:..." or URN="urn:oid:...".
bool namedCurveOid(std::string_view xml, std::string& oid, LogBase& log) {
  Element curve;
  if (!findElement(xml, "NamedCurve", curve) ||
      !(attributeValue(curve.attributes, "URI", oid) || attributeValue(curve.attributes, "URN", oid))) {
    log.LogError("The EC key value has no NamedCurve (explicit curve parameters are not supported).");
    return false;
  }
  oid = trimmed(oid);
  return true;
}

bool loadEcKeyValue(std::string_view xml, _btPublicKey& key, LogBase& log) {
  std::string oid;
  if (!namedCurveOid(xml, oid, log)) return false;
  Element publicKey;
  if (!findElement(xml, "PublicKey", publicKey)) {
    log.LogError("The EC key value has no PublicKey.");
    return false;
  }
  // RFC 4050 form: <PublicKey><X Value="decimal"/><Y Value="decimal"/></PublicKey>.
  Element x, y;
  if (findElement(publicKey.content, "X", x) && findElement(publicKey.content, "Y", y)) {
    std::string xText, yText;
    DataBuffer xBytes, yBytes;
    if (!attributeValue(x.attributes, "Value", xText) || !attributeValue(y.attributes, "Value", yText) ||
        !decimalToBytes(xText, xBytes) || !decimalToBytes(yText, yBytes)) {
      log.LogError("Invalid EC public key coordinates.");
      return false;
    }
    return key.loadEcXY(oid.c_str(), xBytes, yBytes, log);
  }
  // XML-Signature 1.1 form: the base64 of the encoded point.
  DataBuffer point;
  if (!decodeBase64Content(publicKey.content, point) || point.isEmpty()) {
    log.LogError("Invalid base64 EC PublicKey.");
    return false;
  }
  return key.loadEcPoint(oid.c_str(), point, log);
}

}  // namespace

bool findElement(std::string_view xml, std::string_view localName, Element& out) {
  out = Element();
  for (size_t lt = xml.find('<'); lt != std::string_view::npos; lt = xml.find('<', lt + 1)) {
    size_t nameStart = lt + 1;
    if (nameStart >= xml.size() || xml[nameStart] == '/' || xml[nameStart] == '?' || xml[nameStart] == '!') continue;
    size_t nameEnd = nameStart;
    while (nameEnd < xml.size() && !isNameEnd(xml[nameEnd])) ++nameEnd;
    const std::string_view qname = xml.substr(nameStart, nameEnd - nameStart);
    const size_t colon = qname.find(':');
    const std::string_view local = colon == std::string_view::npos ? qname : qname.substr(colon + 1);
    if (local != localName) continue;
    const size_t gt = xml.find('>', nameEnd);
    if (gt == std::string_view::npos) return false;
    const bool selfClosing = gt > nameEnd && xml[gt - 1] == '/';
    out.attributes = xml.substr(nameEnd, gt - nameEnd - (selfClosing ? 1 : 0));
    if (selfClosing) return true;
    const std::string endTag = "</" + std::string(qname);
    const size_t close = xml.find(endTag, gt + 1);
    if (close == std::string_view::npos) return false;
    out.content = xml.substr(gt + 1, close - gt - 1);
    return true;
  }
  return false;
}

bool attributeValue(std::string_view attributes, std::string_view localName, std::string& out) {
  size_t i = 0;
  while (i < attributes.size()) {
    while (i < attributes.size() && std::isspace(static_cast<unsigned char>(attributes[i]))) ++i;
    const size_t nameStart = i;
    while (i < attributes.size() && attributes[i] != '=' && !std::isspace(static_cast<unsigned char>(attributes[i])))
      ++i;
    const std::string_view qname = attributes.substr(nameStart, i - nameStart);
    while (i < attributes.size() && std::isspace(static_cast<unsigned char>(attributes[i]))) ++i;
    if (i >= attributes.size() || attributes[i] != '=') return false;
    ++i;
    while (i < attributes.size() && std::isspace(static_cast<unsigned char>(attributes[i]))) ++i;
    if (i >= attributes.size() || (attributes[i] != '"' && attributes[i] != '\'')) return false;
    const char quote = attributes[i++];
    const size_t close = attributes.find(quote, i);
    if (close == std::string_view::npos) return false;
    const size_t colon = qname.find(':');
    const std::string_view local = colon == std::string_view::npos ? qname : qname.substr(colon + 1);
    if (local == localName && qname.substr(0, 5) != "xmlns") {
      out = expandEntities(attributes.substr(i, close - i));
      return true;
    }
    i = close + 1;
  }
  return false;
}

bool decodeBase64Content(std::string_view content, DataBuffer& out) {
  out.clear();
  std::string text = expandEntities(content);
  // Base64 inside a CDATA section is read as it stands.
  const size_t cdata = text.find("<![CDATA[");
  if (cdata != std::string::npos) {
    const size_t end = text.find("]]>", cdata);
    text = text.substr(cdata + 9, end == std::string::npos ? std::string::npos : end - cdata - 9);
  }
  return ContentCoding::decodeBase64ToDb(text.data(), text.size(), out);
}

bool loadKeyValue(std::string_view xml, _btPublicKey& key, LogBase& log) {
  Element e;
  if (findElement(xml, "RSAKeyValue", e)) return loadRsaKeyValue(e.content, key, log);
  if (findElement(xml, "DSAKeyValue", e)) return loadDsaKeyValue(e.content, key, log);
  if (findElement(xml, "ECKeyValue", e) || findElement(xml, "ECDSAKeyValue", e))
    return loadEcKeyValue(e.content, key, log);
  log.LogError("No RSAKeyValue, DSAKeyValue or ECKeyValue element found.");
  return false;
}

}  // namespace keyxml
