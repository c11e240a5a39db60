// SPDX-License-Identifier: MIT
// UTC calendar arithmetic. It does not use the C library's functions: they take its time-zone lock, and in a forked
// child that lock may be held forever.
#ifndef KELO_BASE_UTC_HPP
#define KELO_BASE_UTC_HPP

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

// Converts seconds since 1970-01-01 00:00:00 UTC to a date of the proleptic Gregorian calendar. `seconds` is negative
// for earlier times. The result is right within two thousand million years of 1970.
CalendarTime calendar_from_seconds(std::int64_t seconds);

}  // namespace kelo::base

#endif  // KELO_BASE_UTC_HPP
