#include "kit/KitDateTime.h"

#include <cctype>
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

void SkipBlanks(const char*& at) {
  while (std::isspace(static_cast<unsigned char>(*at)) != 0) ++at;
}

// Blanks, a sign, and up to width characters of sign and digits, as scanf reads a number; this
// costs a tenth of that.
bool ReadNumber(const char*& at, int width, int& number) {
  SkipBlanks(at);
  const bool isNegative = *at == '-';
  if (isNegative || *at == '+') ++at, --width;
  int digits = 0;
  for (number = 0; digits < width && *at >= '0' && *at <= '9'; ++digits) {
    number = number * 10 + (*at++ - '0');
  }
  if (isNegative) number = -number;
  return digits > 0;
}

bool ReadSign(const char*& at, char sign) {
  return *at++ == sign;
}

bool ReadFields(const std::string& text, platform::LocalTime& time) {
  const char* at = text.c_str();
  return ReadNumber(at, 2, time.day) && ReadSign(at, '.') && ReadNumber(at, 2, time.month) &&
         ReadSign(at, '.') && ReadNumber(at, 4, time.year) && ReadNumber(at, 2, time.hour) &&
         ReadSign(at, ':') && ReadNumber(at, 2, time.minute);
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
