// Scanning and repairing a store, beside reading and writing its files three times.
#include "bench/Measure.h"
#include "bench/Register.h"
#include "bench/Stores.h"
#include "ms/Source/MSFixer.h"
#include "ms/Source/Records.h"
#include "ms/Source/StoreFiles.h"

namespace {

using MSF::CFixer;

void MustSucceed(benchmark::State& state, const CFixer& fixer, bool good) {
  if (!good) state.SkipWithError(fixer.Error().empty() ? "findings" : fixer.Error().c_str());
}

// Puts the files beside themselves, on the medium, three times. Answers the seconds.
double CopyThrice(const std::string& store) {
  const Stopwatch watch;
  std::vector<std::byte> block(1 << 20);
  for (int times = 0; times < 3; ++times) {
    const TempDir target(store);
    for (const char* name : storefiles::kRequired) {
      CKitFile from(CKitFile::Join(store, name), {});
      CKitFile to(target / name,
                  {platform::Access::ReadWrite, platform::Disposition::CreateNew, {}});
      while (const std::size_t read = from.Read(to.Length(), block.data(), block.size()))
        to.Append(block.data(), read);
      to.Sync();
    }
  }
  return watch.Seconds();
}

// A store as repairs leave it: with its predefined folders.
void MakeHealthy(benchmark::State& state, const std::string& store) {
  CFixer fixer;
  MustSucceed(state, fixer, fixer.RepairMS((store + "/").c_str()));
}

void Scan(benchmark::State& state) {
  const ScratchStore store(Prepared(LettersOf(state)));
  MakeHealthy(state, store.Path());
  for (auto _ : state) {
    CFixer fixer;
    MustSucceed(state, fixer, fixer.ScanMS(store.Path().c_str()));
  }
}

void Healthy(benchmark::State& state) {
  const ScratchStore store(Prepared(LettersOf(state)));
  MakeHealthy(state, store.Path());
  double repairing = 0;
  double copying = 0;
  for (auto _ : state) {
    const Stopwatch watch;
    CFixer fixer;
    MustSucceed(state, fixer, fixer.RepairMS((store.Path() + "/").c_str()));
    const double seconds = watch.Seconds();
    state.SetIterationTime(seconds);
    repairing += seconds;
    copying += CopyThrice(store.Path());
  }
  state.counters["copied_thrice_ms"] = copying / static_cast<double>(state.iterations()) * 1e3;
  state.counters["repair_per_copied_thrice"] = repairing / copying;
}

// Every tenth letter with a wrong count, all indexes gone.
void Damaged(benchmark::State& state) {
  const ScratchStore store(Prepared(LettersOf(state)));
  MakeHealthy(state, store.Path());
  constexpr std::uint64_t kSlot = sizeof(CMSContainerHead) + sizeof(CMSDocumentData);
  for (auto _ : state) {
    {
      CKitFile file(CKitFile::Join(store.Path(), "docs3.db"),
                    {platform::Access::ReadWrite, platform::Disposition::OpenExisting,
                     platform::Sharing::All});
      const LittleU32 wrong = 4711;
      for (std::uint64_t at = sizeof(CMSFileHeader); at + kSlot <= file.Length(); at += 10 * kSlot)
        file.Write(at + sizeof(CMSContainerHead) + offsetof(CMSDocumentData, Size), &wrong,
                   sizeof wrong);
    }
    for (const char* name : {"docs3.idx", "attach3.idx", "rcpt3.idx", "folders3.idx"})
      CKitFile::RemoveEx(CKitFile::Join(store.Path(), name));
    const Stopwatch watch;
    CFixer fixer;
    MustSucceed(state, fixer, fixer.RepairMS((store.Path() + "/").c_str()));
    state.SetIterationTime(watch.Seconds());
  }
}

}  // namespace

void RegisterRepair() {
  using Body = void (*)(benchmark::State&);
  for (const auto& [name, body] : {std::pair<const char*, Body>{"repair/scan", Scan},
                                   {"repair/healthy", Healthy},
                                   {"repair/damaged", Damaged}}) {
    auto* benchmark = AddForAllSizes(name, body);
    benchmark->Iterations(1)->Unit(benchmark::kMillisecond);
    body == Scan ? benchmark->UseRealTime() : benchmark->UseManualTime();
  }
}
