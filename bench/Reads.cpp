// Finding objects and reading fields. The records have been touched before, so that no page is
// mapped meanwhile.

#include <numeric>

#include "bench/Letters.h"
#include "bench/Measure.h"
#include "bench/Register.h"
#include "bench/Stores.h"
#include "ms/Source/Records.h"

namespace {

CMSMessageStore OpenWarm(const PreparedStore& prepared) {
  CMSMessageStore store = OpenStore(prepared.directory.Path());
  for (const unsigned long id : prepared.letters)
    benchmark::DoNotOptimize(store.GetDocument(id).Flag());
  return store;
}

// Times the body, and says by how much it exceeds one pair of lock calls.
template <class Body>
void MeasureBesideLock(benchmark::State& state, Body body) {
  const double lock = LockPairNanoseconds();
  const ProcessorStopwatch watch;
  for (auto _ : state) body();
  const double each = watch.Nanoseconds() / static_cast<double>(state.iterations());
  state.counters["lock_ns"] = lock;
  state.counters["beyond_lock_ns"] = each - lock;
}

void Lookup(benchmark::State& state) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CMSMessageStore store = OpenWarm(prepared);
  RandomOrder order(prepared.letters);
  MeasureBesideLock(state, [&] { benchmark::DoNotOptimize(store.GetDocument(order.Next())); });
}

void ReadById(benchmark::State& state) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CMSMessageStore store = OpenWarm(prepared);
  RandomOrder order(prepared.letters);
  MeasureBesideLock(state,
                    [&] { benchmark::DoNotOptimize(store.GetDocument(order.Next()).Flag()); });
}

void ReadByRisingId(benchmark::State& state) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CMSMessageStore store = OpenWarm(prepared);
  std::size_t next = 0;
  MeasureBesideLock(state, [&] {
    benchmark::DoNotOptimize(store.GetDocument(prepared.letters[next]).Flag());
    if (++next == prepared.letters.size()) next = 0;
  });
}

// No store at all: the same field of the same records in the same order, read through a pointer.
// Each address hangs on the value before, as locks would have it, so that no two reads overlap.
// What this takes is the machine's waiting for memory; no library can be faster.
void ReadMemory(benchmark::State& state) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CKitFile file(prepared.directory / "docs3.db", {});
  std::unique_ptr<platform::View> view;
  KitCheck(file.Handle().Map(file.Length(), platform::Access::Read, view), "map", file.Name());
  const std::byte* fields = view->Base() + sizeof(CMSFileHeader) + sizeof(CMSContainerHead) +
                            offsetof(CMSDocumentData, Flag);
  constexpr std::size_t kStep = sizeof(CMSContainerHead) + sizeof(CMSDocumentData);
  std::vector<unsigned long> containers(prepared.letters.size());
  std::iota(containers.begin(), containers.end(), 0UL);
  RandomOrder order(std::move(containers));
  std::int32_t nothing = 0, value = 0;
  benchmark::DoNotOptimize(nothing);
  for (auto _ : state) {
    const std::size_t at = order.Next() + static_cast<std::size_t>(value & nothing);
    value = *reinterpret_cast<const LittleI32*>(fields + at * kStep);
  }
  benchmark::DoNotOptimize(value);
}

// A handle on every letter, asked in an order of chance.
void ReadHeld(benchmark::State& state) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CMSMessageStore store = OpenWarm(prepared);
  RandomOrder order(prepared.letters);
  std::vector<CMSDocument> held;
  held.reserve(prepared.letters.size());
  for (std::size_t i = 0; i < prepared.letters.size(); ++i)
    held.push_back(store.GetDocument(order.Next()));
  std::size_t next = 0;
  MeasureBesideLock(state, [&] {
    benchmark::DoNotOptimize(held[next].Flag());
    if (++next == held.size()) next = 0;
  });
}

void FindPacket(benchmark::State& state) {
  const std::size_t letters = LettersOf(state);
  CMSMessageStore store = OpenWarm(Prepared(letters));
  std::vector<unsigned long> numbers(letters);
  for (std::size_t i = 0; i < letters; ++i) numbers[i] = i;
  RandomOrder order(std::move(numbers));
  for (auto _ : state) {
    const CMSRecipient found = store.FindRecipient(PacketName(order.Next(), 1).c_str(), true);
    if (!found) state.SkipWithError("a packet name was not found");
  }
}

}  // namespace

void RegisterReads() {
  AddForAllSizes("lookup", Lookup);
  AddForAllSizes("read_field/by_ID/random", ReadById);
  AddForAllSizes("read_field/by_ID/rising", ReadByRisingId);
  AddForAllSizes("read_field/held_handle/random", ReadHeld);
  AddForAllSizes("read_field/memory_alone/random", ReadMemory);
  AddForAllSizes("find_packet", FindPacket);
}
