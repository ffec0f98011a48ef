#include "platform/Calendar.h"

namespace platform {
namespace {

constexpr bool IsLeap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

constexpr int DaysIn(int month, int year) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

// Days from the first of January of year 1 to that of the given one.
constexpr std::int64_t DaysBefore(int year) {
  const std::int64_t past = std::int64_t{year} - 1;
  return past * 365 + past / 4 - past / 100 + past / 400;
}

bool InRange(const LocalTime& t) {
  return t.year >= 1 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
         t.day <= DaysIn(t.month, t.year) && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 &&
         t.minute <= 59 && t.second >= 0 && t.second <= 59;
}

}  // namespace

bool CalendarSeconds(const LocalTime& time, std::int64_t& seconds) {
  if (!InRange(time)) return false;
  std::int64_t days = DaysBefore(time.year) - DaysBefore(1970) + time.day - 1;
  for (int month = 1; month < time.month; ++month) days += DaysIn(month, time.year);
  seconds = ((days * 24 + time.hour) * 60 + time.minute) * 60 + time.second;
  return true;
}

bool ZonedSeconds(const LocalTime& time, OffsetAt offsetAt, std::int64_t& seconds) {
  constexpr std::int64_t kDay = 24 * 60 * 60;
  std::int64_t fields = 0, before = 0, after = 0, there = 0;
  if (!CalendarSeconds(time, fields)) return false;
  if (!offsetAt(fields - kDay, before) || !offsetAt(fields + kDay, after)) return false;
  seconds = fields - before;
  if (before == after || (offsetAt(seconds, there) && there == before)) return true;
  if (offsetAt(fields - after, there) && there == after) seconds = fields - after;
  return true;
}

}  // namespace platform
