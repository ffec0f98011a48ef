#include "bench/Measure.h"

#include <benchmark/benchmark.h>

#include <fstream>

#include "kit/SharedLock.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

double LockPairNanoseconds() {
  constexpr int kPairs = 1'000'000;
  CSharedLock lock;
  const ProcessorStopwatch watch;
  for (int i = 0; i < kPairs; ++i) {
    const CSharedLocker guard(lock);
    benchmark::ClobberMemory();
  }
  return watch.Nanoseconds() / kPairs;
}

namespace {

double HeapBytes() {
#ifdef __GLIBC__
  const auto info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
#else
  return 0;
#endif
}

// The shared pages are those of files.
double PrivateResidentBytes() {
  constexpr double kPage = 4096;
  std::ifstream in("/proc/self/statm");
  double total = 0, resident = 0, shared = 0;
  in >> total >> resident >> shared;
  return (resident - shared) * kPage;
}

}  // namespace

Memory MemoryInUse() {
  return {HeapBytes(), PrivateResidentBytes()};
}

void ReturnFreeMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}
