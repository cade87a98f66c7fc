#include "crypto/Asn1Xml.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "crypto/Der.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

namespace {

const int kMaxDepth = 64;  // deeper nesting is refused rather than recursed into

enum class Content { Children, Hex, Base64, Text, Oid, Bits, Null };

struct TypeInfo {
  uint32_t tag;
  const char* name;
  Content content;
};

const TypeInfo kUniversal[] = {
    {1, "bool", Content::Hex},      {2, "int", Content::Hex},       {3, "bits", Content::Bits},
    {4, "octets", Content::Base64}, {5, "null", Content::Null},     {6, "oid", Content::Oid},
    {10, "enum", Content::Hex},     {12, "utf8", Content::Text},    {16, "sequence", Content::Children},
    {17, "set", Content::Children}, {18, "numeric", Content::Text}, {19, "printable", Content::Text},
    {20, "t61", Content::Text},     {22, "ia5", Content::Text},     {23, "utctime", Content::Text},
    {24, "gentime", Content::Text}, {26, "visible", Content::Text}, {30, "bmp", Content::Text},
};

const char* kClassNames[4] = {"universal", "application", "contextSpecific", "private"};

const TypeInfo* universalByTag(uint32_t tag) {
  for (const TypeInfo& t : kUniversal)
    if (t.tag == tag) return &t;
  return nullptr;
}

const TypeInfo* universalByName(const std::string& name) {
  for (const TypeInfo& t : kUniversal)
    if (name == t.name) return &t;
  return nullptr;
}

// The identifier and length octets as an encoder writes them for these properties.
void appendHeader(der::Bytes& out, uint8_t tagClass, bool constructed, uint32_t tagNumber, size_t length,
                  bool indefinite, size_t lengthOctets) {
  const uint8_t first = static_cast<uint8_t>((tagClass << 6) | (constructed ? 0x20 : 0));
  if (tagNumber < 31) {
    out.push_back(static_cast<uint8_t>(first | tagNumber));
  } else {
    out.push_back(static_cast<uint8_t>(first | 0x1f));
    uint8_t tmp[5];
    size_t n = 0;
    do {
      tmp[n++] = static_cast<uint8_t>(tagNumber & 0x7f);
      tagNumber >>= 7;
    } while (tagNumber);
    while (n > 1) out.push_back(static_cast<uint8_t>(tmp[--n] | 0x80));
    out.push_back(tmp[0]);
  }
  if (indefinite) {
    out.push_back(0x80);
  } else if (lengthOctets == 0) {
    der::appendLength(out, length);
  } else {
    out.push_back(static_cast<uint8_t>(0x80 | lengthOctets));
    for (size_t i = lengthOctets; i-- > 0;)
      out.push_back(static_cast<uint8_t>(i < sizeof(size_t) ? (length >> (8 * i)) & 0xff : 0));
  }
}

// Well-formed UTF-8: no overlong forms, surrogates or code points beyond U+10FFFF.
bool isValidUtf8(const uint8_t* p, size_t n) {
  for (size_t i = 0; i < n;) {
    const uint8_t c = p[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t extra;
    uint8_t lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (c >= 0xC2 && c <= 0xDF) extra = 1;
    else if (c == 0xE0) extra = 2, lo = 0xA0;
    else if (c == 0xED) extra = 2, hi = 0x9F;
    else if (c >= 0xE1 && c <= 0xEF) extra = 2;
    else if (c == 0xF0) extra = 3, lo = 0x90;
    else if (c == 0xF4) extra = 3, hi = 0x8F;
    else if (c >= 0xF1 && c <= 0xF3) extra = 3;
    else return false;
    if (n - i <= extra || p[i + 1] < lo || p[i + 1] > hi) return false;
    for (size_t k = 2; k <= extra; ++k)
      if ((p[i + k] & 0xC0) != 0x80) return false;
    i += extra + 1;
  }
  return true;
}

// Characters XML 1.0 cannot carry even as references.
bool xmlCanCarry(const uint8_t* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] < 0x20 && p[i] != '\t' && p[i] != '\n' && p[i] != '\r') return false;
  return true;
}

