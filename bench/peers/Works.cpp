// What a mail client asks of its store, done by each engine. Every work makes sure, outside of what
// is timed, that it has been done.
#include "bench/peers/Works.h"

#include <benchmark/benchmark.h>

#include "bench/Letters.h"
#include "bench/Measure.h"
#include "bench/peers/Datasets.h"
#include "bench/peers/LetterBytes.h"

namespace {

using State = benchmark::State;

constexpr std::int32_t kClientBit = 0x200000;
constexpr std::size_t kMostNames = 100'000;

void Demand(State& state, bool good, const char* what) {
  if (!good) state.SkipWithError(what);
}

// How much one iteration does; times are told for one of them.
void Operations(State& state, std::size_t count) {
  state.counters["operations"] =
      benchmark::Counter(static_cast<double>(count), benchmark::Counter::kAvgThreads);
}

void DemandLetters(State& state, Peer& peer, const Letters& letters) {
  const Listing listing = peer.List(letters.folder);
  std::size_t subjects = 0;
  std::uint64_t flags = 0;
  for (const KeptLetter& letter : letters.kept) {
    subjects += Subject(letter.number).size();
    flags += static_cast<std::uint64_t>(letter.flag);
  }
  Demand(state, listing.letters == letters.kept.size(), "the folder has other letters");
  Demand(state, listing.subjectBytes == subjects, "subjects differ");
  Demand(state, listing.flags == flags, "flags differ");
}

template <Promise kPromise, std::size_t kBatch>
void Create(State& state, const Engine& engine, std::size_t size) {
  WorkingStore store(engine, size, kPromise);
  for (auto _ : state) {
    store.peer().Begin();
    for (std::size_t i = 0; i < kBatch; ++i) store.letters().Add(store.peer());
    store.peer().Commit();
  }
  DemandLetters(state, store.peer(), store.letters());
  Operations(state, kBatch);
}

constexpr std::size_t kWithFiles = 100;  // to one promise

std::string SourceFile() {
  static const TempDir directory;
  const std::string path = directory / "report.pdf";
  if (!CKitFile::Exists(path)) WriteBytes(path, std::string(kFileBytes, 'x'));
  return path;
}

void CreateWithFiles(State& state, const Engine& engine, std::size_t size) {
  WorkingStore store(engine, size, Promise::None);
  const std::string source = SourceFile();
  const std::size_t before = store.peer().List(store.letters().other).letters;
  std::size_t number = store.letters().next;
  for (auto _ : state) {
    store.peer().Begin();
    for (std::size_t i = 0; i < kWithFiles; ++i)
      store.peer().AddLetterWithFiles(store.letters().other, number++, source);
    store.peer().Commit();
  }
  const std::size_t made = number - store.letters().next;
  store.letters().next += static_cast<std::uint32_t>(made);
  Demand(state, store.peer().List(store.letters().other).letters == before + made, "not created");
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(store.Path()))
    if (entry.is_regular_file() && entry.file_size() == kFileBytes) ++files;
  Demand(state, files >= made * kAttachments, "files are missing");
  Operations(state, kWithFiles);
}

// The files of letters, and no letters.
void FilesAlone(State& state) {
  const TempDir directory;
  KitCheck(platform::Files().SyncVolume(directory.Path()), "sync", directory.Path());
  std::size_t number = 0;
  for (auto _ : state)
    for (std::size_t i = 0; i < kWithFiles; ++i) WriteLetterFiles(directory.Path(), number++);
  Operations(state, kWithFiles);
}

void Open(State& state, const Engine& engine, std::size_t size) {
  const KeptLetter letter = Lend(engine, size).letters.kept.front();
  const std::string directory = ClosedStore(engine, size);
  for (auto _ : state) {
    ReturnFreeMemory();
    const Stopwatch watch;
    const auto peer = engine.open(directory, Promise::None);
    const std::int32_t flag = peer->NewReader()->Flag(letter.id);
    state.SetIterationTime(watch.Seconds());
    Demand(state, flag == letter.flag, "the flag differs");
  }
  Operations(state, 1);
}

void ReadFilesAlone(State& state, std::size_t size) {
  const std::string directory = ClosedStore(kEngines.front(), size);
  for (auto _ : state) state.SetIterationTime(ReadLoadedFiles(directory));
  Operations(state, 1);
}

