// ClsBinData: encoded forms and files.
#include "support/ClsBinData.h"

#include <new>

#include "support/FileSys.h"
#include "support/StringBuffer.h"
#include "support/XString.h"

ClsBinData* ClsBinData::createNewCls() { return new (std::nothrow) ClsBinData(); }

bool ClsBinData::GetEncoded(const char* encoding, XString& out) const {
  StringBuffer sb;
  if (!m_data.encodeDB(encoding, sb)) return false;
  out.setFromSbUtf8(sb);
  return true;
}

bool ClsBinData::LoadFile(const char* path, LogBase* log) {
  DataBuffer db;
  if (!FileSys::readFileToDb(path, db, log)) return false;
  m_data = std::move(db);
  return true;
}

bool ClsBinData::WriteFile(const char* path, LogBase* log) const {
  return FileSys::writeFileBytes(path, m_data.getData2(), m_data.getSize(), log);
}
