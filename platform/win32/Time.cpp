#include "platform/Time.h"

#include "platform/Calendar.h"
#include "platform/System.h"
#include "platform/win32/Handle.h"

namespace platform {
namespace {

constexpr std::int64_t kTicks = 10'000'000;             // of 100 ns in a second
constexpr std::int64_t kEpoch = 11'644'473'600;         // seconds from 1601 to 1970
constexpr std::int64_t kMostSeconds = 900'000'000'000;  // what a file time can hold, with room left

bool ToSystemTime(std::int64_t seconds, SYSTEMTIME& utc) {
  if (seconds < -kEpoch || seconds > kMostSeconds) return false;
  const auto ticks = static_cast<ULONGLONG>((seconds + kEpoch) * kTicks);
  const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  return ::FileTimeToSystemTime(&time, &utc) != 0;
}

LocalTime Fields(const SYSTEMTIME& time, int millisecond) {
  return {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, millisecond};
}

bool LocalAt(Instant instant, LocalTime& local) {
  SYSTEMTIME utc{}, zoned{};
  if (!ToSystemTime(instant.seconds, utc)) return false;
  if (!::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &zoned)) return false;
  local = Fields(zoned, instant.millisecond);
  return true;
}

bool ZoneOffset(std::int64_t seconds, std::int64_t& offset) {
  LocalTime local;
  std::int64_t shown = 0;
  if (!LocalAt({seconds, 0}, local) || !CalendarSeconds(local, shown)) return false;
  offset = shown - seconds;
  return true;
}

}  // namespace

LocalTime ToLocal(Instant instant) {
  LocalTime local;
  return LocalAt(instant, local) ? local : LocalTime{};
}

LocalTime SystemLocalNow() {
  SYSTEMTIME now{};
  ::GetLocalTime(&now);
  return Fields(now, now.wMilliseconds);
}

bool FromLocal(const LocalTime& local, std::int64_t& seconds) {
  return ZonedSeconds(local, ZoneOffset, seconds);
}

}  // namespace platform
