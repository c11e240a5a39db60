// SPDX-License-Identifier: MIT
// Readings of the clocks and of the time since boot, real ones and chosen ones, and sums of times.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/before_sanitizer.hpp"
#include "tests/support/c_library.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::LogCapture;
using kelo::tests::StdoutCapture;

// What a call is to give instead of the truth: a value, or the error that it fails with.
struct ChosenClock {
  clockid_t clock;
  timespec time;
  int error;
};
const ChosenClock* chosen_clock = nullptr;

struct ChosenUptime {
  long seconds;
  int error;
};
const ChosenUptime* chosen_uptime = nullptr;

template <typename Chosen>
int fails_as(const Chosen& chosen) {
  if (chosen.error == 0) return 0;
  errno = chosen.error;
  return -1;
}

}  // namespace

// The library's calls land here.
extern "C" {

int clock_gettime_for_library(clockid_t clock, timespec* now) asm(KELO_CLOCK_GETTIME);
int sysinfo_for_library(struct sysinfo* info) asm("sysinfo");

// Asks the kernel itself: a sanitizer's run time calls it before anything can be looked up.
KELO_BEFORE_SANITIZER int clock_gettime_for_library(clockid_t clock, timespec* now) {
  if (chosen_clock == nullptr || chosen_clock->clock != clock)
    return static_cast<int>(syscall(kelo::tests::kClockGettime, clock, now));
  if (chosen_clock->error == 0) *now = chosen_clock->time;
  return fails_as(*chosen_clock);
}

int sysinfo_for_library(struct sysinfo* info) {
  if (chosen_uptime == nullptr) return static_cast<int>(syscall(SYS_sysinfo, info));
  if (chosen_uptime->error == 0) info->uptime = static_cast<decltype(info->uptime)>(chosen_uptime->seconds);
  return fails_as(*chosen_uptime);
}

}  // extern "C"

namespace {

static_assert(sizeof(kelo_clk_time) == 8 && offsetof(kelo_clk_time, seconds) == 0 &&
              offsetof(kelo_clk_time, microseconds) == 4);

constexpr std::int32_t kPreset = 0x5A5A5A5A;

struct Clock {
  kelo_clk_time* (*read)(kelo_clk_time* out);
  clockid_t id;
  const char* name;
  const char* logged_name;
};
constexpr Clock kClocks[] = {
    {kelo_clk_GetRelativeTime, CLOCK_MONOTONIC, "kelo_clk_GetRelativeTime", "oem_clk_GetRelativeTime"},
    {kelo_clk_GetAbsoluteTime, CLOCK_REALTIME, "kelo_clk_GetAbsoluteTime", "oem_clk_GetAbsoluteTime"}};

void expect_time(const kelo_clk_time& time, std::int32_t seconds, std::int32_t microseconds) {
  EXPECT_EQ(time.seconds, seconds);
  EXPECT_EQ(time.microseconds, microseconds);
}

std::int64_t in_microseconds(std::int64_t seconds, std::int64_t microseconds) {
  return seconds * 1000000 + microseconds;
}

std::int64_t kernel_microseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return in_microseconds(now.tv_sec, now.tv_nsec / 1000);
}

// In a clock's place while it lives.
class ClockGives {
 public:
  explicit ClockGives(const ChosenClock& chosen) : chosen_(chosen) { chosen_clock = &chosen_; }
  ~ClockGives() { chosen_clock = nullptr; }
  ClockGives(const ClockGives&) = delete;
  ClockGives& operator=(const ClockGives&) = delete;

 private:
  const ChosenClock chosen_;
};

class UptimeIs {
 public:
  explicit UptimeIs(const ChosenUptime& chosen) : chosen_(chosen) { chosen_uptime = &chosen_; }
  ~UptimeIs() { chosen_uptime = nullptr; }
  UptimeIs(const UptimeIs&) = delete;
  UptimeIs& operator=(const UptimeIs&) = delete;

 private:
  const ChosenUptime chosen_;
};

