// A time zone of one's own, while it lives.
#pragma once

#include <cstdlib>
#include <ctime>

#ifndef _WIN32  // there the zone is the machine's
class Zone {
 public:
  explicit Zone(const char* rule) { Set(rule); }
  ~Zone() { Set("UTC0"); }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;

 private:
  static void Set(const char* rule) {
    ::setenv("TZ", rule, 1);
    ::tzset();
  }
};
#endif
