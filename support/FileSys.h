// File-system access the verifier needs: joining a directory and a file name, testing
// for a regular file, reading a whole (small) file, and streaming a file of any size.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>

class DataBuffer;
class LogBase;
class StringBuffer;

class _btFilePath {
 public:
  // out = dir + '/' + name with exactly one '/' between them (an empty dir gives name).
  // The name is taken as relative: a leading '/' on it does not discard dir.
  static void CombineDirAndFilepath(std::string_view dir, std::string_view name, StringBuffer& out);
};

class FileSys {
 public:
  // True when a regular file exists at path. checkFailed is set when the answer could not
  // be found out (e.g. permission denied on a directory, as opposed to "no such file");
  // the reason goes to the log when one is given.
  static bool fileExistsX(const char* path, bool& checkFailed, LogBase* log);
  // Replaces db with the whole file; false, with the reason in the log, when it cannot be read.
  static bool readFileToDb(const char* path, DataBuffer& db, LogBase* log);
  // Writes the bytes to path (created or truncated); false with the reason in the log.
  static bool writeFileBytes(const char* path, const void* data, size_t n, LogBase* log);
};

// A file opened for sequential reading in chunks; closed when the object goes away.
class _btFileDataSource {
 public:
  _btFileDataSource() = default;
  _btFileDataSource(const _btFileDataSource&) = delete;
  _btFileDataSource& operator=(const _btFileDataSource&) = delete;

  // Opens path for reading (closing any file opened before); false, with the error
  // "Failed to open file." and the path in the log, when it cannot be opened.
  bool openDataSourceFile(const char* path, LogBase& log);
  // Reads up to max bytes into buf; got is how many were read (0 at the end of the file).
  // False on a read error or when no file is open.
  bool readChunk(void* buf, size_t max, size_t& got);
  bool isOpen() const { return m_file != nullptr; }
  bool endOfFile() const { return m_eof; }
  bool readError() const { return m_error; }
  void close() { m_file.reset(); }

 private:
  struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
  };
  std::unique_ptr<std::FILE, FileCloser> m_file;
  bool m_eof = false;
  bool m_error = false;
};
