// Intrusive reference counting.
#pragma once

#include <atomic>

// Starts with one reference, the maker's. The last Release destroys the object. Thread-safe.
class CKitReference {
 public:
  CKitReference(const CKitReference&) = delete;
  CKitReference& operator=(const CKitReference&) = delete;
  virtual ~CKitReference() = default;
  virtual void AddRef() { m_references.fetch_add(1, std::memory_order_relaxed); }
  virtual void Release() {
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  bool IsSingleOwned() const { return m_references.load(std::memory_order_acquire) == 1; }

 protected:
  CKitReference() = default;
  // Gives a reference back, unless it is the last one.
  bool ReleaseUnlessLast() {
    long count = m_references.load(std::memory_order_relaxed);
    while (count > 1)
      if (m_references.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel))
        return true;
    return false;
  }

 private:
  std::atomic<long> m_references{1};
};
