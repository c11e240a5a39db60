// SPDX-License-Identifier: MIT
// The limit for lines that repeat: kelo_log_rate_allows() and KELO_LOG_LIMITED().
#include "kelo_utils/log_rate.h"

#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/additions/log_rate_macro.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;
using kelo::tests::LogCapture;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::uint32_t kLong = 3'600'000;

// Nanoseconds that CLOCK_MONOTONIC shows instead of its own time, which takes years for some of these cases.
std::optional<std::int64_t> shown_time;

}  // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* time);
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (clock != CLOCK_MONOTONIC || !shown_time) return __real_clock_gettime(clock, time);
  *time = {static_cast<time_t>(*shown_time / kSecond), static_cast<long>(*shown_time % kSecond)};
  return 0;
}
}

namespace {

// Asks `count` times. Returns how often a line was allowed.
int allowed_of(int count, kelo_log_rate& rate) {
  int allowed = 0;
  for (int i = 0; i < count; ++i) allowed += kelo_log_rate_allows(&rate, nullptr);
  return allowed;
}

TEST(LogRate, AllowsTheBurst) {
  for (const int burst : {1, 2, 100}) {
    for (const int asked : {burst - 1, burst, burst + 1, 3 * burst}) {
      kelo_log_rate rate = KELO_LOG_RATE_INIT(kLong, static_cast<std::uint32_t>(burst));
      EXPECT_EQ(allowed_of(asked, rate), std::min(asked, burst)) << asked << " of " << burst;
    }
  }
}

TEST(LogRate, BurstOfZeroAllowsNothing) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(0, 0);
  EXPECT_EQ(allowed_of(10, rate), 0);
  EXPECT_EQ(rate.left_out, 10U);
}

TEST(LogRate, IntervalOfZeroAllowsEverything) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(0, 1);
  EXPECT_EQ(allowed_of(1000, rate), 1000);
}

TEST(LogRate, WithoutRecordEverythingIsAllowed) {
  std::uint32_t left_out = 7;
  EXPECT_EQ(kelo_log_rate_allows(nullptr, &left_out), 1);
  EXPECT_EQ(left_out, 0U);
  EXPECT_EQ(kelo_log_rate_allows(nullptr, nullptr), 1);
}

// From the first line of an interval to the next one that is allowed, with the burst used up between.
void expect_interval(std::int64_t start, std::uint32_t interval_ms) {
  SCOPED_TRACE(std::to_string(start) + " " + std::to_string(interval_ms));
  kelo_log_rate rate = KELO_LOG_RATE_INIT(interval_ms, 2);
  const std::int64_t end = start + interval_ms * kMillisecond;
  shown_time = start;
  EXPECT_EQ(allowed_of(1, rate), 1);
  shown_time = end - 1;
  EXPECT_EQ(allowed_of(2, rate), 1);
  EXPECT_EQ(allowed_of(1, rate), 0);
  shown_time = end;
  EXPECT_EQ(allowed_of(3, rate), 2);
  shown_time = end + interval_ms * kMillisecond - 1;
  EXPECT_EQ(allowed_of(1, rate), 0);
  // The next interval begins with its first line, however late that is.
  const std::int64_t late = end + 5 * kMillisecond * interval_ms / 2;
  shown_time = late;
  EXPECT_EQ(allowed_of(3, rate), 2);
  shown_time = late + interval_ms * kMillisecond - 1;
  EXPECT_EQ(allowed_of(1, rate), 0);
  shown_time = late + interval_ms * kMillisecond;
  EXPECT_EQ(allowed_of(1, rate), 1);
}

TEST(LogRate, IntervalEndsToTheNanosecond) {
  for (const std::int64_t start : {0 * kSecond, 5 * kSecond - 1, 5 * kSecond, 5 * kSecond + 1}) {
    for (const std::uint32_t interval_ms : {1U, 999U, 1000U, 1001U, 60'000U})
      expect_interval(start, interval_ms);
  }
}

// A 32-bit time_t holds 68 years.
TEST(LogRate, LongTimesDoNotWrap) {
  constexpr std::int64_t k32Bits = 1LL << 32;
  constexpr std::int64_t kLast = kSecond * INT32_MAX;
  expect_interval(0, UINT32_MAX);
  for (const std::int64_t silence :
       {k32Bits, 10 * k32Bits, k32Bits * 1000, k32Bits * kMillisecond, 2 * k32Bits * kMillisecond, kLast}) {
    for (const std::int64_t more : {-1, 0, 1}) {
      kelo_log_rate rate = KELO_LOG_RATE_INIT(1, 1);
      shown_time = 3;
      EXPECT_EQ(allowed_of(2, rate), 1);
      shown_time = 3 + silence + more;
      EXPECT_EQ(allowed_of(2, rate), 1) << silence + more;
    }
  }
}

TEST(LogRate, TellsHowManyWereLeftOut) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(10, 1);
  std::uint32_t left_out = 7;
  shown_time = kSecond;
  EXPECT_EQ(kelo_log_rate_allows(&rate, &left_out), 1);
  EXPECT_EQ(left_out, 0U);
  for (int i = 0; i < 3; ++i) {
    left_out = 7;
    EXPECT_EQ(kelo_log_rate_allows(&rate, &left_out), 0);
    EXPECT_EQ(left_out, 0U);
  }
  // A caller that does not ask leaves the number for the next one.
  shown_time = 2 * kSecond;
  EXPECT_EQ(kelo_log_rate_allows(&rate, nullptr), 1);
  EXPECT_EQ(kelo_log_rate_allows(&rate, nullptr), 0);
  for (const std::uint32_t expected : {4U, 0U}) {
    *shown_time += kSecond;
    EXPECT_EQ(kelo_log_rate_allows(&rate, &left_out), 1);
    EXPECT_EQ(left_out, expected);
  }
}

TEST(LogRate, NumberOfLeftOutLinesStaysAtItsGreatest) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(1000, 1);
  shown_time = kSecond;
  EXPECT_EQ(allowed_of(1, rate), 1);
  rate.left_out = UINT32_MAX - 1;
  EXPECT_EQ(allowed_of(3, rate), 0);
  shown_time = 2 * kSecond;
  std::uint32_t left_out = 0;
  EXPECT_EQ(kelo_log_rate_allows(&rate, &left_out), 1);
  EXPECT_EQ(left_out, UINT32_MAX);
}

