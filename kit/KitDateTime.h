// A point in time with a resolution of one second.
#pragma once

#include <cstdint>
#include <string>

#include "kit/Export.h"

// Seconds since 1970-01-01 UTC in 32 unsigned bits (to 2106); 0 means not set.
class MS_API CKitDateTime {
 public:
  CKitDateTime() = default;
  explicit CKitDateTime(std::uint32_t seconds) : m_seconds(seconds) {}
  static CKitDateTime Now();

  std::uint32_t Seconds() const { return m_seconds; }
  bool operator==(const CKitDateTime&) const = default;

  // Local date and time as "%2u.%02u.%04u %02u:%02u" (day, month, year, hour, minute); empty when
  // not set. Seconds are dropped, so parsing the text gives the minute's start.
  std::string Text() const;
  // Reads that form back. The empty text is "not set"; anything that does not begin with such a
  // date, or lies outside 1970 to 2106, is XKitStatus 87.
  static CKitDateTime Parse(const std::string& text);

 private:
  std::uint32_t m_seconds = 0;
};
