// ClsBase: what every public object of the library carries: its lock (the object is
// itself the critical section), its log, the uncommon-options keywords, and the frame
// that each public operation runs in.
#pragma once

#include <string>

#include "support/CritSec.h"
#include "support/LogBase.h"
#include "support/XString.h"

class ClsBase : public BrantelCritSec {
 public:
  ClsBase() = default;
  ClsBase(const ClsBase&) = delete;
  ClsBase& operator=(const ClsBase&) = delete;
  virtual ~ClsBase() = default;

  virtual void _toString(XString& out);
  virtual void injectStatus(int status);
  virtual void injectError(const char* text);
  // Keywords that switch on uncommon behaviour ("ZATCA", "MYINVOIS", "AllowXmlDigestError",
  // "VerifyEncapsulatedTimeStamp"); the log carries them to internal operations.
  virtual void put_UncommonOptions(const XString& options);
  virtual bool get_VerboseLogging();
  virtual void put_VerboseLogging(bool verbose);
  virtual void dotNetDispose();
  virtual void get_DebugLogFilePath(XString& out);
  virtual void put_DebugLogFilePath(const XString& path);

  void get_UncommonOptions(XString& out);
  // The log of the most recent public call, as indented text and as JSON.
  void get_LastErrorText(XString& out);
  std::string lastErrorText();
  std::string lastErrorJson();
  // The last error line of the most recent call ("" when none): a one-line reason.
  std::string lastErrorLine();

  // Records the outcome of a public operation in its log context.
  void logSuccessFailure(bool success) { m_log.logResult(success); }
  void logSuccessFailure2(bool success, LogBase& log) { log.logResult(success); }

  _btLogger m_log;

 protected:
  // The frame of a public operation: the object's lock for the whole call, a log context
  // named as the operation, and (for the operations that start a fresh result) the log's
  // last JSON data cleared. Declared first in a public operation; undone on every path.
  class OperationFrame {
   public:
    OperationFrame(ClsBase& obj, const char* name, bool clearJson)
        : m_lock(obj), m_debugLog(obj), m_context(obj.m_log, name) {
      if (clearJson) obj.m_log.clearLastJsonData();
    }

   private:
    // Counts nested frames; when the outermost one ends (after its log context has
    // closed, before the lock is released) the call's log goes to the debug log file.
    class DebugLogFlush {
     public:
      explicit DebugLogFlush(ClsBase& obj) : m_obj(obj) { ++m_obj.m_frameDepth; }
      ~DebugLogFlush() {
        if (--m_obj.m_frameDepth == 0) m_obj.appendLogToDebugFile();
      }
      DebugLogFlush(const DebugLogFlush&) = delete;
      DebugLogFlush& operator=(const DebugLogFlush&) = delete;

     private:
      ClsBase& m_obj;
    };

    CritSecExitor m_lock;
    DebugLogFlush m_debugLog;
    LogContextExitor m_context;
  };

 private:
  // Appends the log of the call just finished to DebugLogFilePath, when one is set.
  void appendLogToDebugFile() noexcept;

  XString m_debugLogFilePath;
  int m_frameDepth = 0;
};
