// SPDX-License-Identifier: MIT
// Converts milliseconds to a date and a time of day, and counts the days between two dates.
#include <time.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>

#include "base/division.hpp"
#include "base/utc.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

constexpr std::uint8_t g_day_per_mon[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

namespace {

using kelo::base::divide;

constexpr int kFirstYearOfTm = 1900;
constexpr std::uint32_t kSecondsPerDay = 86400;
constexpr std::uint32_t kMillisecondsPerSecond = 1000;
constexpr std::uint64_t kMillisecondsPerHour = 3600000;
// A greater year than any time in 64 bits of milliseconds has.
constexpr std::uint32_t kLastYear = 600'000'000;

// Computes the weekday by Zeller's congruence, in which January and February belong to the previous year. Callers
// rely on the odd result for Sundays: a positive sum gives 0 to 6, any other sum 1 to 7. All dates are after 1969.
std::uint8_t weekday_of(int year, int month, int day) {
  const int zeller_year = month <= 2 ? year - 1 : year;
  const int zeller_month = month <= 2 ? month + 12 : month;
  const auto century = static_cast<int>(divide<100, kLastYear>(static_cast<std::uint32_t>(zeller_year)));
  const int of_century = zeller_year - century * 100;
  const int sum =
      of_century + of_century / 4 + century / 4 - 2 * century + 26 * (zeller_month + 1) / 10 + day - 1;
  const auto distance = static_cast<std::uint32_t>(std::abs(sum));
  const auto days = static_cast<std::uint8_t>(kelo::base::remainder(distance, 7));
  return sum > 0 ? days : static_cast<std::uint8_t>(7 - days);
}

// The numbers of a date. A missing number and all numbers after it are 0.
struct DateText {
  int year = 0;
  int month = 0;
  int day = 0;
};

// Reads a number as "%d" does, but a number outside the range of int becomes the nearest valid one. The lower limit
// allows for the subtraction of 1900. Returns the end of the number, or null when there is none.
const char* read_number(const char* text, int& number) {
  constexpr long kLeast = INT_MIN + kFirstYearOfTm;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text) return nullptr;
  number = static_cast<int>(std::clamp<long>(value, kLeast, INT_MAX));
  return end;
}

DateText read_date(const char* text) {
  DateText date;
  for (int* const number : {&date.year, &date.month, &date.day}) {
    if (number != &date.year && *text++ != '-') break;
    text = read_number(text, *number);
    if (text == nullptr) break;
  }
  return date;
}

// Returns the time of midnight in the standard time of the time zone, also for dates in summer.
std::int64_t seconds_at_midnight(const DateText& date) {
  tm midnight{};
  midnight.tm_year = date.year - kFirstYearOfTm;
  midnight.tm_mon = date.month - 1;
  midnight.tm_mday = date.day;
  midnight.tm_isdst = 0;
  return mktime(&midnight);
}

}  // namespace

std::int32_t get_days(const char* from, const char* to) {
  if (from == nullptr || to == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  const std::int64_t first = seconds_at_midnight(read_date(from));
  const std::int64_t seconds = seconds_at_midnight(read_date(to)) - first;
  auto distance = static_cast<std::uint64_t>(std::abs(seconds));
  kelo::base::divide_in_place(distance, kSecondsPerDay);
  const auto days = static_cast<std::int64_t>(distance);
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(seconds < 0 ? -days : days, INT32_MIN, INT32_MAX));
}

void kelo_util_utc_sec_2_mytime(std::uint64_t milliseconds, mytime* out, int add_hour) {
  if (out == nullptr) {
    kelo::log::param_null(__func__);
    return;
  }
  std::uint64_t seconds = milliseconds + (add_hour != 0 ? kMillisecondsPerHour : 0);
  const std::uint32_t millisecond = kelo::base::divide_in_place(seconds, kMillisecondsPerSecond);
  const auto time = kelo::base::calendar_from_seconds(static_cast<std::int64_t>(seconds));
  out->year = static_cast<std::uint16_t>(time.year);
  out->month = static_cast<std::uint8_t>(time.month);
  out->day = static_cast<std::uint8_t>(time.day);
  out->hour = static_cast<std::uint8_t>(time.hour);
  out->minute = static_cast<std::uint8_t>(time.minute);
  out->second = static_cast<std::uint8_t>(time.second);
  out->millisecond = static_cast<std::uint16_t>(millisecond);
  out->weekday = weekday_of(time.year, time.month, time.day);
}
