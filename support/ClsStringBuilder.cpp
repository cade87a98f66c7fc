// ClsStringBuilder: file loading and saving in a chosen charset.
#include "support/ClsStringBuilder.h"

#include <cstring>
#include <new>
#include <string>

#include "support/Charset.h"
#include "support/DataBuffer.h"
#include "support/FileSys.h"
#include "support/LogBase.h"

ClsStringBuilder* ClsStringBuilder::createNewCls() { return new (std::nothrow) ClsStringBuilder(); }

namespace {

// The iconv name of charset, or "" after logging that it is unknown.
std::string knownCharset(const char* charset, LogBase& log) {
  std::string name = iconvCharsetName(charset ? charset : "");
  if (name.empty()) {
    log.LogError("Unknown charset.");
    log.LogDataStr("charset", charset);
  }
  return name;
}

}  // namespace

bool ClsStringBuilder::LoadFile(const char* path, const char* charset, LogBase* logOrNull) {
  LogNull none;
  LogBase& log = logOrNull ? *logOrNull : none;
  std::string name = knownCharset(charset, log);
  if (name.empty()) return false;
  DataBuffer db;
  if (!FileSys::readFileToDb(path, db, &log)) return false;

  std::string_view bytes = db.view();
  // A byte-order mark is not part of the text; for UTF-16 it also tells the byte order.
  if (name == "UTF-8" && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
    bytes.remove_prefix(3);
  } else if (name.rfind("UTF-16", 0) == 0 && bytes.size() >= 2) {
    if (bytes.substr(0, 2) == "\xFF\xFE") name = "UTF-16LE", bytes.remove_prefix(2);
    else if (bytes.substr(0, 2) == "\xFE\xFF") name = "UTF-16BE", bytes.remove_prefix(2);
  }

  try {
    std::string text;
    size_t failAt = 0;
    bool ok;
    if (name == "UTF-8") {
      failAt = findInvalidUtf8(bytes.data(), bytes.size());
      ok = failAt == SIZE_MAX;
      if (ok) text.assign(bytes.data(), bytes.size());
    } else {
      ok = convertCharsetAt(name.c_str(), "UTF-8", bytes.data(), bytes.size(), text, failAt);
    }
    if (!ok) {
      log.LogError("The file is not valid in the charset.");
      log.LogDataStr("charset", charset);
      log.LogDataLong("offset", static_cast<long long>(failAt));
      return false;
    }
    m_text.setFromUtf8(text.c_str());
    return true;
  } catch (const std::bad_alloc&) {
    log.LogError("Out of memory loading the file.");
    return false;
  }
}

bool ClsStringBuilder::WriteFile(const char* path, const char* charset, LogBase* logOrNull) const {
  LogNull none;
  LogBase& log = logOrNull ? *logOrNull : none;
  _btCharset cs;
  if (!cs.setByName(charset)) {
    log.LogError("Unknown charset.");
    log.LogDataStr("charset", charset);
    return false;
  }
  DataBuffer bytes;
  if (!m_text.getConverted(cs, bytes)) {
    log.LogError("The text cannot be represented in the charset.");
    log.LogDataStr("charset", charset);
    return false;
  }
  return FileSys::writeFileBytes(path, bytes.getData2(), bytes.getSize(), &log);
}
