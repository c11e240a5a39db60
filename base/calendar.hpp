// UTC calendar arithmetic without the C library's time-zone lock, which a fork() in another thread could
// leave held.
#ifndef KELO_BASE_CALENDAR_HPP
#define KELO_BASE_CALENDAR_HPP

#include <cstdint>

namespace kelo::base {

struct CalendarTime {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;
  int minute;
  int second;
};

// Converts seconds since 1970-01-01 00:00:00 UTC (before it: negative) to the proleptic Gregorian calendar.
constexpr CalendarTime calendar_from_seconds(std::int64_t seconds) {
  constexpr std::int64_t kSecondsPerDay = 86400;
  constexpr std::int64_t kDaysPerEra = 146097;  // 400 years
  std::int64_t days = seconds / kSecondsPerDay;
  std::int64_t rest = seconds % kSecondsPerDay;
  if (rest < 0) {
    rest += kSecondsPerDay;
    --days;
  }
  days += 719468;  // count from 0000-03-01, so that the leap day ends a year
  const std::int64_t era = (days >= 0 ? days : days - (kDaysPerEra - 1)) / kDaysPerEra;
  const auto day_of_era = static_cast<unsigned>(days - era * kDaysPerEra);
  const unsigned year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const unsigned day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const unsigned month_from_march = (5 * day_of_year + 2) / 153;
  const unsigned month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
  const auto second_of_day = static_cast<int>(rest);
  return {static_cast<std::int64_t>(year_of_era) + era * 400 + (month <= 2 ? 1 : 0),
          static_cast<int>(month),
          static_cast<int>(day_of_year - (153 * month_from_march + 2) / 5 + 1),
          second_of_day / 3600,
          second_of_day / 60 % 60,
          second_of_day % 60};
}

}  // namespace kelo::base

#endif  // KELO_BASE_CALENDAR_HPP
