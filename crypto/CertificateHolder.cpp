#include "crypto/CertificateHolder.h"

#include <string_view>
#include <vector>

#include "crypto/CertMgr.h"
#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

std::unique_ptr<CertificateHolder> CertificateHolder::createFromBase64(const char* text, size_t length,
                                                                       SystemCerts* /*store*/, LogBase& log) {
  std::vector<DataBuffer> ders;
  if (!text || !certificatesFromText(StringBuffer(std::string_view(text, length)), ders, log)) return nullptr;
  return createFromDer(ders.front(), log);
}

std::unique_ptr<CertificateHolder> CertificateHolder::createFromDer(const DataBuffer& der, LogBase& log) {
  auto holder = std::make_unique<CertificateHolder>();
  if (!holder->m_record.loadDer(der, log)) return nullptr;
  return holder;
}

CertRecord* CertificateHolder::getCertPtr(LogBase& log) {
  if (m_record.getX509Ptr()) return &m_record;
  log.LogError("The holder has no certificate.");
  return nullptr;
}
