// File-system access through POSIX stat and stdio.
#include "support/FileSys.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "support/DataBuffer.h"
#include "support/LogBase.h"
#include "support/StringBuffer.h"

namespace {

void logFileError(LogBase* log, const char* message, const char* path, int err) {
  if (!log) return;
  log->LogError(message);
  log->LogDataStr("path", path);
  log->LogDataStr("osError", std::strerror(err));
}

}  // namespace

void _btFilePath::CombineDirAndFilepath(std::string_view dir, std::string_view name, StringBuffer& out) {
  out.clear();
  while (dir.size() > 1 && dir.back() == '/') dir.remove_suffix(1);
  if (!dir.empty()) {
    while (!name.empty() && name.front() == '/') name.remove_prefix(1);
    out.append(dir);
    if (dir.back() != '/') out.appendChar('/');
  }
  out.append(name);
}

bool FileSys::fileExistsX(const char* path, bool& checkFailed, LogBase* log) {
  checkFailed = false;
  if (!path || !*path) return false;
  struct stat st;
  if (stat(path, &st) != 0) {
    const int err = errno;
    if (err != ENOENT && err != ENOTDIR) {
      checkFailed = true;
      logFileError(log, "Failed to check whether the file exists.", path, err);
    }
    return false;
  }
  return S_ISREG(st.st_mode);
}

bool FileSys::readFileToDb(const char* path, DataBuffer& db, LogBase* log) {
  db.clear();
  _btFileDataSource src;
  LogNull none;
  if (!src.openDataSourceFile(path, log ? *log : static_cast<LogBase&>(none))) return false;
  try {
    std::vector<unsigned char>& bytes = db.bytes();
    struct stat st;
    if (path && stat(path, &st) == 0 && st.st_size > 0) bytes.reserve(static_cast<size_t>(st.st_size));
    unsigned char chunk[65536];
    size_t got = 0;
    while (src.readChunk(chunk, sizeof chunk, got) && got > 0) bytes.insert(bytes.end(), chunk, chunk + got);
    if (src.readError()) {
      logFileError(log, "Failed to read file.", path, EIO);
      db.clear();
      return false;
    }
    return true;
  } catch (const std::bad_alloc&) {
    if (log) log->LogError("Out of memory reading file.");
    db.clear();
    return false;
  }
}

bool FileSys::writeFileBytes(const char* path, const void* data, size_t n, LogBase* log) {
  if (!path || !*path) return false;
  std::FILE* f = std::fopen(path, "wb");
  if (!f) {
    logFileError(log, "Failed to open file for writing.", path, errno);
    return false;
  }
  const bool written = n == 0 || std::fwrite(data, 1, n, f) == n;
  const int err = errno;
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed) {
    logFileError(log, "Failed to write file.", path, written ? errno : err);
    return false;
  }
  return true;
}

bool _btFileDataSource::openDataSourceFile(const char* path, LogBase& log) {
  m_file.reset();
  m_eof = m_error = false;
  if (path && *path) {
    struct stat st;
    // A directory opens fine with fopen on Linux but cannot be read; refuse it here.
    if (stat(path, &st) == 0 && S_ISDIR(st.st_mode)) {
      logFileError(&log, "Failed to open file.", path, EISDIR);
      return false;
    }
    m_file.reset(std::fopen(path, "rb"));
  }
  if (!m_file) {
    logFileError(&log, "Failed to open file.", path ? path : "", path && *path ? errno : ENOENT);
    return false;
  }
  return true;
}

bool _btFileDataSource::readChunk(void* buf, size_t max, size_t& got) {
  got = 0;
  if (!m_file || m_error) return false;
  if (m_eof || max == 0) return true;
  got = std::fread(buf, 1, max, m_file.get());
  if (got < max) {
    if (std::ferror(m_file.get())) {
      m_error = true;
      return false;
    }
    m_eof = true;
  }
  return true;
}
