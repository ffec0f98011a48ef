#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>

#include "platform/File.h"
#include "platform/Process.h"
#include "platform/System.h"
#include "platform/Time.h"

namespace platform {
namespace {

std::atomic<FileSystem*> g_files{nullptr};
std::atomic<Clock> g_clock{nullptr};
std::atomic<RandomSource> g_random{nullptr};

Instant SystemNow() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::floor<milliseconds>(std::chrono::system_clock::now());
  const auto whole = std::chrono::floor<std::chrono::seconds>(now);
  return {whole.time_since_epoch().count(), static_cast<int>((now - whole).count())};
}

}  // namespace

Status File::WriteZeros(std::uint64_t offset, std::uint64_t size) {
  static constexpr std::array<std::byte, kZeroPiece> kZeros{};
  while (size > 0) {
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(kZeroPiece, size));
    std::size_t done = 0;
    if (const Status status = Write(offset, kZeros.data(), piece, done); !status.Ok())
      return status;
    offset += piece;
    size -= piece;
  }
  return {};
}

FileSystem& Files() {
  FileSystem* files = g_files.load(std::memory_order_acquire);
  return files != nullptr ? *files : SystemFiles();
}

FileSystem* SetFiles(FileSystem* files) {
  return g_files.exchange(files, std::memory_order_acq_rel);
}

Instant Now() {
  const Clock clock = g_clock.load(std::memory_order_acquire);
  return clock != nullptr ? clock() : SystemNow();
}

LocalTime LocalNow() {
  const Clock clock = g_clock.load(std::memory_order_acquire);
  return clock != nullptr ? ToLocal(clock()) : SystemLocalNow();
}

Clock SetClock(Clock clock) {
  return g_clock.exchange(clock, std::memory_order_acq_rel);
}

void RandomBytes(void* data, std::size_t size) {
  const RandomSource source = g_random.load(std::memory_order_acquire);
  source != nullptr ? source(data, size) : SystemRandomBytes(data, size);
}

RandomSource SetRandom(RandomSource source) {
  return g_random.exchange(source, std::memory_order_acq_rel);
}

}  // namespace platform
