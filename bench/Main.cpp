#include <cstdio>
#include <exception>
#include <thread>

#include "bench/Register.h"

namespace {

void RegisterAll() {
  RegisterOpening();
  RegisterReads();
  RegisterFolders();
  RegisterInserts();
  RegisterChanges();
  RegisterBackup();
  RegisterRepair();
}

// In a process that never had a second thread the C library takes locks without atomic
// instructions. A mail client is no such process.
void EndSingleThreadedMode() {
  std::thread([] {}).join();
}

}  // namespace

int main(int count, char** arguments) {
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 1;
  EndSingleThreadedMode();
  try {
    RegisterAll();
    benchmark::RunSpecifiedBenchmarks();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ms_bench: %s\n", error.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}
