// Clock and calendar.
#pragma once

#include <cstdint>

namespace platform {

struct LocalTime {
  int year = 1970, month = 1, day = 1;  // month and day from 1
  int hour = 0, minute = 0, second = 0, millisecond = 0;
};

// Seconds since 1970-01-01 UTC, and milliseconds within the second.
struct Instant {
  std::int64_t seconds = 0;
  int millisecond = 0;
};

Instant Now();
LocalTime ToLocal(Instant instant);
LocalTime LocalNow();
// The instant of a local date and time. False when there is none that 64-bit seconds can hold, or a
// field is out of its calendar range (the 31st of April, 24:00).
bool FromLocal(const LocalTime& local, std::int64_t& seconds);

// Puts a fixed clock in place for tests (null: the system's clock again).
using Clock = Instant (*)();
Clock SetClock(Clock clock);

}  // namespace platform
