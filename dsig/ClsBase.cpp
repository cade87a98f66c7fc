// ClsBase: the lock, the log and the options every public object shares.
#include "dsig/ClsBase.h"

#include <fstream>

void ClsBase::_toString(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_log.renderText().c_str());
}

// Lets a caller (a wrapper or a test harness) record an outcome of its own in the
// object's log, where the rest of the call's diagnostics are.
void ClsBase::injectStatus(int status) {
  CritSecExitor lock(*this);
  m_log.LogDataLong("status", status);
}

void ClsBase::injectError(const char* text) {
  CritSecExitor lock(*this);
  m_log.LogError(text ? text : "");
}

// The log carries the keywords so that internal operations holding only a log can test them.
void ClsBase::put_UncommonOptions(const XString& options) {
  CritSecExitor lock(*this);
  m_log.m_uncommonOptions.setString(options.getUtf8Sb());
}

void ClsBase::get_UncommonOptions(XString& out) {
  CritSecExitor lock(*this);
  out.setFromSbUtf8(m_log.m_uncommonOptions);
}

bool ClsBase::get_VerboseLogging() {
  CritSecExitor lock(*this);
  return m_log.m_verboseLogging;
}

void ClsBase::put_VerboseLogging(bool verbose) {
  CritSecExitor lock(*this);
  m_log.m_verboseLogging = verbose;
}

// Nothing is held at this level beyond what the destructor releases.
void ClsBase::dotNetDispose() {}

void ClsBase::get_DebugLogFilePath(XString& out) {
  CritSecExitor lock(*this);
  out.copyFromX(m_debugLogFilePath);
}

void ClsBase::put_DebugLogFilePath(const XString& path) {
  CritSecExitor lock(*this);
  m_debugLogFilePath.copyFromX(path);
}

void ClsBase::get_LastErrorText(XString& out) {
  CritSecExitor lock(*this);
  out.setFromUtf8(m_log.renderText().c_str());
}

std::string ClsBase::lastErrorText() {
  CritSecExitor lock(*this);
  return m_log.renderText();
}

std::string ClsBase::lastErrorJson() {
  CritSecExitor lock(*this);
  return m_log.renderJson();
}

std::string ClsBase::lastErrorLine() {
  CritSecExitor lock(*this);
  return m_log.lastErrorLine();
}

void ClsBase::appendLogToDebugFile() noexcept {
  if (m_debugLogFilePath.isEmpty()) return;
  try {
    std::ofstream out(m_debugLogFilePath.getUtf8(), std::ios::binary | std::ios::app);
    if (out) out << m_log.renderText() << '\n';
  } catch (...) {
    // A debug log that cannot be written must not change the outcome of the call.
  }
}
