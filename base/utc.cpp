// SPDX-License-Identifier: MIT
// Converts seconds to a date and a time of day. The computation uses eras of 400 years and years that begin with March,
// so that the leap day is the last day of a year.
#include "base/utc.hpp"

namespace kelo::base {

CalendarTime calendar_from_seconds(std::int64_t seconds) {
  constexpr std::uint64_t kSecondsPerDay = 86400;
  constexpr std::uint64_t kDaysPerEra = 146097;
  constexpr std::uint64_t kDaysTo1970 = 719468;  // counted from 0000-03-01
  // The count starts that many eras earlier, so that no number is negative. All divisions are unsigned 64-bit ones:
  // on CPUs without a divide instruction each further kind would add a library function.
  constexpr std::uint64_t kErasBefore = 5'000'000;
  const std::uint64_t elapsed =
      static_cast<std::uint64_t>(seconds) + (kErasBefore * kDaysPerEra + kDaysTo1970) * kSecondsPerDay;
  const std::uint64_t days = elapsed / kSecondsPerDay;
  const std::uint64_t second_of_day = elapsed % kSecondsPerDay;
  const int era = static_cast<int>(days / kDaysPerEra) - static_cast<int>(kErasBefore);
  const std::uint64_t day_of_era = days % kDaysPerEra;
  const std::uint64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::uint64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::uint64_t month_from_march = (5 * day_of_year + 2) / 153;
  const std::uint64_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
  return {static_cast<int>(year_of_era) + era * 400 + (month <= 2 ? 1 : 0),
          static_cast<int>(month),
          static_cast<int>(day_of_year - (153 * month_from_march + 2) / 5 + 1),
          static_cast<int>(second_of_day / 3600),
          static_cast<int>(second_of_day / 60 % 60),
          static_cast<int>(second_of_day % 60)};
}

}  // namespace kelo::base
