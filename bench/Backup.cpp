// Backing a store up for the first time, and again when nothing has changed.
#include "bench/Register.h"
#include "bench/Stores.h"
#include "ms/Source/Archiver.h"

namespace {

void Backup(const CMSMessageStore& store, const TempDir& target) {
  CMSArchiver().Backup(store, (target / "backup").c_str(), nullptr, nullptr);
}

void CountLetters(benchmark::State& state) {
  state.SetItemsProcessed(state.range(0) * state.iterations());
}

void First(benchmark::State& state) {
  const CMSMessageStore store = OpenStore(Prepared(LettersOf(state)).directory.Path(), true);
  for (auto _ : state) {
    const TempDir target;
    Backup(store, target);
  }
  CountLetters(state);
}

void Unchanged(benchmark::State& state) {
  const CMSMessageStore store = OpenStore(Prepared(LettersOf(state)).directory.Path(), true);
  const TempDir target;
  Backup(store, target);
  for (auto _ : state) Backup(store, target);
  CountLetters(state);
}

}  // namespace

void RegisterBackup() {
  using Body = void (*)(benchmark::State&);
  for (const auto& [name, body] :
       {std::pair<const char*, Body>{"backup/first", First}, {"backup/unchanged", Unchanged}}) {
    AddForAllSizes(name, body)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  }
}
