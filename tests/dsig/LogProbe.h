// Reading back what an operation wrote to a _btLogger: the value of a key, or the tag an
// information line was recorded with.
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

}  // namespace logprobe