void OpenMemory(State& state, std::size_t size) {
  const std::string directory = ClosedStore(kEngines.front(), size);
  for (auto _ : state) {
    ReturnFreeMemory();
    const Memory before = MemoryInUse();
    const auto peer = kEngines.front().open(directory, Promise::None);
    state.counters["bytes_per_entry"] =
        (MemoryInUse().resident - before.resident) / static_cast<double>(size * kEntriesPerLetter);
  }
  Operations(state, 1);
}

// Each thread begins at another letter.
void ReadField(State& state, const Engine& engine, std::size_t size) {
  OpenedStore& store = Lend(engine, size);
  const std::vector<KeptLetter>& letters = store.letters.kept;
  const auto reader = store.peer->NewReader();
  const std::size_t first = letters.size() / static_cast<std::size_t>(state.threads()) *
                            static_cast<std::size_t>(state.thread_index());
  std::size_t next = first;
  std::uint64_t sum = 0;
  for (auto _ : state) {
    sum += static_cast<std::uint64_t>(reader->Flag(letters[next].id));
    if (++next == letters.size()) next = 0;
  }
  next = first;
  for (benchmark::IterationCount i = 0; i < state.iterations(); ++i) {
    sum -= static_cast<std::uint64_t>(letters[next].flag);
    if (++next == letters.size()) next = 0;
  }
  Demand(state, sum == 0, "flags differ");
  Operations(state, 1);
}

void ListFolder(State& state, const Engine& engine, std::size_t size) {
  OpenedStore& store = Lend(engine, size);
  for (auto _ : state) benchmark::DoNotOptimize(store.peer->List(store.letters.folder));
  DemandLetters(state, *store.peer, store.letters);
  Operations(state, size);
}

std::vector<std::string> PacketNames(const Letters& letters) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < std::min(letters.kept.size(), kMostNames); ++i)
    names.push_back(PacketName(letters.kept[i].number, 1));
  return names;
}

void FindPacket(State& state, const Engine& engine, std::size_t size) {
  OpenedStore& store = Lend(engine, size);
  const std::vector<std::string> names = PacketNames(store.letters);
  std::size_t next = 0, wrong = 0;
  for (auto _ : state) {
    if (store.peer->FindPacket(names[next]) != store.letters.kept[next].id) ++wrong;
    if (++next == names.size()) next = 0;
  }
  Demand(state, wrong == 0, "packet names are not found");
  Operations(state, 1);
}

void SetFlag(State& state, const Engine& engine, std::size_t size) {
  OpenedStore& store = Lend(engine, size);
  std::vector<KeptLetter>& letters = store.letters.kept;
  std::size_t next = 0;
  for (auto _ : state) {
    letters[next].flag ^= kClientBit;
    store.peer->SetFlag(letters[next].id, letters[next].flag);
    if (++next == letters.size()) next = 0;
  }
  DemandLetters(state, *store.peer, store.letters);
  Operations(state, 1);
}

void Move(State& state, const Engine& engine, std::size_t size) {
  OpenedStore& store = Lend(engine, size);
  const Letters& letters = store.letters;
  const std::size_t elsewhere = store.peer->List(letters.other).letters;
  store.peer->Move(letters.kept.front().id, letters.other);
  Demand(state, store.peer->List(letters.other).letters == elsewhere + 1, "not moved");
  store.peer->Move(letters.kept.front().id, letters.folder);
  std::size_t next = 0;
  for (auto _ : state) {
    store.peer->Move(letters.kept[next].id, letters.other);
    store.peer->Move(letters.kept[next].id, letters.folder);
    if (++next == letters.kept.size()) next = 0;
  }
  DemandLetters(state, *store.peer, letters);
  Operations(state, 2);
}

// To a name of no letter, and back.
void Rename(State& state, const Engine& engine, std::size_t size) {
  OpenedStore& store = Lend(engine, size);
  const std::vector<std::string> names = PacketNames(store.letters);
  std::vector<std::string> others = names;
  for (std::string& name : others) name[0] = static_cast<char>(name[0] + 0x20);
  store.peer->Rename(names[0], others[0]);
  Demand(state, store.peer->FindPacket(names[0]) == kNone, "the old name is still found");
  Demand(state, store.peer->FindPacket(others[0]) == store.letters.kept[0].id, "not renamed");
  store.peer->Rename(others[0], names[0]);
  std::size_t next = 0;
  for (auto _ : state) {
    store.peer->Rename(names[next], others[next]);
    store.peer->Rename(others[next], names[next]);
    if (++next == names.size()) next = 0;
  }
  Demand(state, store.peer->FindPacket(names[0]) == store.letters.kept[0].id, "not renamed back");
  Operations(state, 2);
}

