// What the benchmarks need to know beside their own time.
#pragma once

#include <chrono>
#include <ctime>
#include <string>

class Stopwatch {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  }

 private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// Counts the processor's time for this process alone, whatever else the machine does.
class ProcessorStopwatch {
 public:
  double Nanoseconds() const {
    return static_cast<double>(std::clock() - m_start) / CLOCKS_PER_SEC * 1e9;
  }

 private:
  std::clock_t m_start = std::clock();
};

// What taking and leaving one CSharedLock costs that nobody else wants.
double LockPairNanoseconds();

struct Memory {
  double heap = 0;      // bytes in allocated blocks; 0 where the C library does not tell
  double resident = 0;  // private bytes in memory: pages of mapped files do not count
};
Memory MemoryInUse();

// Gives free heap memory back to the system, so that what follows pays for its memory as a program
// does that has just been started.
void ReturnFreeMemory();

// Reads the files of the store that opening it has to read whole, each at one go, into memory that
// was not used before. Answers the seconds.
double ReadLoadedFiles(const std::string& directory);
