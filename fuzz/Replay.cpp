// Runs fuzz targets over the inputs that are kept, without a fuzzer.
//
//   fuzz_replay TARGET PATH...   files, and directories of files
//   fuzz_replay --make DIR       makes the seeds of all targets anew (see make_corpus.cpp)
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>

#include "make_corpus.h"
#include "support/StoreChecker.h"

#define X(name) extern "C" int Fuzz_##name(const std::uint8_t*, std::size_t);
MS_FUZZ_TARGETS
#undef X

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

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--make") == 0) {
    fuzz::MakeCorpus(argv[2]);
    return 0;
  }
  const auto target =
      std::find_if(std::begin(kTargets), std::end(kTargets),
                   [&](const Target& one) { return argc > 2 && one.name == std::string(argv[1]); });
  if (target == std::end(kTargets)) {
    std::cerr << "usage: fuzz_replay TARGET PATH... | fuzz_replay --make DIR; targets:";
    for (const Target& one : kTargets) std::cerr << ' ' << one.name;
    std::cerr << '\n';
    return 1;
  }
  const std::vector<fs::path> files = FilesIn(argc - 2, argv + 2);
  for (const fs::path& file : files) {
    std::cout << file.filename().string() << std::endl;  // the last one named is the one that broke
    const std::string bytes = storecheck::ReadWhole(file);
    // Of its own length to the byte, so that a sanitizer sees what reads beyond it.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    (void)target->run(input.data(), input.size());
  }
  std::cout << files.size() << " inputs\n";
  return files.empty() ? 1 : 0;
}
