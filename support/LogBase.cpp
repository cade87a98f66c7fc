// The structured log: the LogBase helpers that format values, and _btLogger, which keeps
// the record of the most recent public call and renders it as text or JSON.
#include "support/LogBase.h"

#include <cstdlib>
#include <new>

#include <nlohmann/json.hpp>

#include "support/ContentCoding.h"
#include "support/DataBuffer.h"
#include "support/XString.h"

namespace {

std::string_view orEmpty(const char* text) { return text ? std::string_view(text) : std::string_view(); }

}  // namespace

// ---------------------------------------------------------------- LogBase helpers

void LogBase::LogDataSb(const char* key, const StringBuffer& value) { logValue(key, LogValueType::Text, value.view()); }

void LogBase::LogDataX(const char* key, const XString& value) {
  logValue(key, LogValueType::Text, value.getUtf8Sb().view());
}

void LogBase::LogDataStr(const char* key, const char* value) { logValue(key, LogValueType::Text, orEmpty(value)); }

void LogBase::LogDataLong(const char* key, long long value) {
  const std::string text = std::to_string(value);
  logValue(key, LogValueType::Integer, text);
}

void LogBase::LogDataUint32(const char* key, uint32_t value) {
  const std::string text = std::to_string(value);
  logValue(key, LogValueType::Unsigned, text);
}

void LogBase::LogDataBool(const char* key, bool value) {
  logValue(key, LogValueType::Boolean, value ? "true" : "false");
}

void LogBase::LogDataHexDb(const char* key, const DataBuffer& value) {
  StringBuffer hex;
  ContentCoding::encodeHex(value.getData2(), value.getSize(), true, hex);
  logValue(key, LogValueType::Hex, hex.view());
}

void LogBase::LogBracketed(const char* key, const StringBuffer& value) {
  logValue(key, LogValueType::Bracketed, value.view());
}

void LogBase::LogBracketed(const char* key, std::string_view value) { logValue(key, LogValueType::Bracketed, value); }

// ---------------------------------------------------------------- _btLogger: recording
//
// Every recording operation swallows allocation failure: a log that cannot grow loses the
// entry but never throws into the verifier. A context that could not be opened is
// counted in m_lostContexts so that its leaveContext does not close a real one.

_btLogger::_btLogger() { m_root.kind = LogEntry::Kind::Context; }

LogEntry& _btLogger::current() {
  LogEntry* e = &m_root;
  for (size_t i : m_path) e = &e->children[i];
  return *e;
}

void _btLogger::clear() {
  m_root.children.clear();
  m_path.clear();
  m_lostContexts = 0;
}

void _btLogger::addEntry(LogEntry::Kind kind, std::string_view key, std::string_view text, LogValueType type, int tag) {
  try {
    LogEntry e;
    e.kind = kind;
    e.key.assign(key.data(), key.size());
    e.text.assign(text.data(), text.size());
    e.valueType = type;
    e.tag = tag;
    current().children.push_back(std::move(e));
  } catch (const std::bad_alloc&) {
  }
}

void _btLogger::LogError(const char* text) {
  addEntry(LogEntry::Kind::Error, {}, orEmpty(text), LogValueType::Text, 0);
}

void _btLogger::LogInfo(const char* text) { addEntry(LogEntry::Kind::Info, {}, orEmpty(text), LogValueType::Text, 0); }

void _btLogger::LogInfo_n(const char* text, int n) {
  addEntry(LogEntry::Kind::Info, {}, orEmpty(text), LogValueType::Text, n);
}

void _btLogger::logValue(const char* key, LogValueType type, std::string_view value) {
  addEntry(LogEntry::Kind::Data, orEmpty(key), value, type, 0);
}

void _btLogger::logResult(bool success) {
  addEntry(LogEntry::Kind::Result, {}, success ? "Success." : "Failed.", LogValueType::Text, 0);
}

void _btLogger::enterContext(const char* name) {
  if (m_lostContexts > 0) {
    ++m_lostContexts;
    return;
  }
  // A context opened at the top level begins the record of a new public call.
  if (m_path.empty()) m_root.children.clear();
  try {
    m_path.reserve(m_path.size() + 1);
    LogEntry ctx;
    ctx.kind = LogEntry::Kind::Context;
    ctx.key = orEmpty(name);
    LogEntry& parent = current();
    parent.children.push_back(std::move(ctx));
    m_path.push_back(parent.children.size() - 1);
  } catch (const std::bad_alloc&) {
    ++m_lostContexts;
  }
}