void appendUtf8(std::string& out, uint32_t cp) {
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

// BMPString (UTF-16BE) <-> UTF-8; false when the input is not well formed.
bool bmpToUtf8(const uint8_t* p, size_t n, std::string& out) {
  if (n % 2) return false;
  for (size_t i = 0; i < n; i += 2) {
    uint32_t cp = (static_cast<uint32_t>(p[i]) << 8) | p[i + 1];
    if (cp >= 0xDC00 && cp < 0xE000) return false;
    if (cp >= 0xD800 && cp < 0xDC00) {
      if (i + 3 >= n) return false;
      const uint32_t lo = (static_cast<uint32_t>(p[i + 2]) << 8) | p[i + 3];
      if (lo < 0xDC00 || lo >= 0xE000) return false;
      cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
      i += 2;
    }
    appendUtf8(out, cp);
  }
  return true;
}

bool utf8ToBmp(const std::string& text, der::Bytes& out) {
  const uint8_t* p = reinterpret_cast<const uint8_t*>(text.data());
  for (size_t i = 0; i < text.size();) {
    uint32_t cp;
    const uint8_t c = p[i];
    size_t extra;
    if (c < 0x80) cp = c, extra = 0;
    else if ((c >> 5) == 0x6) cp = c & 0x1f, extra = 1;
    else if ((c >> 4) == 0xe) cp = c & 0x0f, extra = 2;
    else if ((c >> 3) == 0x1e) cp = c & 0x07, extra = 3;
    else return false;
    if (i + extra >= text.size() + (extra ? 0 : 1)) return false;
    for (size_t k = 1; k <= extra; ++k) cp = (cp << 6) | (p[i + k] & 0x3f);
    i += extra + 1;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      const uint32_t hi = 0xD800 + (cp >> 10), lo = 0xDC00 + (cp & 0x3ff);
      out.push_back(static_cast<uint8_t>(hi >> 8)), out.push_back(static_cast<uint8_t>(hi));
      out.push_back(static_cast<uint8_t>(lo >> 8)), out.push_back(static_cast<uint8_t>(lo));
    } else {
      out.push_back(static_cast<uint8_t>(cp >> 8)), out.push_back(static_cast<uint8_t>(cp));
    }
  }
  return true;
}

void appendEscaped(std::string& out, const std::string& text) {
  for (char c : text) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '\t': out += "&#9;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      default: out += c;
    }
  }
}

std::string base64(const uint8_t* p, size_t n) {
  StringBuffer sb;
  ContentCoding::encodeBase64(p, n, sb);
  return sb.str();
}

std::string hexUpper(const uint8_t* p, size_t n) {
  StringBuffer sb;
  ContentCoding::encodeHex(p, n, false, sb);
  return sb.str();
}

class Renderer {
 public:
  Renderer(const uint8_t* data, bool indent, std::string& out) : m_data(data), m_indent(indent), m_out(out) {}

