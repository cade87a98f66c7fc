// Reading back what an operation wrote to a _btLogger: the value of a key, the tag an
// information line was recorded with, and counts of entries.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/LogBase.h"

namespace logprobe {

// First entry, depth first, that is a data entry with this key or an error/info with this text.
inline const LogEntry* find(const std::vector<LogEntry>& entries, std::string_view what) {
  for (const LogEntry& e : entries) {
    if (e.kind == LogEntry::Kind::Data && e.key == what) return &e;
    if ((e.kind == LogEntry::Kind::Error || e.kind == LogEntry::Kind::Info) && e.text == what) return &e;
    if (const LogEntry* inner = find(e.children, what)) return inner;
  }
  return nullptr;
}

// The value logged under key ("<absent>" when nothing was).
inline std::string value(const _btLogger& log, std::string_view key) {
  const LogEntry* e = find(log.entries(), key);
  return e ? e->text : std::string("<absent>");
}

// The tag of the information line with this text, or -1 when there is none.
inline int infoTag(const _btLogger& log, std::string_view text) {
  const LogEntry* e = find(log.entries(), text);
  return e && e->kind == LogEntry::Kind::Info ? e->tag : -1;
}
inline bool hasError(const _btLogger& log, std::string_view text) {
  const LogEntry* e = find(log.entries(), text);
  return e && e->kind == LogEntry::Kind::Error;
}

// Entries of one kind (with this key, or any key when key is empty), at any depth.
inline int count(const std::vector<LogEntry>& entries, LogEntry::Kind kind, std::string_view key = {}) {
  int n = 0;
  for (const LogEntry& e : entries)
    n += (e.kind == kind && (key.empty() || e.key == key)) + count(e.children, kind, key);
  return n;
}
inline int countErrors(const std::vector<LogEntry>& entries) { return count(entries, LogEntry::Kind::Error); }
inline int countData(const std::vector<LogEntry>& entries, std::string_view key) {
  return count(entries, LogEntry::Kind::Data, key);
}
inline int countContexts(const _btLogger& log, std::string_view name) {
  return count(log.entries(), LogEntry::Kind::Context, name);
}
inline bool hasContext(const _btLogger& log, std::string_view name) { return countContexts(log, name) > 0; }

// Error and information lines in the order they were written.
inline void collectLines(const std::vector<LogEntry>& entries, std::vector<std::string>& out) {
  for (const LogEntry& e : entries) {
    if (e.kind == LogEntry::Kind::Error || e.kind == LogEntry::Kind::Info) out.push_back(e.text);
    collectLines(e.children, out);
  }
}
inline std::vector<std::string> lines(const _btLogger& log) {
  std::vector<std::string> out;
  collectLines(log.entries(), out);
  return out;
}

}  // namespace logprobe
