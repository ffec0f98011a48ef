#include "bench/Measure.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <memory>
#include <vector>

#include "kit/KitFile.h"
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

double ReadLoadedFiles(const std::string& directory) {
  ReturnFreeMemory();
  std::vector<std::unique_ptr<std::byte[]>> contents;
  const Stopwatch watch;
  for (const char* name :
       {"attach3.idx", "rcpt3.idx", "docs3.idx", "folders3.idx", "rltns3.db", "packets3.db"}) {
    CKitFile file(CKitFile::Join(directory, name), {});
    const auto length = static_cast<std::size_t>(file.Length());
    contents.push_back(std::make_unique_for_overwrite<std::byte[]>(length));
    file.Read(0, contents.back().get(), length);
  }
  benchmark::ClobberMemory();
  return watch.Seconds();
}
