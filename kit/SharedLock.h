// The library's lock: private to the process, re-entrant for the thread that holds it.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

class CSharedLock {
 public:
  void Lock() {
    const auto self = std::this_thread::get_id();
    if (m_owner.load(std::memory_order_relaxed) != self) {
      m_mutex.lock();
      m_owner.store(self, std::memory_order_relaxed);
    }
    ++m_depth;
  }
  void Unlock() {
    if (--m_depth == 0) {
      m_owner.store({}, std::memory_order_relaxed);
      m_mutex.unlock();
    }
  }
  // Lets it go however often the calling thread, which holds it, has taken it; Retake takes it as
  // often again. For waits that another thread must end.
  unsigned Release() {
    const unsigned depth = m_depth;
    m_depth = 1;
    Unlock();
    return depth;
  }
  void Retake(unsigned depth) {
    Lock();
    m_depth = depth;
  }
  // How often the calling thread, which holds it, has taken it.
  unsigned Depth() const { return m_depth; }

 private:
  std::mutex m_mutex;
  std::atomic<std::thread::id> m_owner{};
  unsigned m_depth = 0;  // guarded by m_mutex
};

// Holds a lock of any kind exclusively.
template <class Lock>
class CSharedLocker {
 public:
  explicit CSharedLocker(Lock& lock) : m_lock(lock) { m_lock.Lock(); }
  ~CSharedLocker() { m_lock.Unlock(); }
  CSharedLocker(const CSharedLocker&) = delete;
  CSharedLocker& operator=(const CSharedLocker&) = delete;

 private:
  Lock& m_lock;
};
