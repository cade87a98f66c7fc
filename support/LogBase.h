// The structured log. A tree of named contexts holding, in order, error lines,
// information lines and key/value entries. Its texts are part of the behaviour:
// callers pass them exactly as the user is meant to read them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/StringBuffer.h"

class XString;
class DataBuffer;

enum class LogValueType { Text, Integer, Unsigned, Boolean, Hex, Bracketed };

struct LogEntry {
  enum class Kind { Context, Error, Info, Data, Result };
  Kind kind = Kind::Info;
  std::string key;   // context name (Context) or key (Data)
  std::string text;  // message (Error/Info), value (Data), "Success."/"Failed." (Result)
  LogValueType valueType = LogValueType::Text;
  int tag = 0;                     // LogInfo_n tag, 0 when none
  std::vector<LogEntry> children;  // entries of a context
};

class LogBase {
 public:
  virtual ~LogBase() = default;

  // Virtual in this order: error before info.
  virtual void LogError(const char* text) = 0;
  virtual void LogInfo(const char* text) = 0;
  virtual void LogInfo_n(const char* text, int n) = 0;
  virtual void enterContext(const char* name) = 0;
  virtual void leaveContext() = 0;
  virtual void logValue(const char* key, LogValueType type, std::string_view value) = 0;
  virtual void logResult(bool success) = 0;
  // True for a log that discards everything (callers may skip building costly values).
  virtual bool isNullLog() const { return false; }

  void LogDataSb(const char* key, const StringBuffer& value);
  void LogDataX(const char* key, const XString& value);
  void LogDataStr(const char* key, const char* value);
  void LogDataLong(const char* key, long long value);
  void LogDataUint32(const char* key, uint32_t value);
  void LogDataBool(const char* key, bool value);
  void LogDataHexDb(const char* key, const DataBuffer& value);
  void LogBracketed(const char* key, const StringBuffer& value);
  void LogBracketed(const char* key, std::string_view value);

  void clearLastJsonData() { m_lastJsonData.clear(); }
  const StringBuffer& lastJsonData() const { return m_lastJsonData; }

  // Verbose entries are written only when this is on (callers test it).
  bool m_verboseLogging = false;
  // The uncommon-options text of the owning object (keywords such as "ZATCA").
  StringBuffer m_uncommonOptions;
  bool hasUncommonOption(const char* keyword, bool ignoreCase) const {
    return ignoreCase ? m_uncommonOptions.containsSubstringNoCase(keyword)
                      : m_uncommonOptions.containsSubstring(keyword);
  }

 protected:
  StringBuffer m_lastJsonData;
};

// The concrete log every public object owns. Opening a context at the top level starts
// a new record, so the log always describes the most recent public call.
class _btLogger : public LogBase {
 public:
  _btLogger();
  void LogError(const char* text) override;
  void LogInfo(const char* text) override;
  void LogInfo_n(const char* text, int n) override;
  void enterContext(const char* name) override;
  void leaveContext() override;
  void logValue(const char* key, LogValueType type, std::string_view value) override;
  void logResult(bool success) override;

  void clear();
  // Entries of the current record (top-level contexts and anything logged outside them).
  const std::vector<LogEntry>& entries() const { return m_root.children; }
  // Indented text rendering (the LastErrorText of the public API).
  std::string renderText() const;
  // JSON rendering: {"entries":[...]} with objects for contexts, errors, infos and data.
  std::string renderJson() const;
  // The text of the last error line of the record, or "" when there is none.
  std::string lastErrorLine() const;
  // True when an entry with this key, error or info text exists anywhere in the record.
  bool containsText(std::string_view text) const;

 private:
  LogEntry& current();
  void addEntry(LogEntry::Kind kind, std::string_view key, std::string_view text, LogValueType type, int tag);
  LogEntry m_root;
  std::vector<size_t> m_path;  // indexes from the root to the open context
  int m_lostContexts = 0;      // contexts that could not be recorded (out of memory) still open
};

// A log that discards everything.
class LogNull : public LogBase {
 public:
  void LogError(const char*) override {}
  void LogInfo(const char*) override {}
  void LogInfo_n(const char*, int) override {}
  void enterContext(const char*) override {}
  void leaveContext() override {}
  void logValue(const char*, LogValueType, std::string_view) override {}
  void logResult(bool) override {}
  bool isNullLog() const override { return true; }
};

// Opens a named child context for the rest of the scope; closes it on every path out.
class LogContextExitor {
 public:
  LogContextExitor(LogBase& log, const char* name) : m_log(log) { m_log.enterContext(name); }
  ~LogContextExitor() { m_log.leaveContext(); }
  LogContextExitor(const LogContextExitor&) = delete;
  LogContextExitor& operator=(const LogContextExitor&) = delete;

 private:
  LogBase& m_log;
};
