// Opening a store, beside the least that it could cost, and what it takes of memory.
#include "bench/Letters.h"
#include "bench/Measure.h"
#include "bench/Register.h"
#include "bench/Stores.h"

namespace {

void FindFirstPacket(CMSMessageStore& store) {
  benchmark::DoNotOptimize(store.FindRecipient(PacketName(0, 0).c_str(), true));
}

// Packet names are put in order when the first of them is asked for; that is told apart.
void Open(benchmark::State& state) {
  const TempDir& directory = Prepared(LettersOf(state)).directory;
  double opening = 0, reading = 0, finding = 0;
  for (auto _ : state) {
    reading += ReadLoadedFiles(directory.Path());
    ReturnFreeMemory();
    const Stopwatch watch;
    CMSMessageStore store = OpenStore(directory.Path());
    const double opened = watch.Seconds();
    state.SetIterationTime(opened);
    opening += opened;
    FindFirstPacket(store);
    finding += watch.Seconds() - opened;
  }
  const auto times = static_cast<double>(state.iterations());
  state.counters["read_files_ms"] = reading / times * 1e3;
  state.counters["first_packet_ms"] = finding / times * 1e3;
  state.counters["open_per_read"] = opening / reading;
  state.counters["open_and_packet_per_read"] = (opening + finding) / reading;
}

// Bytes per live entry. The folders' few entries are not counted.
void OpenMemory(benchmark::State& state) {
  const std::size_t letters = LettersOf(state);
  const TempDir& directory = Prepared(letters).directory;
  const auto entries = static_cast<double>(letters * kEntriesPerLetter);
  for (auto _ : state) {
    ReturnFreeMemory();
    const Memory before = MemoryInUse();
    CMSMessageStore store = OpenStore(directory.Path());
    const Memory opened = MemoryInUse();
    FindFirstPacket(store);
    const Memory asked = MemoryInUse();
    state.counters["resident_per_entry"] = (opened.resident - before.resident) / entries;
    state.counters["heap_per_entry"] = (opened.heap - before.heap) / entries;
    state.counters["resident_per_entry_packets_asked"] =
        (asked.resident - before.resident) / entries;
    state.counters["heap_per_entry_packets_asked"] = (asked.heap - before.heap) / entries;
  }
}

}  // namespace

void RegisterOpening() {
  AddForAllSizes("open", Open)->UseManualTime()->Unit(benchmark::kMillisecond);
  AddForAllSizes("open_memory", OpenMemory)->Iterations(1)->Unit(benchmark::kMillisecond);
}
