// Reading SignedInfo fields and the SignatureValue of the selected signature from the
// tree (the value together with the method that checks it), and two scanners that take a
// value straight out of the document text (where the signed bytes must be reproduced
// exactly, the tree's normalised view will not do).
#include <string>

#include "dsig/AlgorithmTables.h"
#include "dsig/ClsXmlDSig.h"
#include "dsig/RsaPssParams.h"
#include "dsig/keys/SignatureValueCheck.h"
#include "dsig/reference/ReferenceResult.h"
#include "support/ClsXml.h"
#include "support/ContentCoding.h"
#include "support/LogBase.h"

namespace {

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

bool ClsXmlDSig::getCanonicalizationMethod(StringBuffer& algorithm, StringBuffer& prefixList, LogBase& log) {
  algorithm.clear();
  prefixList.clear();
  ClsXml* sig = selectedSignature();
  if (!sig) return false;

  RcPtr<ClsXml> signedInfo(sig->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) {
    log.LogError("No SignedInfo child.");
    return false;
  }
  RcPtr<ClsXml> c14nMethod(signedInfo->getChildWithTagUtf8("*:CanonicalizationMethod"));
  if (!c14nMethod) {
    log.LogDataStr("childNotFound", "*:CanonicalizationMethod");
    return false;
  }
  // An absent Algorithm leaves it empty; the caller decides what that means.
  c14nMethod->getAttrValue("Algorithm", algorithm);
  RcPtr<ClsXml> inclusive(c14nMethod->getChildWithTagUtf8("*:InclusiveNamespaces"));
  if (inclusive) inclusive->getAttrValue("PrefixList", prefixList);
  return true;
}

bool ClsXmlDSig::getSignatureMethod(StringBuffer& out, LogBase& log) {
  return getSignedInfoField("SignatureMethod", "Algorithm", out, log);
}

bool ClsXmlDSig::getSignedInfoField(const char* childName, const char* attrName, StringBuffer& out, LogBase& log) {
  LogContextExitor ctx(log, "getSignedInfoField");
  out.clear();
  ClsXml* sig = selectedSignature();
  if (!sig || !childName) return false;

  RcPtr<ClsXml> signedInfo(sig->getChildWithTagUtf8("*:SignedInfo"));
  if (!signedInfo) {
    log.LogError("No SignedInfo child.");
    return false;
  }
  std::string path = "*:";
  path += childName;
  RcPtr<ClsXml> child(signedInfo->getChildWithTagUtf8(path.c_str()));
  if (!child) {
    log.LogDataStr("childNotFound", childName);
    return false;
  }
  // An absent attribute leaves out empty and still counts as found.
  if (attrName) child->getAttrValue(attrName, out);
  else child->getContentSb(out);
  return true;
}

bool ClsXmlDSig::getSignatureValue(StringBuffer& out, LogBase& log) {
  out.clear();
  ClsXml* sig = selectedSignature();
  if (!sig) return false;

  RcPtr<ClsXml> sigValue(sig->getChildWithTagUtf8("*:SignatureValue"));
  if (!sigValue) {
    log.LogError("No SignatureValue child.");
    return false;
  }
  sigValue->getContentSb(out);
  // Some signers escape the carriage returns of their line-wrapped base64. The tree
  // expands those references to CR characters (a literal CR never survives parsing, line
  // ends become LF), so dropping CRs removes exactly them; unexpanded forms go too.
  out.removeCharOccurances('\r');
  out.replaceAllOccurances("&#13;", "");
  out.replaceAllOccurances("&#xD;", "");
  return !out.isEmpty();
}

bool ClsXmlDSig::readSignatureValue(ClsXml& signature, sigvalue::Method& method, DataBuffer& value, LogBase& log) {
  StringBuffer text;
  if (!getSignatureValue(text, log)) {
    noteFailure("structure");
    log.LogError("Unable to find the SignatureValue element.");
    return false;
  }
  if (!ContentCoding::decodeBase64ToDb(text.getString(), text.getSize(), value)) {
    noteFailure("structure");
    log.LogError("Failed to decode base64 SignatureValue.");
    return false;
  }

  StringBuffer uri;
  if (!getSignedInfoField("SignatureMethod", "Algorithm", uri, log)) {
    noteFailure("structure");
    log.LogError("Unable to location the SignatureMethod algorithm within the SignedInfo.");
    return false;
  }
  log.LogDataSb("SignatureMethod", uri);
  // Only a method known exactly is used: an unknown URI is never read as a nearby one.
  const dsig_algorithms::SignatureMethod* row = dsig_algorithms::findSignatureMethod(uri.view());
  if (!row) {
    noteFailure("unsupported-algorithm", "unsupported signature algorithm \"" + std::string(uri.view()) + "\"");
    log.LogError(("Unknown SignatureMethod algorithm: \"" + std::string(uri.view()) + "\"").c_str());
    logSuccessFailure2(false, log);
    return false;
  }
  method.keyType = row->keyType;
  method.padding = row->padding;
  method.hashId = row->hashId;
  if (row->padding == dsig_algorithms::RsaPadding::Pss) {
    rsapss::Params pss;
    if (!rsapss::readParams(signature, row->uri, row->hashId, pss, log)) {
      logSuccessFailure2(false, log);
      return false;
    }
    method.hashId = pss.hashId;
    method.mgfHashId = pss.mgfHashId;
    method.saltLength = pss.saltLength;
  }
  return true;
}

bool ClsXmlDSig::captureUniqueTagContent(const char* tagStart, const StringBuffer& xml, StringBuffer& out, LogBase&) {
  out.clear();
  if (!tagStart || !*tagStart) return false;
  const size_t tagPos = xml.find(tagStart);
  if (tagPos == StringBuffer::npos) return false;
  const size_t gt = xml.findChar('>', tagPos);
  if (gt == StringBuffer::npos) return false;

  size_t begin = gt + 1;
  while (begin < xml.getSize() && isXmlSpace(xml.charAt(begin))) ++begin;
  const size_t lt = xml.findChar('<', begin);
  if (lt == StringBuffer::npos) return false;

  // Content of only white space gives an empty value (begin already stands at the '<').
  size_t end = lt;
  while (end > begin && isXmlSpace(xml.charAt(end - 1))) --end;
  out.setString(xml.substr(begin, end - begin));
  return true;
}

bool ClsXmlDSig::captureUniqueAttrContent(const char* tagStart, const char* attrName, const StringBuffer& xml,
                                          StringBuffer& out, LogBase& log) {
  out.clear();
  if (!tagStart || !attrName || !*tagStart || !*attrName) return false;
  const size_t tagPos = xml.find(tagStart);
  if (tagPos == StringBuffer::npos) return false;
  const size_t gt = xml.findChar('>', tagPos);
  if (gt == StringBuffer::npos) return false;

  // A normalised copy of the start tag: one space between its parts, "name =" closed up.
  StringBuffer tag(xml.substr(tagPos, gt - tagPos));
  tag.replaceChar5("\r\n\t\t\t", ' ');
  tag.trimInsideSpaces();
  const std::string name(attrName);
  tag.replaceFirstOccurance((name + " =").c_str(), (name + "=").c_str(), false);

  const std::string nameEq = name + "=";
  size_t pos = tag.find(nameEq);
  if (pos == StringBuffer::npos) {
    log.LogError("Failed to find SignatureValue Id");
    log.LogDataSb("sb", tag);
    return false;
  }
  pos += nameEq.size();
  while (tag.charAt(pos) == ' ') ++pos;
  // Only double-quoted values are accepted.
  if (tag.charAt(pos) != '"') {
    log.LogError("Expected open double quote");
    log.LogDataSb("sb", tag);
    return false;
  }
  const size_t valueStart = pos + 1;
  const size_t close = tag.findChar('"', valueStart);
  if (close == StringBuffer::npos) {
    log.LogError("Expected end double quote");
    log.LogDataSb("sb", tag);
    return false;
  }
  out.setString(tag.substr(valueStart, close - valueStart));
  return true;
}