  // Renders the element at pos (whose end must not pass limit).
  bool element(size_t pos, size_t limit, int depth, LogBase& log) {
    if (depth > kMaxDepth) {
      log.LogError("ASN.1 nesting is too deep.");
      return false;
    }
    der::Tlv tlv;
    if (!der::readTlv(m_data, limit, pos, tlv)) {
      log.LogError("Invalid ASN.1 element.");
      log.LogDataLong("offset", static_cast<long long>(pos));
      return false;
    }
    // A header an encoder would not write back the same way (a tag number in a longer
    // form than needed) is kept whole.
    der::Bytes header;
    appendHeader(header, tlv.tagClass, tlv.constructed, tlv.tagNumber, tlv.contentLength, tlv.indefinite,
                 tlv.minimalLength ? 0 : tlv.lengthOctets);
    if (header.size() != tlv.contentStart - tlv.headerStart ||
        !std::equal(header.begin(), header.end(), m_data + tlv.headerStart)) {
      return raw(tlv, depth);
    }
    const TypeInfo* type = tlv.tagClass == 0 ? universalByTag(tlv.tagNumber) : nullptr;
    // A SEQUENCE or SET in primitive form is not valid ASN.1 but must still come back
    // as it was: it is rendered as a generic universal element.
    if (type && type->content == Content::Children && !tlv.constructed) type = nullptr;
    std::string name = type ? type->name : kClassNames[tlv.tagClass];
    std::string attrs;
    if (!type) {
      attrs += " tag=\"" + std::to_string(tlv.tagNumber) + "\" constructed=\"" + (tlv.constructed ? "1" : "0") + "\"";
    } else if (tlv.constructed && type->content != Content::Children) {
      attrs += " constructed=\"1\"";  // BER constructed string
    }
    if (tlv.indefinite) attrs += " indefinite=\"1\"";
    if (!tlv.minimalLength) attrs += " lengthOctets=\"" + std::to_string(tlv.lengthOctets) + "\"";

    const uint8_t* content = m_data + tlv.contentStart;
    const size_t n = tlv.contentLength;
    if (tlv.constructed) {
      open(name, attrs, depth, false);
      for (size_t cur = tlv.contentStart; cur < tlv.contentStart + n;) {
        der::Tlv child;
        if (!der::readTlv(m_data, tlv.contentStart + n, cur, child)) {
          log.LogError("Invalid ASN.1 element.");
          log.LogDataLong("offset", static_cast<long long>(cur));
          return false;
        }
        if (!element(cur, tlv.contentStart + n, depth + 1, log)) return false;
        cur = child.end;
      }
      close(name, depth);
      return true;
    }
    const Content kind = type ? type->content : Content::Base64;
    std::string body;
    switch (kind) {
      case Content::Hex: body = hexUpper(content, n); break;
      case Content::Base64: body = base64(content, n); break;
      case Content::Null:
        if (n) return raw(tlv, depth);
        break;
      case Content::Bits:
        if (n == 0 || content[0] > 7) return raw(tlv, depth);
        attrs += " unused=\"" + std::to_string(content[0]) + "\"";
        body = base64(content + 1, n - 1);
        break;
      case Content::Oid: {
        std::string dotted;
        der::Bytes back;
        if (!der::decodeOid(content, n, dotted) || !der::encodeOid(dotted.c_str(), back) ||
            !std::equal(back.begin(), back.end(), content) || back.size() != n)
          return raw(tlv, depth);
        body = dotted;
        break;
      }
      case Content::Text: {
        std::string text;
        bool asText;
        if (tlv.tagNumber == 30) {
          der::Bytes back;
          asText = bmpToUtf8(content, n, text) && utf8ToBmp(text, back) && back.size() == n &&
                   std::equal(back.begin(), back.end(), content);
        } else {
          text.assign(reinterpret_cast<const char*>(content), n);
          asText = isValidUtf8(content, n);
        }
        asText = asText && xmlCanCarry(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        if (asText) {
          appendEscaped(body, text);
        } else {
          attrs += " b64=\"1\"";
          body = base64(content, n);
        }
        break;
      }
      case Content::Children: break;  // primitive SEQUENCE/SET: caught by the header check
    }
    leaf(name, attrs, body, depth);
    return true;
  }

 private:
  bool raw(const der::Tlv& tlv, int depth) {
    leaf("raw", "", base64(m_data + tlv.headerStart, tlv.end - tlv.headerStart), depth);
    return true;
  }
  void pad(int depth) {
    if (m_indent) m_out.append(static_cast<size_t>(depth) * 2, ' ');
  }
  void newline() {
    if (m_indent) m_out += '\n';
  }
  void open(const std::string& name, const std::string& attrs, int depth, bool selfClose) {
    pad(depth);
    m_out += "<" + name + attrs + (selfClose ? "/>" : ">");
    newline();
  }
  void close(const std::string& name, int depth) {
    pad(depth);
    m_out += "</" + name + ">";
    newline();
  }
  void leaf(const std::string& name, const std::string& attrs, const std::string& body, int depth) {
    if (body.empty()) return open(name, attrs, depth, true);
    pad(depth);
    m_out += "<" + name + attrs + ">" + body + "</" + name + ">";
    newline();
  }

  const uint8_t* m_data;
  bool m_indent;
  std::string& m_out;
};

// ---- XML to DER ----

bool attr(ClsXml* e, const char* name, std::string& out) {
  StringBuffer sb;
  if (!e->getAttrValue(name, sb)) return false;
  out = sb.str();
  return true;
}

long attrNumber(ClsXml* e, const char* name, long fallback) {
  std::string v;
  return attr(e, name, v) ? std::strtol(v.c_str(), nullptr, 10) : fallback;
}

std::string trimmedContent(ClsXml* e) {
  StringBuffer sb;
  e->getContentSb(sb);
  sb.trim2();
  return sb.str();
}

bool encodeElement(ClsXml* e, der::Bytes& out, int depth, LogBase& log) {
  if (depth > kMaxDepth) {
    log.LogError("ASN.1 nesting is too deep.");
    return false;
  }
  const std::string name(e->tagView());
  auto fail = [&](const char* why) {
    log.LogError(why);
    log.LogDataStr("element", name.c_str());
    return false;
  };
  if (name == "raw") {
    const std::string text = trimmedContent(e);
    DataBuffer db;
    if (!ContentCoding::decodeBase64ToDb(text.data(), text.size(), db)) return fail("Invalid base64 in raw element.");
    out.insert(out.end(), db.getData2(), db.getData2() + db.getSize());
    return true;
  }
  uint8_t tagClass = 0;
  uint32_t tagNumber = 0;
  const TypeInfo* type = universalByName(name);
  if (type) {
    tagNumber = type->tag;
  } else {
    bool known = false;
    for (uint8_t c = 0; c < 4; ++c)
      if (name == kClassNames[c]) tagClass = c, known = true;
    if (!known) return fail("Unknown ASN.1 XML element.");
    const long t = attrNumber(e, "tag", -1);
    if (t < 0) return fail("ASN.1 XML element without a tag number.");
    tagNumber = static_cast<uint32_t>(t);
  }
  const bool constructed = type ? (type->content == Content::Children || attrNumber(e, "constructed", 0) == 1)
                                : attrNumber(e, "constructed", 0) == 1;
  const bool indefinite = attrNumber(e, "indefinite", 0) == 1;
  const size_t lengthOctets = static_cast<size_t>(attrNumber(e, "lengthOctets", 0));

  der::Bytes content;
  if (constructed) {
    const int n = e->get_NumChildren();
    for (int i = 0; i < n; ++i) {
      RcPtr<ClsXml> child(e->GetChild(i));
      if (!child || !encodeElement(child.get(), content, depth + 1, log)) return false;
    }
  } else {
    const Content kind = type ? type->content : Content::Base64;
    StringBuffer body;
    e->getContentSb(body);
    std::string b64flag;
    const bool textAsBase64 = kind == Content::Text && attr(e, "b64", b64flag) && b64flag == "1";
    DataBuffer db;
    if (kind == Content::Hex) {
      body.trim2();
      if (!ContentCoding::decodeHexToDb(body.getString(), body.getSize(), db)) return fail("Invalid hex content.");
    } else if (kind == Content::Base64 || kind == Content::Bits || textAsBase64) {
      if (kind == Content::Bits) db.appendByte(static_cast<unsigned char>(attrNumber(e, "unused", 0)));
      if (!ContentCoding::decodeBase64ToDb(body.getString(), body.getSize(), db))
        return fail("Invalid base64 content.");
    } else if (kind == Content::Oid) {
      body.trim2();
      der::Bytes oid;
      if (!der::encodeOid(body.getString(), oid)) return fail("Invalid OID.");
      db.append(oid.data(), oid.size());
    } else if (kind == Content::Text) {
      if (tagNumber == 30) {
        der::Bytes bmp;
        if (!utf8ToBmp(body.str(), bmp)) return fail("Invalid BMPString text.");
        db.append(bmp.data(), bmp.size());
      } else {
        db.append(body);
      }
    }
    content.assign(db.getData2(), db.getData2() + db.getSize());
  }
  appendHeader(out, tagClass, constructed, tagNumber, content.size(), indefinite, lengthOctets);
  out.insert(out.end(), content.begin(), content.end());
  if (indefinite) out.insert(out.end(), {0, 0});
  return true;
}

}  // namespace