void Delete(State& state, const Engine& engine, std::size_t size) {
  WorkingStore store(engine, size, Promise::None);
  std::vector<KeptLetter>& letters = store.letters().kept;
  const std::string name = PacketName(letters.back().number, 1);
  for (auto _ : state) {
    store.peer().Delete(letters.back().id);
    letters.pop_back();
  }
  Demand(state, store.peer().FindPacket(name) == kNone, "a packet name is left");
  DemandLetters(state, store.peer(), store.letters());
  Operations(state, 1);
}

// Counted: never asked for before, which makes no difference to who keeps counts. Opened: the store
// has just been opened. Cached: asked again.
enum class Asked { Counted, Opened, Cached };

template <Asked kAsked>
void Unread(State& state, const Engine& engine, std::size_t) {
  for (auto _ : state) {
    const ManyFolders store(engine);
    std::size_t sum = 0;
    const auto ask = [&](Peer& peer) {
      const Stopwatch watch;
      sum = 0;
      for (const Id folder : store.folders) sum += peer.Unread(folder);
      return watch.Seconds();
    };
    auto peer = engine.open(store.directory.Path(), Promise::None);
    double seconds = ask(*peer);
    if (kAsked == Asked::Opened) {
      peer.reset();
      peer = engine.open(store.directory.Path(), Promise::None);
    }
    if (kAsked != Asked::Counted) seconds = ask(*peer);
    state.SetIterationTime(seconds);
    Demand(state, sum == kManyFolders * kLettersInEach / 2, "unread counts differ");
  }
  Operations(state, kManyFolders);
}

using Body = void (*)(State&, const Engine&, std::size_t);

template <class Run>
benchmark::internal::Benchmark* Add(const char* work, const char* who, std::size_t size, Run run) {
  const std::string name = std::string(work) + "/" + who + "/" + std::to_string(size);
  return benchmark::RegisterBenchmark(name.c_str(), run);
}

struct Work {
  const char* name;
  Body body;
  int iterations = 0;  // 0: as many as it takes
  bool ownClock = false;
  int threads = 1;
};
constexpr std::size_t kThousand = 1000;
constexpr Work kWorks[] = {
    {"create", Create<Promise::None, kThousand>, 4},
    {"create_safe", Create<Promise::PowerSafe, 1>, 100},
    {"create_files", CreateWithFiles, 2},
    {"open", Open, 0, true},
    {"read", ReadField},
    {"read_2", ReadField, 0, false, 2},
    {"list", ListFolder},
    {"find", FindPacket},
    {"flag", SetFlag},
    {"move", Move},
    {"rename", Rename},
    {"delete", Delete, 400},
};
constexpr Work kUnreadWorks[] = {{"unread_counted", Unread<Asked::Counted>},
                                 {"unread_opened", Unread<Asked::Opened>},
                                 {"unread_cached", Unread<Asked::Cached>}};

void AddWork(const Work& work, const Engine& engine, std::size_t size) {
  auto* added = Add(work.name, engine.name, size,
                    [=, &engine](State& state) { work.body(state, engine, size); });
  if (work.iterations != 0) added->Iterations(work.iterations);
  work.ownClock ? added->UseManualTime() : added->UseRealTime();
  if (work.threads != 1) added->Threads(work.threads);
}

}  // namespace

void RegisterWorks(const std::vector<std::size_t>& sizes) {
  for (const Engine& engine : kEngines) {
    for (const std::size_t size : sizes)
      for (const Work& work : kWorks) AddWork(work, engine, size);
    for (Work work : kUnreadWorks) {
      if (work.body == Unread<Asked::Counted> && &engine != kEngines.data()) continue;
      work.iterations = 1;
      work.ownClock = true;
      AddWork(work, engine, kManyFolders * kLettersInEach);
    }
  }
  for (const std::size_t size : sizes) {
    Add("create_files", "alone", size, FilesAlone)->Iterations(2)->UseRealTime();
    Add("open", "alone", size, [=](State& state) { ReadFilesAlone(state, size); })->UseManualTime();
    Add("memory", "ms", size, [=](State& state) { OpenMemory(state, size); })->Iterations(1);
  }
}
