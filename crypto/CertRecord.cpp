#include "crypto/CertRecord.h"

#include <vector>

#include "crypto/DistinguishedName.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

bool CertRecord::loadDer(const DataBuffer& der, LogBase& log) {
  if (!m_holder.loadX509Der(der, log)) return false;
  const BrantelX509* cert = m_holder.getX509Ptr();
  m_der = der;
  cert->getSha1Thumbprint(m_thumbprint);
  cert->getSubjectKeyIdentifier(m_ski, log);
  StringBuffer sb;
  cert->get_SerialNumber(sb);
  m_serialHex = sb.str();
  sb.clear();
  if (cert->get_IssuerCN(sb, log)) m_issuerCn = DistinguishedName::normalizeValue(sb.str());
  sb.clear();
  cert->getDN(true, true, sb, log, 0);
  m_subjectDn = sb.str();
  std::vector<DistinguishedName::Component> parts;
  DistinguishedName::parse(m_subjectDn.c_str(), parts);
  m_subjectKey = DistinguishedName::canonicalKey(parts);
  return true;
}
