// A lock for what is read far more often than it is changed.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "kit/SharedLock.h"

// Exclusive and re-entrant through Lock and Unlock; readers (CReadLocker) do not wait for each
// other and share no cache line, so reading on two processors costs each of them what it costs one.
//
// While changes come often, a reader simply takes the lock. After a row of readings without a
// change in between the lock is open to readers: each only counts itself in a place of its thread.
// The next exclusive locking closes it again and waits until all places are empty.
//
// A reader must not ask for anything that could take the lock exclusively.
class CReadMostlyLock {
 public:
  void Lock() {
    m_lock.Lock();
    Close();
  }
  void Unlock() { m_lock.Unlock(); }
  // As of CSharedLock.
  unsigned Release() { return m_lock.Release(); }
  void Retake(unsigned depth) {
    m_lock.Retake(depth);
    Close();
  }

 private:
  friend class CReadLocker;
  // What is shared by threads whose numbers collide is only slower.
  static constexpr std::size_t kPlaces = 16;
  static constexpr unsigned kReadingsToOpen = 64;
  struct alignas(64) Place {
    std::atomic<std::uint32_t> readers{0};
  };

  static std::size_t PlaceOfThread() {
    static std::atomic<std::size_t> threads{0};
    thread_local const std::size_t place = threads.fetch_add(1, std::memory_order_relaxed);
    return place % kPlaces;
  }

  // A reader counts itself before it looks whether the lock is open, a writer closes it before it
  // looks at the places: one of them sees the other.
  Place* Enter() {
    if (!m_isOpen.load(std::memory_order_relaxed)) return nullptr;
    Place& place = m_places[PlaceOfThread()];
    place.readers.fetch_add(1, std::memory_order_seq_cst);
    if (m_isOpen.load(std::memory_order_seq_cst)) return &place;
    Leave(place);
    return nullptr;
  }
  static void Leave(Place& place) { place.readers.fetch_sub(1, std::memory_order_release); }

  // Reading within a change of the same thread opens nothing.
  void LockToRead() {
    m_lock.Lock();
    if (++m_readings < kReadingsToOpen || m_lock.Depth() > 1) return;
    m_isOpen.store(true, std::memory_order_seq_cst);
  }
  void Close() {
    m_readings = 0;
    if (!m_isOpen.load(std::memory_order_relaxed)) return;
    m_isOpen.store(false, std::memory_order_seq_cst);
    for (Place& place : m_places)
      while (place.readers.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
  }

  CSharedLock m_lock;
  unsigned m_readings = 0;  // since the last change; guarded by m_lock
  std::atomic<bool> m_isOpen{false};
  std::array<Place, kPlaces> m_places;
};

class CReadLocker {
 public:
  explicit CReadLocker(CReadMostlyLock& lock) : m_lock(lock), m_place(lock.Enter()) {
    if (m_place == nullptr) lock.LockToRead();
  }
  ~CReadLocker() {
    if (m_place != nullptr)
      CReadMostlyLock::Leave(*m_place);
    else
      m_lock.Unlock();
  }
  CReadLocker(const CReadLocker&) = delete;
  CReadLocker& operator=(const CReadLocker&) = delete;

 private:
  CReadMostlyLock& m_lock;
  CReadMostlyLock::Place* const m_place;
};
