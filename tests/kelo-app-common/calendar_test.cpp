// SPDX-License-Identifier: MIT
// Dates and times of day against the C library's and the standard library's, and days between dates.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <ostream>
#include <random>
#include <string>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/log_capture.hpp"

bool operator==(const mytime& a, const mytime& b) {
  return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
         a.minute == b.minute && a.second == b.second && a.millisecond == b.millisecond &&
         a.weekday == b.weekday;
}

std::ostream& operator<<(std::ostream& out, const mytime& time) {
  return out << time.year << '-' << +time.month << '-' << +time.day << ' ' << +time.hour << ':'
             << +time.minute << ':' << +time.second << '.' << time.millisecond << ", weekday "
             << +time.weekday;
}

namespace {

using kelo::tests::LogCapture;

static_assert(sizeof(mytime) == 12 && offsetof(mytime, year) == 0 && offsetof(mytime, month) == 2 &&
              offsetof(mytime, day) == 3 && offsetof(mytime, hour) == 4 && offsetof(mytime, minute) == 5 &&
              offsetof(mytime, second) == 6 && offsetof(mytime, millisecond) == 8 &&
              offsetof(mytime, weekday) == 10);

constexpr std::uint64_t kHour = 3600000;
constexpr std::uint64_t kDay = 24 * kHour;
constexpr std::uint64_t kMillisecondsTo2200 = 84006 * kDay;
// A day before the last moment that the C library knows and the library takes, so that a day can be added.
constexpr std::uint64_t kKnownMilliseconds =
    std::min<std::uint64_t>(std::numeric_limits<time_t>::max(), UINT64_MAX / 1000) * 1000 - kDay;

mytime converted(std::uint64_t milliseconds, int add_hour = 0) {
  // On the heap and preset, so that a byte too many or a field too few shows.
  const auto time = std::make_unique<mytime>(mytime{0x5A5A, 90, 90, 90, 90, 90, 0x5A5A, 90});
  kelo_util_utc_sec_2_mytime(milliseconds, time.get(), add_hour);
  return *time;
}

// Whether the sum of Zeller's congruence is above 0 on a date, from a table of its months and by counting its
// years and centuries up.
bool zeller_sum_is_positive(std::int64_t year, int month, int day) {
  constexpr std::array<int, 12> kOfMonth = {36, 39, 10, 13, 15, 18, 20, 23, 26, 28, 31, 33};
  if (month < 3) --year;
  std::int64_t sum = kOfMonth[static_cast<std::size_t>(month - 1)] + day - 1;
  const std::int64_t first_of_century = year - year % 100;
  for (std::int64_t each = first_of_century + 1; each <= year; ++each)
    sum += (each - first_of_century) % 4 == 0 ? 2 : 1;
  for (std::int64_t century = 1; century <= year / 100; ++century) sum -= century % 4 == 0 ? 1 : 2;
  return sum > 0;
}

// What the C library makes of it, but for the two numbers of Sunday.
mytime expected(std::uint64_t milliseconds) {
  const auto seconds = static_cast<time_t>(milliseconds / 1000);
  tm time{};
  if (gmtime_r(&seconds, &time) == nullptr) std::abort();
  const std::int64_t year = std::int64_t{time.tm_year} + 1900;
  int weekday = time.tm_wday;
  if (weekday == 0 && !zeller_sum_is_positive(year, time.tm_mon + 1, time.tm_mday)) weekday = 7;
  return {static_cast<std::uint16_t>(year),
          static_cast<std::uint8_t>(time.tm_mon + 1),
          static_cast<std::uint8_t>(time.tm_mday),
          static_cast<std::uint8_t>(time.tm_hour),
          static_cast<std::uint8_t>(time.tm_min),
          static_cast<std::uint8_t>(time.tm_sec),
          static_cast<std::uint16_t>(milliseconds % 1000),
          static_cast<std::uint8_t>(weekday)};
}

TEST(Calendar, ConvertsWhatCallersKnow) {
  EXPECT_EQ(converted(0), (mytime{1970, 1, 1, 0, 0, 0, 0, 4}));
  EXPECT_EQ(converted(951782400000), (mytime{2000, 2, 29, 0, 0, 0, 0, 2}));
  EXPECT_EQ(converted(951868800000), (mytime{2000, 3, 1, 0, 0, 0, 0, 3}));
  EXPECT_EQ(converted(952214400000), (mytime{2000, 3, 5, 0, 0, 0, 0, 7})) << "a Sunday";
  EXPECT_EQ(converted(946771200000), (mytime{2000, 1, 2, 0, 0, 0, 0, 0})) << "a Sunday too";
  EXPECT_EQ(converted(1709251199999), (mytime{2024, 2, 29, 23, 59, 59, 999, 4}));
  EXPECT_EQ(converted(2147483648000), (mytime{2038, 1, 19, 3, 14, 8, 0, 2}));
  EXPECT_EQ(converted(4107456000000), (mytime{2100, 2, 28, 0, 0, 0, 0, 0}));
  EXPECT_EQ(converted(4107542400000), (mytime{2100, 3, 1, 0, 0, 0, 0, 1})) << "2100 is no leap year";
}

TEST(Calendar, ConvertsEachFieldUpToItsLimit) {
  EXPECT_EQ(converted(999), (mytime{1970, 1, 1, 0, 0, 0, 999, 4}));
  EXPECT_EQ(converted(1000), (mytime{1970, 1, 1, 0, 0, 1, 0, 4}));
  EXPECT_EQ(converted(59999), (mytime{1970, 1, 1, 0, 0, 59, 999, 4}));
  EXPECT_EQ(converted(60000), (mytime{1970, 1, 1, 0, 1, 0, 0, 4}));
  EXPECT_EQ(converted(kHour - 1), (mytime{1970, 1, 1, 0, 59, 59, 999, 4}));
  EXPECT_EQ(converted(kHour), (mytime{1970, 1, 1, 1, 0, 0, 0, 4}));
  EXPECT_EQ(converted(kDay - 1), (mytime{1970, 1, 1, 23, 59, 59, 999, 4}));
  EXPECT_EQ(converted(kDay), (mytime{1970, 1, 2, 0, 0, 0, 0, 5}));
  EXPECT_EQ(converted(31 * kDay), (mytime{1970, 2, 1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(converted(365 * kDay - 1), (mytime{1970, 12, 31, 23, 59, 59, 999, 4}));
  EXPECT_EQ(converted(365 * kDay), (mytime{1971, 1, 1, 0, 0, 0, 0, 5}));
}

TEST(Calendar, AgreesWithTheCLibraryOnEveryDayFrom1970To2199) {
  int sundays_as_0 = 0;
  int sundays_as_7 = 0;
  for (std::uint64_t start = 0; start < std::min(kMillisecondsTo2200, kKnownMilliseconds); start += kDay) {
    const mytime time = converted(start);
    ASSERT_EQ(time, expected(start));
    ASSERT_EQ(converted(start + kDay - 1), expected(start + kDay - 1));
    sundays_as_0 += time.weekday == 0 ? 1 : 0;
    sundays_as_7 += time.weekday == 7 ? 1 : 0;
  }
  if (kKnownMilliseconds < kMillisecondsTo2200) return;
  EXPECT_EQ(converted(kMillisecondsTo2200 - 1), (mytime{2199, 12, 31, 23, 59, 59, 999, 2}));
  EXPECT_EQ(sundays_as_0, 11515);
  EXPECT_EQ(sundays_as_7, 486);
}

TEST(Calendar, AgreesWithTheCLibraryOnAMillionInstants) {
  constexpr std::uint64_t kYears65535 = 2005949145599999;  // its last millisecond
  std::mt19937_64 random(20240229);
  std::uniform_int_distribution<std::uint64_t> near(0, std::min(kMillisecondsTo2200, kKnownMilliseconds));
  std::uniform_int_distribution<std::uint64_t> far(0, std::min(kYears65535, kKnownMilliseconds) - kHour);
  for (int i = 0; i < 1000000; ++i) {
    const std::uint64_t instant = i % 4 == 0 ? far(random) : near(random);
    const int add_hour = i % 2;
    ASSERT_EQ(converted(instant, add_hour), expected(instant + (add_hour != 0 ? kHour : 0))) << instant;
  }
}

TEST(Calendar, StoresYearsModulo65536) {
  constexpr std::uint64_t kStartOf65536 = 2005949145600000;
  const mytime last = converted(kStartOf65536 - 1);
  EXPECT_EQ(last, (mytime{65535, 12, 31, 23, 59, 59, 999, last.weekday}));
  const mytime first = converted(kStartOf65536);
  EXPECT_EQ(first, (mytime{0, 1, 1, 0, 0, 0, 0, first.weekday}));
  if (sizeof(time_t) == 4) GTEST_SKIP() << "the C library's time ends in 2038";
  for (const std::uint64_t instant :
       {kStartOf65536 - 1, kStartOf65536, kStartOf65536 + 60 * kDay, UINT64_MAX - 6 * kDay,
        UINT64_MAX - 5 * kDay, UINT64_MAX - 4 * kDay, UINT64_MAX - 3 * kDay, UINT64_MAX - 2 * kDay,
        UINT64_MAX - kDay, UINT64_MAX})
    EXPECT_EQ(converted(instant), expected(instant)) << instant;
}

TEST(Calendar, AddsAnHourForAnyFlagButZero) {
  constexpr std::uint64_t kHalfPast23 = 1735687800000;  // 2024-12-31
  EXPECT_EQ(converted(kHalfPast23), (mytime{2024, 12, 31, 23, 30, 0, 0, 2}));
  for (const int flag : {1, 2, -1, 256, 0x10000, INT32_MAX, INT32_MIN})
    EXPECT_EQ(converted(kHalfPast23, flag), (mytime{2025, 1, 1, 0, 30, 0, 0, 3})) << flag;
  EXPECT_EQ(converted(kHalfPast23 - kHalfPast23 % kDay, 1), (mytime{2024, 12, 31, 1, 0, 0, 0, 2}));
}

TEST(Calendar, AddsTheHourModuloTwoToThe64) {
  EXPECT_EQ(converted(UINT64_MAX, 1), (mytime{1970, 1, 1, 0, 59, 59, 999, 4}));
  EXPECT_EQ(converted(UINT64_MAX - kHour + 1, 1), (mytime{1970, 1, 1, 0, 0, 0, 0, 4}));
  EXPECT_EQ(converted(UINT64_MAX - kHour, 1), converted(UINT64_MAX));
}

TEST(Calendar, LogsANullRecordOnly) {
  LogCapture log;
  kelo_util_utc_sec_2_mytime(0, nullptr, 0);
  kelo_util_utc_sec_2_mytime(0, nullptr, 1);
  const std::string text = "kelo_util_utc_sec_2_mytime param NULL\n";
  expect_lines(log, "oem_util_utc_sec_2_mytime", {{LOG_LVL_ERR, text}, {LOG_LVL_ERR, text}});
  converted(kDay);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Calendar, ExportsTheDaysOfTheMonths) {
  constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  static_assert(sizeof g_day_per_mon == kDays.size());
  for (std::size_t i = 0; i < kDays.size(); ++i) EXPECT_EQ(g_day_per_mon[i], kDays[i]) << i;
}

// The time zone of the process while it lives.
class TimeZone {
 public:
  explicit TimeZone(const char* rule) {
    setenv("TZ", rule, 1);
    tzset();
  }
  ~TimeZone() {
    unsetenv("TZ");
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
};

// Rules rather than names, which need the database of zones.
constexpr const char* kZones[] = {
    "UTC0",
    "CET-1CEST,M3.5.0,M10.5.0/3",
    "EST5EDT,M3.2.0,M11.1.0",
    "CST5CDT,M3.2.0/0,M11.1.0/1",            // skips midnight
    "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",  // half an hour, in the southern summer
    "<-03>3<-02>,M3.5.0/-1,M10.5.0/0",       // changes on the day before
};

std::string text_of(std::chrono::sys_days day) {
  const std::chrono::year_month_day date(day);
  return std::to_string(int(date.year())) + "-" + std::to_string(unsigned(date.month())) + "-" +
         std::to_string(unsigned(date.day()));
}

class Days : public testing::Test {
 protected:
  LogCapture log;
};

TEST_F(Days, CountsWhatCallersKnow) {
  for (const char* const zone : kZones) {
    const TimeZone here(zone);
    EXPECT_EQ(get_days("2024-01-01", "2024-03-01"), 60) << zone;
    EXPECT_EQ(get_days("2024-03-01", "2024-01-01"), -60) << zone;
    EXPECT_EQ(get_days("2024-1-1", "2024-1-1"), 0) << zone;
    EXPECT_EQ(get_days("2023-12-31", "2024-1-1"), 1) << zone;
    EXPECT_EQ(get_days("1970-1-1", "2037-12-31"), 24836) << zone;
  }
  const TimeZone utc("UTC0");
  EXPECT_EQ(get_days("1960-1-1", "1970-1-1"), 3653);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(Days, AreNotChangedByDaylightSavingTime) {
  using std::chrono::January;
  using std::chrono::sys_days;
  constexpr sys_days kFirst = std::chrono::year(2023) / January / 1;
  constexpr sys_days kEnd = std::chrono::year(2026) / January / 1;
  const std::string first = text_of(kFirst);
  const std::string summer = "2024-7-1";
  constexpr sys_days kSummer = std::chrono::year(2024) / std::chrono::July / 1;
  for (const char* const zone : kZones) {
    const TimeZone here(zone);
    for (sys_days day = kFirst; day < kEnd; day += std::chrono::days(1)) {
      const std::string text = text_of(day);
      ASSERT_EQ(get_days(first.c_str(), text.c_str()), (day - kFirst).count()) << zone << ' ' << text;
      ASSERT_EQ(get_days(text.c_str(), first.c_str()), (kFirst - day).count()) << zone << ' ' << text;
      ASSERT_EQ(get_days(summer.c_str(), text.c_str()), (day - kSummer).count()) << zone << ' ' << text;
      ASSERT_EQ(get_days(text.c_str(), text_of(day + std::chrono::days(1)).c_str()), 1)
          << zone << ' ' << text;
    }
  }
}

TEST_F(Days, AreCountedInTheZoneOfNow) {
  for (const char* const zone : kZones) {
    const TimeZone here(zone);
    tm midnight{};
    midnight.tm_year = 124;
    midnight.tm_mday = 1;
    // A date that cannot be represented counts as the second before 1970 in UTC.
    const std::string at_zero = "2024-1-1";
    const std::int64_t seconds = mktime(&midnight);
    EXPECT_EQ(get_days("2147483647-2147483647-1", at_zero.c_str()), (seconds + 1) / 86400) << zone;
  }
}

// The date that each text stands for.
TEST_F(Days, ReadDatesLeniently) {
  constexpr struct {
    const char* text;
    const char* date;
  } kCases[] = {
      {"2024-02-09", "2024-2-9"},
      {"2024-0000000002-009", "2024-2-9"},
      {" 2024- 2-\t\n9", "2024-2-9"},
      {"+2024-+2-+9", "2024-2-9"},
      {"2024-2-9 12:00", "2024-2-9"},
      {"2024-2-9-1", "2024-2-9"},
      {"2024-2-9x", "2024-2-9"},
      // Beyond the calendar.
      {"2024-13-1", "2025-1-1"},
      {"2024-0-1", "2023-12-1"},
      {"2024-2-30", "2024-3-1"},
      {"2023-2-29", "2023-3-1"},
      {"2024-3-0", "2024-2-29"},
      {"2024--1-1", "2023-11-1"},
      {"2024-1--1", "2023-12-30"},
      {"1970-1-20000", "2024-10-3"},
      // Missing numbers and unexpected characters.
      {"2024", "2024-0-0"},
      {"2024", "2023-11-30"},
      {"2024-", "2024-0-0"},
      {"2024-5", "2024-5-0"},
      {"2024-5-", "2024-5-0"},
      {"2024-5-x", "2024-5-0"},
      {"2024/5/9", "2024-0-0"},
      {"2024 -5-9", "2024-0-0"},
      {"2024-5 -9", "2024-5-0"},
      {"2024-5.9", "2024-5-0"},
      {"2024-x-9", "2024-0-0"},
      {"2024--", "2024-0-0"},
      {"2024---9", "2024-0-0"},
      {"2024-- 5-9", "2024-0-0"},
      {"--1-5", "0-0-0"},
      {"- 5-9", "0-0-0"},
      {"0x7E8-1-1", "0-0-0"},
      {"x2024-1-1", "0-0-0"},
      {"-", "0-0-0"},
      {"   ", "0-0-0"},
      {"", "0-0-0"},
  };
  const TimeZone here("UTC0");
  for (const auto& each : kCases) EXPECT_EQ(get_days(each.text, each.date), 0) << '"' << each.text << '"';
  if (sizeof(time_t) == 4) return;
  EXPECT_EQ(get_days("", "2024-1-1"), get_days("-1-11-30", "2024-1-1"));
  EXPECT_EQ(get_days("-1-11-30", "2024-1-1"), 739283) << "proleptic Gregorian";
}

TEST_F(Days, BoundTheNumbersOfADate) {
  const TimeZone here("UTC0");
  EXPECT_EQ(get_days("1970-1-1", "1970-1-2147483647"), sizeof(time_t) == 4 ? 0 : 2147483646);
  if (sizeof(time_t) == 4) GTEST_SKIP() << "the C library's time ends in 2038";
  for (const char* const large :
       {"2147483648", "4294967297", "9223372036854775807", "99999999999999999999"}) {
    const std::string number(large);
    EXPECT_EQ(get_days("1970-1-1", ("1970-1-" + number).c_str()), 2147483646) << large;
    EXPECT_EQ(get_days("1970-2147483647-1", ("1970-" + number + "-1").c_str()), 0) << large;
    EXPECT_EQ(get_days("2147483647-1-1", (number + "-1-1").c_str()), 0) << large;
    EXPECT_EQ(get_days("2147483646-1-1", (number + "-1-1").c_str()), 365) << large;
  }
  for (const char* const small :
       {"-2147481748", "-2147481749", "-2147483648", "-9223372036854775808", "-99999999999999999999"}) {
    const std::string number(small);
    EXPECT_EQ(get_days(("1970-1-" + number).c_str(), "1970-1-1"), 2147481749) << small;
    EXPECT_EQ(get_days(("1970-1-" + number).c_str(), "1960-1-1"), 2147478096) << small;
    EXPECT_EQ(get_days(("1970-" + number + "-1").c_str(), "1970--2147481748-1"), 0) << small;
    EXPECT_EQ(get_days((number + "-1-1").c_str(), "-2147481748-1-2"), 1) << small;
  }
}

TEST_F(Days, StayWithinTheirType) {
  if (sizeof(time_t) == 4) GTEST_SKIP() << "the C library's time ends in 2038";
  const TimeZone here("UTC0");
  EXPECT_EQ(get_days("1970-1-1", "2147483647-1-1"), INT32_MAX);
  EXPECT_EQ(get_days("2147483647-1-1", "1970-1-1"), INT32_MIN);
  EXPECT_EQ(get_days("1970-1-0", "1970-1-2147483646"), 2147483646);
  EXPECT_EQ(get_days("1970-1-0", "1970-1-2147483647"), INT32_MAX);
  EXPECT_EQ(get_days("1970-1--1", "1970-1-2147483647"), INT32_MAX);
  EXPECT_EQ(get_days("1970-1-2147483647", "1970-1--1"), INT32_MIN);
  EXPECT_EQ(get_days("1970-1-2147483647", "1970-1-0"), -INT32_MAX);
}

TEST_F(Days, TakeADateThatCannotBeRepresentedForTheSecondBefore1970) {
  constexpr char kNone[] = "2147483647-2147483647-1";
  const TimeZone here("UTC0");
  EXPECT_EQ(get_days(kNone, kNone), 0);
  EXPECT_EQ(get_days("1970-1-1", kNone), 0) << "truncated toward 0";
  EXPECT_EQ(get_days(kNone, "1970-1-1"), 0);
  EXPECT_EQ(get_days("1970-1-2", kNone), -1);
  EXPECT_EQ(get_days(kNone, "1970-1-2"), 1);
}

TEST_F(Days, RefuseANullDate) {
  constexpr const char* kNull = nullptr;
  for (const auto& dates :
       {std::array{kNull, "2024-1-1"}, std::array{"2024-1-1", kNull}, std::array{kNull, kNull}}) {
    EXPECT_EQ(get_days(dates[0], dates[1]), 0);
    expect_lines(log, "get_days", {{LOG_LVL_ERR, "get_days param NULL\n"}});
  }
}

}  // namespace
