// The groups of benchmarks, and what their registration has in common.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

#include "ms/Source/Batch.h"

void RegisterInserts();
void RegisterReads();
void RegisterChanges();
void RegisterFolders();
void RegisterOpening();
void RegisterBackup();
void RegisterRepair();

struct NamedLevel {
  const char* name;
  CMSDurabilityLevel level;
};
inline constexpr NamedLevel kProcess{"Process", CMSDurabilityLevel::Process};
inline constexpr NamedLevel kOperation{"Operation", CMSDurabilityLevel::Operation};

// Once for each size of store; the body finds the size with LettersOf.
template <class Body>
benchmark::internal::Benchmark* AddForAllSizes(const std::string& name, Body body) {
  return benchmark::RegisterBenchmark(name.c_str(), std::move(body))
      ->ArgName("letters")
      ->Arg(1'000)
      ->Arg(10'000)
      ->Arg(100'000);
}

inline std::size_t LettersOf(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}
