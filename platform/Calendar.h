// The Gregorian calendar, without any clock or time zone.
#pragma once

#include <cstdint>

#include "platform/Time.h"

namespace platform {

// Seconds since 1970-01-01 00:00 of a date and time taken as they stand, as though the zone were
// UTC. False when a field is out of its calendar range; milliseconds are not looked at.
bool CalendarSeconds(const LocalTime& time, std::int64_t& seconds);

// How far local time is ahead of UTC at an instant; false when the system cannot say.
using OffsetAt = bool (*)(std::int64_t seconds, std::int64_t& offset);

// The instant of a local time in the zone of those offsets. Always the same answer for the same
// fields: of an hour that comes twice the first is meant; an hour that is left out is counted on
// from before the change. Zones change less than once in two days.
bool ZonedSeconds(const LocalTime& time, OffsetAt offsetAt, std::int64_t& seconds);

}  // namespace platform
