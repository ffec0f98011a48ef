// Changing letters and deleting them.
#include "bench/Register.h"
#include "bench/Stores.h"

namespace {

// A bit of the client's: no counter depends on it.
constexpr long kClientBit = 0x200000;

// Reads the flag of a letter and writes another.
void WriteField(benchmark::State& state, CMSDurabilityLevel level) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CMSMessageStore store = OpenStore(prepared.directory.Path(), false, nullptr, level);
  RandomOrder order(prepared.letters);
  for (auto _ : state) {
    CMSDocument letter = store.GetDocument(order.Next());
    letter.Flag(letter.Flag() ^ kClientBit);
  }
}

// The first deletion is not counted: it puts the packet names in order, once for each opening.
void Delete(benchmark::State& state, CMSDurabilityLevel level) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  const ScratchStore scratch(prepared);
  CMSMessageStore store = OpenStore(scratch.Path(), false, nullptr, level);
  CMSFolder folder = LettersFolder(store);
  RandomOrder order(prepared.letters);
  const auto deleteNext = [&] {
    CMSDocument letter = store.GetDocument(order.Next());
    folder.DeleteDocument(letter);
  };
  deleteNext();
  for (auto _ : state) deleteNext();
}

using Measured = void (*)(benchmark::State&, CMSDurabilityLevel);

benchmark::internal::Benchmark* AddChange(const char* what, const NamedLevel& level,
                                          Measured body) {
  return AddForAllSizes(std::string(what) + "/" + level.name,
                        [=](benchmark::State& state) { body(state, level.level); })
      ->UseRealTime()
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace

void RegisterChanges() {
  for (const NamedLevel& level : {kProcess, kOperation}) {
    AddChange("write_field", level, WriteField);
    AddChange("delete", level, Delete)->Iterations(400);
  }
}