bool Asn1Xml::derToXml(const DataBuffer& der, bool withXmlDeclaration, bool indent, StringBuffer& xmlOut,
                       void* /*reserved*/, LogBase& log) {
  LogContextExitor ctx(log, "derToXml");
  if (der.isEmpty()) {
    log.LogError("No ASN.1 to convert.");
    return false;
  }
  std::string xml;
  if (withXmlDeclaration)
    xml += indent ? "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" : "<?xml version=\"1.0\" encoding=\"utf-8\"?>";
  Renderer renderer(der.getData2(), indent, xml);
  if (!renderer.element(0, der.getSize(), 0, log)) return false;
  der::Tlv top;
  der::readTlv(der.getData2(), der.getSize(), 0, top);
  if (top.end != der.getSize()) {
    log.LogInfo("Bytes after the first ASN.1 element are ignored.");
    log.LogDataLong("trailingBytes", static_cast<long long>(der.getSize() - top.end));
  }
  return xmlOut.append(xml);
}

bool Asn1Xml::xmlToDer(ClsXml* element, DataBuffer& der, LogBase& log) {
  LogContextExitor ctx(log, "xmlToDer");
  der.clear();
  if (!element || element->isEmptyHandle()) {
    log.LogError("No XML element to convert.");
    return false;
  }
  der::Bytes out;
  if (!encodeElement(element, out, 0, log)) return false;
  return der.append(out.data(), out.size());
}
