// Runs fuzz targets without a fuzzer: over the inputs that are kept, and over changed ones.
//
//   fuzz_replay TARGET CHANGES PATH...   files, and directories of files; each input as it is, and
//                                        that many changed from it, the same ones each time
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>

#include "Scratch.h"
#include "support/StoreChecker.h"

#define X(name) extern "C" int Fuzz_##name(const std::uint8_t*, std::size_t);
MS_FUZZ_TARGETS
#undef X

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed);

namespace {

namespace fs = std::filesystem;

struct Target {
  const char* name;
  int (*run)(const std::uint8_t*, std::size_t);
};
constexpr Target kTargets[] = {
#define X(name) {#name, Fuzz_##name},
    MS_FUZZ_TARGETS
#undef X
};

std::minstd_rand g_random;

std::vector<fs::path> FilesIn(int count, char** paths) {
  std::vector<fs::path> files;
  for (int i = 0; i < count; ++i) {
    if (!fs::is_directory(paths[i])) files.emplace_back(paths[i]);
    if (!fs::is_directory(paths[i])) continue;
    for (const auto& entry : fs::directory_iterator(paths[i])) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Of its own length to the byte, so that a sanitizer sees what reads beyond it.
void Run(const Target& target, const std::string& bytes) {
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  (void)target.run(input.data(), input.size());
}

std::string Changed(const std::string& bytes, bool isStore, unsigned seed) {
  g_random.seed(seed);
  std::string changed = bytes + std::string(64, '\0');
  auto* const data = reinterpret_cast<std::uint8_t*>(changed.data());
  changed.resize(isStore ? LLVMFuzzerCustomMutator(data, bytes.size(), changed.size(), seed)
                         : LLVMFuzzerMutate(data, bytes.size(), changed.size()));
  return changed;
}

}  // namespace

// As the fuzzer's own, but plain: some bytes are others, or more, or fewer.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize) {
  const std::size_t choice = g_random() % 8;
  if (choice == 0) return g_random() % (size + 1);
  if (choice == 1) size = std::min(maxSize, size + g_random() % 64);
  const std::size_t end = choice % 2 == 0 ? size : std::min<std::size_t>(size, 200);
  for (std::size_t n = 1 + g_random() % 4; n > 0 && end > 0; --n)
    data[g_random() % end] =
        static_cast<std::uint8_t>(g_random() % 3 == 0 ? 0xFF : g_random() % 256);
  return size;
}

int main(int argc, char** argv) {
  const auto target =
      std::find_if(std::begin(kTargets), std::end(kTargets),
                   [&](const Target& one) { return argc > 3 && one.name == std::string(argv[1]); });
  if (target == std::end(kTargets)) {
    std::cerr << "usage: fuzz_replay TARGET CHANGES PATH...; targets:";
    for (const Target& one : kTargets) std::cerr << ' ' << one.name;
    std::cerr << '\n';
    return 1;
  }
  const std::string name = target->name;
  const unsigned changes = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
  const std::vector<fs::path> files = FilesIn(argc - 3, argv + 3);
  for (const fs::path& file : files) {
    std::cout << file.filename().string() << std::endl;  // the last one named is the one that broke
    const std::string bytes = storecheck::ReadWhole(file);
    Run(*target, bytes);
    for (unsigned seed = 1; seed <= changes; ++seed) {
      const std::string changed = Changed(bytes, name == "store" || name == "repair", seed);
      std::ofstream("fuzz_replay." + name, std::ios::binary) << changed;  // for a look, likewise
      Run(*target, changed);
    }
  }
  std::cout << files.size() << " inputs, and " << files.size() * changes << " changed ones\n";
  return files.empty() ? 1 : 0;
}
