// A signal between the threads of one process.
#pragma once

#include <condition_variable>
#include <mutex>

// Manual: stays set until Reset. Automatic: one Wait or Poll that sees it set clears it.
class CKitEvent {
 public:
  enum class Kind { Manual, Automatic };
  explicit CKitEvent(Kind kind) : m_kind(kind) {}

  void Set() {
    const std::lock_guard guard(m_mutex);
    m_set = true;
    m_changed.notify_all();
  }
  void Reset() {
    const std::lock_guard guard(m_mutex);
    m_set = false;
  }
  void Wait() {
    std::unique_lock guard(m_mutex);
    m_changed.wait(guard, [this] { return m_set; });
    if (m_kind == Kind::Automatic) m_set = false;
  }
  // Whether it is set now; never waits.
  bool Poll() {
    const std::lock_guard guard(m_mutex);
    const bool was = m_set;
    if (m_kind == Kind::Automatic) m_set = false;
    return was;
  }

 private:
  const Kind m_kind;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_set = false;
};
