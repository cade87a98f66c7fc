// The lock every public object embeds, and the scope guard that holds it.
#pragma once

#include <mutex>

class BrantelCritSec {
 public:
  void enterCriticalSection() { m_mutex.lock(); }
  void leaveCriticalSection() { m_mutex.unlock(); }

 private:
  std::recursive_mutex m_mutex;  // recursive: a public operation may call another's getter
};

class CritSecExitor {
 public:
  explicit CritSecExitor(BrantelCritSec& cs) : m_cs(cs) { m_cs.enterCriticalSection(); }
  explicit CritSecExitor(BrantelCritSec* cs) : CritSecExitor(*cs) {}
  ~CritSecExitor() { m_cs.leaveCriticalSection(); }
  CritSecExitor(const CritSecExitor&) = delete;
  CritSecExitor& operator=(const CritSecExitor&) = delete;

 private:
  BrantelCritSec& m_cs;
};