void _btLogger::leaveContext() {
  if (m_lostContexts > 0) {
    --m_lostContexts;
    return;
  }
  if (!m_path.empty()) m_path.pop_back();
}

// ---------------------------------------------------------------- _btLogger: reading

namespace {

void renderEntries(const std::vector<LogEntry>& entries, int depth, std::string& out) {
  const std::string indent(static_cast<size_t>(depth) * 2, ' ');
  for (const LogEntry& e : entries) {
    out += indent;
    switch (e.kind) {
      case LogEntry::Kind::Context:
        out += e.key;
        out += ":\n";
        renderEntries(e.children, depth + 1, out);
        out += indent;
        out += "--";
        out += e.key;
        break;
      case LogEntry::Kind::Data:
        out += e.key;
        out += ": ";
        if (e.valueType == LogValueType::Bracketed) {
          out += '[';
          out += e.text;
          out += ']';
        } else {
          out += e.text;
        }
        break;
      case LogEntry::Kind::Error:
      case LogEntry::Kind::Info:
      case LogEntry::Kind::Result: out += e.text; break;
    }
    out += '\n';
  }
}

// A data value as JSON: numbers and booleans keep their type, everything else is a string.
nlohmann::json jsonValue(const LogEntry& e) {
  const char* s = e.text.c_str();
  char* end = nullptr;
  switch (e.valueType) {
    case LogValueType::Integer: {
      const long long v = std::strtoll(s, &end, 10);
      if (!e.text.empty() && end && *end == '\0') return v;
      break;
    }
    case LogValueType::Unsigned: {
      const unsigned long long v = std::strtoull(s, &end, 10);
      if (!e.text.empty() && end && *end == '\0') return v;
      break;
    }
    case LogValueType::Boolean:
      if (e.text == "true") return true;
      if (e.text == "false") return false;
      break;
    default: break;
  }
  return e.text;
}

nlohmann::json jsonEntries(const std::vector<LogEntry>& entries) {
  nlohmann::json arr = nlohmann::json::array();
  for (const LogEntry& e : entries) {
    nlohmann::json obj = nlohmann::json::object();
    switch (e.kind) {
      case LogEntry::Kind::Context:
        obj["context"] = e.key;
        obj["entries"] = jsonEntries(e.children);
        break;
      case LogEntry::Kind::Error: obj["error"] = e.text; break;
      case LogEntry::Kind::Info:
        obj["info"] = e.text;
        if (e.tag != 0) obj["tag"] = e.tag;
        break;
      case LogEntry::Kind::Data:
        obj["key"] = e.key;
        obj["value"] = jsonValue(e);
        break;
      case LogEntry::Kind::Result: obj["result"] = e.text == "Success." ? "success" : "failed"; break;
    }
    arr.push_back(std::move(obj));
  }
  return arr;
}

const LogEntry* lastError(const std::vector<LogEntry>& entries) {
  for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
    if (it->kind == LogEntry::Kind::Context) {
      if (const LogEntry* inner = lastError(it->children)) return inner;
    } else if (it->kind == LogEntry::Kind::Error) {
      return &*it;
    }
  }
  return nullptr;
}

bool containsIn(const std::vector<LogEntry>& entries, std::string_view text) {
  for (const LogEntry& e : entries) {
    if (e.key == text || e.text == text) return true;
    if (!e.children.empty() && containsIn(e.children, text)) return true;
  }
  return false;
}

}  // namespace

std::string _btLogger::renderText() const {
  std::string out;
  try {
    renderEntries(m_root.children, 0, out);
  } catch (const std::bad_alloc&) {
    out.clear();
  }
  return out;
}

std::string _btLogger::renderJson() const {
  try {
    nlohmann::json top = nlohmann::json::object();
    top["entries"] = jsonEntries(m_root.children);
    // Texts may hold bytes that are not UTF-8; they become U+FFFD rather than invalid JSON.
    return top.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  } catch (const std::exception&) {
    return "{\"entries\":[]}";
  }
}

std::string _btLogger::lastErrorLine() const {
  const LogEntry* e = lastError(m_root.children);
  return e ? e->text : std::string();
}

bool _btLogger::containsText(std::string_view text) const { return containsIn(m_root.children, text); }
