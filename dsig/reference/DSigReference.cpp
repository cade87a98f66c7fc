// Reading one Reference element of a SignedInfo into a DSigReference, its digest method,
// and the log record of a parsed reference.
#include "dsig/reference/DSigReference.h"

#include "dsig/AlgorithmTables.h"
#include "support/ClsXml.h"
#include "support/LogBase.h"

bool DSigReference::parseReference(ClsXml* reference, LogBase& log) {
  LogContextExitor ctx(log, "parseReference");
  id.clear();
  uri.clear();
  digestMethod.clear();
  digestValue.clear();
  transforms.clear();
  if (!reference) return true;

  reference->getAttrValue("Id", id);

  // An empty URI attribute names the whole document; an absent one is told apart here
  // because some callers report it differently.
  uriOmitted = true;
  if (reference->getAttrValue("URI", uri)) uriOmitted = false;

  if (log.m_verboseLogging) {
    log.LogDataSb("Id", id);
    log.LogDataSb("URI", uri);
  }

  // The transform chain is searched later by algorithm URI in this text.
  RcPtr<ClsXml> transformsXml(reference->getNthChildWithTagUtf8("*:Transforms", 0, log));
  if (transformsXml) transformsXml->getXml(false, transforms, log);

  reference->getChildAttrValue("*:DigestMethod", "Algorithm", digestMethod);

  // Signers wrap and indent long digest values; the comparison is on the bare text.
  reference->getChildContentUtf8("*:DigestValue", digestValue, false);
  digestValue.removeCharOccurances('\n');
  digestValue.removeCharOccurances('\r');
  digestValue.removeCharOccurances('\t');
  digestValue.removeCharOccurances(' ');

  if (log.m_verboseLogging) {
    log.LogDataSb("DigestMethod", digestMethod);
    log.LogDataSb("DigestValue", digestValue);
  }
  return true;
}

int DSigReference::getHashAlg() const {
  const dsig_algorithms::DigestMethod* method = dsig_algorithms::findDigestMethod(digestMethod.view());
  return method ? method->hashId : 0;
}

void DSigReference::logReference(LogBase& log) const {
  LogContextExitor ctx(log, "logDsigReference");
  log.LogDataSb("id", id);
  log.LogDataSb("uri", uri);
  if (uri.isEmpty()) log.LogDataLong("uriOmitted", uriOmitted ? 1 : 0);
  log.LogDataSb("digestMethod", digestMethod);
  log.LogDataSb("digestValue", digestValue);
  log.LogDataSb("transforms", transforms);
}
