// UTC calendar arithmetic without the C library's time-zone lock, which a fork() in another thread could
// leave held.
#ifndef KELO_BASE_CALENDAR_HPP
#define KELO_BASE_CALENDAR_HPP

#include <cstdint>

namespace kelo::base {

struct CalendarTime {
  int year;
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;
  int minute;
  int second;
};

// Converts seconds since 1970-01-01 00:00:00 UTC (before it: negative) to the proleptic Gregorian calendar, within
// two thousand million years of that.
CalendarTime calendar_from_seconds(std::int64_t seconds);

}  // namespace kelo::base

#endif  // KELO_BASE_CALENDAR_HPP