class ClockTest : public testing::Test {
 protected:
  LogCapture log;
};

TEST_F(ClockTest, ReadsTheKernelsClocks) {
  for (const Clock& clock : kClocks) {
    kelo_clk_time time = {kPreset, kPreset};
    const std::int64_t before = kernel_microseconds(clock.id);
    EXPECT_EQ(clock.read(&time), &time);
    const std::int64_t after = kernel_microseconds(clock.id);
    const std::int64_t read = in_microseconds(time.seconds, time.microseconds);
    EXPECT_LE(before, read) << clock.logged_name;
    EXPECT_LE(read, after) << clock.logged_name;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(ClockTest, DropsPartsOfAMicrosecond) {
  constexpr struct {
    long nanoseconds;
    std::int32_t microseconds;
  } kCases[] = {
      {0, 0}, {999, 0}, {1000, 1}, {1999, 1}, {999998999, 999998}, {999999000, 999999}, {999999999, 999999}};
  for (const Clock& clock : kClocks) {
    for (const auto& each : kCases) {
      const ClockGives gives({clock.id, {12, each.nanoseconds}, 0});
      kelo_clk_time time = {kPreset, kPreset};
      clock.read(&time);
      expect_time(time, 12, each.microseconds);
    }
  }
}

TEST_F(ClockTest, KeepsSecondsModuloTwoToThe32) {
  if (sizeof(time_t) == 4) GTEST_SKIP() << "the C library's time ends in 2038";
  constexpr struct {
    std::int64_t seconds;
    std::int32_t expected;
  } kCases[] = {{INT32_MAX, INT32_MAX},
                {INT64_C(1) << 31, INT32_MIN},
                {(INT64_C(1) << 31) + 1, INT32_MIN + 1},
                {UINT32_MAX, -1},
                {INT64_C(1) << 32, 0},
                {(INT64_C(1) << 32) + 7, 7},
                {-1, -1}};
  for (const Clock& clock : kClocks) {
    for (const auto& each : kCases) {
      const ClockGives gives({clock.id, {static_cast<time_t>(each.seconds), 5000}, 0});
      kelo_clk_time time = {kPreset, kPreset};
      clock.read(&time);
      expect_time(time, each.expected, 5);
    }
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(ClockTest, PrintsThatTheMonotonicClockFails) {
  for (const int error : {EINVAL, EOVERFLOW}) {
    const ClockGives gives({CLOCK_MONOTONIC, {}, error});
    kelo_clk_time time = {kPreset, kPreset};
    StdoutCapture output;
    const kelo_clk_time* const result = kelo_clk_GetRelativeTime(&time);
    const int error_after = errno;
    EXPECT_EQ(output.take(), "clock_gettime() failed. errno = " + std::to_string(error) + " (" +
                                 std::strerror(error) + ")\n");
    EXPECT_EQ(error_after, error);
    EXPECT_EQ(result, &time);
    expect_time(time, 0, 0);
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(ClockTest, LogsThatTheWallClockFails) {
  const ClockGives gives({CLOCK_REALTIME, {}, EINVAL});
  kelo_clk_time time = {kPreset, kPreset};
  StdoutCapture output;
  EXPECT_EQ(kelo_clk_GetAbsoluteTime(&time), &time);
  EXPECT_EQ(output.take(), "");
  expect_time(time, 0, 0);
  expect_lines(log, "oem_clk_GetAbsoluteTime",
               {{LOG_LVL_CRT, "CLOCK_REALTIME is not supported for Absolute time\n"}});
}

TEST_F(ClockTest, RefusesANullRecord) {
  for (const Clock& clock : kClocks) {
    EXPECT_EQ(clock.read(nullptr), nullptr);
    expect_lines(log, clock.logged_name, {{LOG_LVL_ERR, std::string(clock.name) + " param NULL\n"}});
  }
  EXPECT_EQ(kelo_clk_Add(nullptr, {1, 2}, {3, 4}), nullptr);
  expect_lines(log, "oem_clk_Add", {{LOG_LVL_ERR, "kelo_clk_Add param NULL\n"}});
}

TEST_F(ClockTest, AddsWithASingleCarry) {
  constexpr struct {
    kelo_clk_time a, b, sum;
  } kCases[] = {
      {{1, 600000}, {0, 500000}, {2, 100000}},
      {{0, 0}, {0, 0}, {0, 0}},
      {{3, 999998}, {4, 1}, {7, 999999}},
      {{3, 999999}, {4, 1}, {8, 0}},
      {{3, 999999}, {4, 999999}, {8, 999998}},
      {{-5, 700000}, {2, 400000}, {-2, 100000}},
      {{-1, 999999}, {0, 1}, {0, 0}},
      // Times that no clock gives: one carry, no borrow.
      {{1, 1500000}, {1, 1500000}, {3, 2000000}},
      {{1, -1}, {1, 0}, {2, -1}},
      {{1, -300000}, {1, -800000}, {2, -1100000}},
      // Modulo 2^32.
      {{INT32_MAX, 0}, {1, 0}, {INT32_MIN, 0}},
      {{INT32_MAX, 999999}, {0, 1}, {INT32_MIN, 0}},
      {{INT32_MAX, 0}, {INT32_MAX, 0}, {-2, 0}},
      {{INT32_MIN, 0}, {-1, 0}, {INT32_MAX, 0}},
      {{INT32_MIN, 0}, {INT32_MIN, 0}, {0, 0}},
      {{0, INT32_MAX}, {0, INT32_MAX}, {1, -1000002}},
      {{0, INT32_MIN}, {0, INT32_MIN}, {0, 0}},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(testing::Message() << each.a.seconds << '.' << each.a.microseconds << " + " << each.b.seconds
                                    << '.' << each.b.microseconds);
    kelo_clk_time sum = {kPreset, kPreset};
    EXPECT_EQ(kelo_clk_Add(&sum, each.a, each.b), &sum);
    expect_time(sum, each.sum.seconds, each.sum.microseconds);
    kelo_clk_Add(&sum, each.b, each.a);
    expect_time(sum, each.sum.seconds, each.sum.microseconds);
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(ClockTest, AddsInPlace) {
  kelo_clk_time time = {1, 600000};
  kelo_clk_Add(&time, time, {0, 500000});
  expect_time(time, 2, 100000);
  kelo_clk_Add(&time, time, time);
  expect_time(time, 4, 200000);
}

double proc_uptime() {
  double seconds = -1;
  std::ifstream("/proc/uptime") >> seconds;
  return seconds;
}

TEST_F(ClockTest, TellsTheUptimeOfTheKernel) {
  const double before = proc_uptime();
  const std::int32_t uptime = get_linuxuptime();
  const double after = proc_uptime();
  EXPECT_GE(uptime, before);
  EXPECT_LE(uptime, after + 1);
  expect_lines(log, "get_linuxuptime", {{LOG_LVL_INFO, "info.uptime is " + std::to_string(uptime) + "\n"}});
}

TEST_F(ClockTest, LogsTheUptimeInFull) {
  constexpr long kLarge = sizeof(long) == 8 ? static_cast<long>(INT64_C(0x180000005)) : LONG_MIN + 5;
  for (const long seconds : {0L, 1L, static_cast<long>(INT32_MAX), kLarge}) {
    const UptimeIs uptime({seconds, 0});
    EXPECT_EQ(get_linuxuptime(), seconds == kLarge ? INT32_MIN + 5 : seconds);
    expect_lines(log, "get_linuxuptime",
                 {{LOG_LVL_INFO, "info.uptime is " + std::to_string(seconds) + "\n"}});
  }
}

TEST_F(ClockTest, TellsNoUptimeWhenTheKernelDoesNot) {
  const UptimeIs uptime({kPreset, EFAULT});
  EXPECT_EQ(get_linuxuptime(), 0);
  expect_lines(log, "get_linuxuptime", {{LOG_LVL_INFO, "info.uptime is 0\n"}});
}

}  // namespace
