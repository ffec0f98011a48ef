#include "kit/KitDateTime.h"

#include <cstdio>
#include <limits>

#include "kit/KitErrors.h"
#include "kit/KitString.h"
#include "platform/Time.h"

namespace {

[[noreturn]] void Refuse(const std::string& text) {
  throw XKitStatus(kit::kStatusInvalidArgument,
                   KitFormat("'%s' is no date and time of the years 1970 to 2106 in the form "
                             "\"day.month.year hour:minute\"",
                             text.c_str()));
}

bool ReadFields(const std::string& text, platform::LocalTime& time) {
  unsigned day = 0, month = 0, year = 0, hour = 0, minute = 0;
  if (std::sscanf(text.c_str(), "%2u.%2u.%4u %2u:%2u", &day, &month, &year, &hour, &minute) != 5) {
    return false;
  }
  // A field with a minus sign wraps around; as an int it is negative and out of its range again.
  time = {static_cast<int>(year),
          static_cast<int>(month),
          static_cast<int>(day),
          static_cast<int>(hour),
          static_cast<int>(minute),
          0,
          0};
  return true;
}

}  // namespace

CKitDateTime CKitDateTime::Now() {
  return CKitDateTime(static_cast<std::uint32_t>(platform::Now().seconds));
}

std::string CKitDateTime::Text() const {
  if (m_seconds == 0) return {};
  const platform::LocalTime local = platform::ToLocal({m_seconds, 0});
  return KitFormat("%2d.%02d.%04d %02d:%02d", local.day, local.month, local.year, local.hour,
                   local.minute);
}

// The epoch itself is refused too: stored, it would read as "not set".
CKitDateTime CKitDateTime::Parse(const std::string& text) {
  if (text.empty()) return CKitDateTime();
  platform::LocalTime local;
  std::int64_t seconds = 0;
  if (!ReadFields(text, local) || !platform::FromLocal(local, seconds)) Refuse(text);
  if (seconds <= 0 || seconds > std::numeric_limits<std::uint32_t>::max()) Refuse(text);
  return CKitDateTime(static_cast<std::uint32_t>(seconds));
}
