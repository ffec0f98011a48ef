// New letters, at both levels and with more and fewer of them to one promise.
#include <cstdint>

#include "bench/Letters.h"
#include "bench/Register.h"
#include "bench/Stores.h"

namespace {

// The first letter is not counted: it puts the packet names in order, once for each opening.
void Insert(benchmark::State& state, CMSDurabilityLevel level, std::size_t batch) {
  std::size_t number = LettersOf(state);
  const ScratchStore scratch(Prepared(number));
  CMSMessageStore store = OpenStore(scratch.Path(), false, nullptr, level);
  CMSFolder folder = LettersFolder(store);
  PutLetter(folder, number++);
  for (auto _ : state) {
    CMSBatch promise(store);
    for (std::size_t i = 0; i < batch; ++i) PutLetter(folder, number++);
    promise.Commit();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(batch));
}

void AddInsert(const NamedLevel& level, int batch, int times) {
  const std::string name = std::string("insert/") + level.name + "/batch:" + std::to_string(batch);
  AddForAllSizes(
      name,
      [=](benchmark::State& state) { Insert(state, level.level, static_cast<std::size_t>(batch)); })
      ->Iterations(times)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

void RegisterInserts() {
  AddInsert(kProcess, 1000, 2);
  AddInsert(kOperation, 1000, 2);
  AddInsert(kOperation, 100, 20);
  AddInsert(kOperation, 10, 100);
  AddInsert(kOperation, 1, 500);
}
