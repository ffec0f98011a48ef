#include "platform/Time.h"

#include <ctime>

#include "platform/Calendar.h"
#include "platform/System.h"

namespace platform {
namespace {

bool ZoneOffset(std::int64_t seconds, std::int64_t& offset) {
  const std::time_t time = seconds;
  std::tm local{};
  if (::localtime_r(&time, &local) == nullptr) return false;
  offset = local.tm_gmtoff;
  return true;
}

}  // namespace

LocalTime ToLocal(Instant instant) {
  const std::time_t time = instant.seconds;
  std::tm local{};
  if (::localtime_r(&time, &local) == nullptr) return {};
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,      local.tm_hour,
          local.tm_min,         local.tm_sec,     instant.millisecond};
}

LocalTime SystemLocalNow() {
  return ToLocal(Now());
}

bool FromLocal(const LocalTime& local, std::int64_t& seconds) {
  return ZonedSeconds(local, ZoneOffset, seconds);
}

}  // namespace platform
