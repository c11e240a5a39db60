// SPDX-License-Identifier: MIT
// Converts seconds to a date and a time of day. The computation uses eras of 400 years and years that begin with March,
// so that the leap day is the last day of a year.
#include "base/utc.hpp"

#include "base/division.hpp"

namespace kelo::base {

CalendarTime calendar_from_seconds(std::int64_t seconds) {
  constexpr std::uint32_t kSecondsPerDay = 86400;
  constexpr std::uint32_t kDaysPerEra = 146097;
  constexpr std::uint64_t kDaysTo1970 = 719468;  // counted from 0000-03-01
  // The count starts that many eras earlier, so that no number is negative.
  constexpr std::uint64_t kErasBefore = 5'000'000;
  // The quotients are the seconds, the days and the eras since then.
  std::uint64_t elapsed =
      static_cast<std::uint64_t>(seconds) + (kErasBefore * kDaysPerEra + kDaysTo1970) * kSecondsPerDay;
  const std::uint32_t second_of_day = divide_in_place(elapsed, kSecondsPerDay);
  const std::uint32_t day_of_era = divide_in_place(elapsed, kDaysPerEra);
  const int era = static_cast<int>(elapsed) - static_cast<int>(kErasBefore);
  constexpr std::uint32_t kLastDay = kDaysPerEra - 1;
  const std::uint32_t year_of_era = divide<365, kLastDay>(day_of_era - divide<1460, kLastDay>(day_of_era) +
                                                          divide<36524 / 4, kLastDay / 4>(day_of_era / 4) -
                                                          (day_of_era == kLastDay ? 1 : 0));
  const std::uint32_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - divide<100, 399>(year_of_era));
  const std::uint32_t month_from_march = divide<153, 5 * 365 + 2>(5 * day_of_year + 2);
  const std::uint32_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
  const std::uint32_t hour = divide<3600, kSecondsPerDay>(second_of_day);
  const std::uint32_t minute_of_day = divide<60, kSecondsPerDay>(second_of_day);
  return {static_cast<int>(year_of_era) + era * 400 + (month <= 2 ? 1 : 0),
          static_cast<int>(month),
          static_cast<int>(day_of_year - divide<5, 153 * 11 + 2>(153 * month_from_march + 2) + 1),
          static_cast<int>(hour),
          static_cast<int>(minute_of_day - hour * 60),
          static_cast<int>(second_of_day - minute_of_day * 60)};
}

}  // namespace kelo::base
