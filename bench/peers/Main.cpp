// ms_compare [--sizes=1000,10000] [options of Google Benchmark]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>
#include <thread>

#include "bench/peers/Datasets.h"
#include "bench/peers/Works.h"

namespace {

std::vector<std::size_t> SizesOf(const std::string& list) {
  std::vector<std::size_t> sizes;
  std::istringstream in(list);
  for (std::string size; std::getline(in, size, ',');) sizes.push_back(std::stoul(size));
  return sizes;
}

void Run(int count, char** arguments) {
  constexpr char kSizes[] = "--sizes=";
  std::string sizes = "1000,10000,100000";
  if (count > 1 && std::strncmp(arguments[1], kSizes, std::strlen(kSizes)) == 0)
    sizes = arguments[1] + std::strlen(kSizes);
  // A process that never had a second thread takes locks more cheaply than a mail client can.
  std::thread([] {}).join();
  RegisterWorks(SizesOf(sizes));
  benchmark::RunSpecifiedBenchmarks();
  CloseLent();
}

}  // namespace

int main(int count, char** arguments) {
  benchmark::Initialize(&count, arguments);
  try {
    Run(count, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ms_compare: %s\n", error.what());
    return 1;
  }
  return 0;
}