// The clock of the machine.
TEST(LogRate, IntervalEndsWithTime) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(50, 1);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(allowed_of(1, rate), 1);
  while (kelo_log_rate_allows(&rate, nullptr) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
}

TEST(LogRate, ThreadsCountExactly) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 10'000;
  constexpr std::uint32_t kBurst = 1000;
  constexpr std::uint32_t kIntervals = 3;
  kelo_log_rate rate = KELO_LOG_RATE_INIT(1000, kBurst);
  shown_time = kSecond;
  std::atomic<std::uint32_t> told = 0;
  for (std::uint32_t interval = 1; interval <= kIntervals; ++interval) {
    std::atomic<std::uint32_t> allowed = 0;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread)
      threads.emplace_back([&] {
        for (int i = 0; i < kCalls; ++i) {
          std::uint32_t left_out = 0;
          if (kelo_log_rate_allows(&rate, &left_out) != 0) ++allowed;
          told += left_out;
        }
      });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(allowed, kBurst);
    EXPECT_EQ(rate.left_out, kThreads * kCalls - kBurst);
    EXPECT_EQ(told, (interval - 1) * (kThreads * kCalls - kBurst));
    *shown_time += kSecond;
  }
}

// As if another thread of the parent was using the record at the moment of the fork().
TEST(LogRate, IsFreeInAChild) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(kLong, 2);
  EXPECT_EQ(allowed_of(1, rate), 1);
  rate.holder = getpid();
  EXPECT_EQ(fork_bounded([&] {
              alarm(10);
              return allowed_of(3, rate) == 1;
            }),
            ChildEnd::good);
  rate.holder = 0;
  EXPECT_EQ(allowed_of(3, rate), 1);
}

TEST(LogRate, PreservesErrno) {
  kelo_log_rate rate = KELO_LOG_RATE_INIT(kLong, 1);
  for (const int expected : {1, 0}) {
    errno = ENOSPC;
    EXPECT_EQ(kelo_log_rate_allows(&rate, nullptr), expected);
    EXPECT_EQ(errno, ENOSPC);
  }
}

void expect_limit_of_two(void (*log)(int number), const std::string& function) {
  LogCapture captured;
  shown_time = kSecond;
  log(-1);  // a place of its own
  kelo::tests::expect_lines(captured, function, {{LOG_LVL_WRN, "plain\n"}});
  for (int number = 0; number < 5; ++number) log(number);
  kelo::tests::expect_lines(captured, function, {{LOG_LVL_WRN, "number 0\n"}, {LOG_LVL_WRN, "number 1\n"}});
  *shown_time += kSecond;
  for (int number = 5; number < 8; ++number) log(number);
  kelo::tests::expect_lines(captured, function,
                            {{LOG_LVL_WRN, "3 lines like the next one were left out\n"},
                             {LOG_LVL_WRN, "number 5\n"},
                             {LOG_LVL_WRN, "number 6\n"}});
}

TEST(LogLimited, TellsOfLeftOutLinesFromC99) { expect_limit_of_two(limited_from_c99, "limited_from_c99"); }

TEST(LogLimited, TellsOfLeftOutLinesFromCxx17) {
  expect_limit_of_two(limited_from_cxx17, "limited_from_cxx17");
}

// Returns how often the arguments of a limited line were evaluated.
int evaluated_of(int count) {
  int evaluated = 0;
  for (int i = 0; i < count; ++i) KELO_LOG_LIMITED(LOG_LVL_INFO, kLong, 3, "%d\n", ++evaluated);
  return evaluated;
}

TEST(LogLimited, EvaluatesArgumentsOfLoggedLinesOnly) {
  const LogCapture captured;
  kelo_set_log_level(LOG_LVL_WRN);
  EXPECT_EQ(evaluated_of(10), 0);  // below the threshold, which does not count
  kelo_set_log_level(LOG_LVL_INFO);
  EXPECT_EQ(evaluated_of(10), 3);
  EXPECT_EQ(captured.lines().size(), 3U);
  EXPECT_EQ(evaluated_of(10), 0);
}

}  // namespace
