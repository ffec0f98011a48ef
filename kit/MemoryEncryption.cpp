#include "kit/MemoryEncryption.h"

#include <atomic>

#include "kit/SoftwareEncryption.h"

namespace {

std::atomic<CMemoryEncryption*> inPlace{nullptr};

}  // namespace

CMemoryEncryption& MemoryEncryption() {
  CMemoryEncryption* const other = inPlace.load();
  return other != nullptr ? *other : OwnMemoryEncryption();
}

CMemoryEncryption* SetMemoryEncryption(CMemoryEncryption* encryption) {
  return inPlace.exchange(encryption);
}
