// SPDX-License-Identifier: MIT
// What timers do with time: never early, periods, what is left, and times that are refused.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::kInAnHour;
using kelo::tests::LogCapture;
using kelo::tests::milliseconds;
using kelo::tests::monotonic_now;
using kelo::tests::NamedTimer;
using kelo::tests::nanoseconds;
using kelo::tests::pass_worker;

class TimerTimes : public testing::Test {
 protected:
  void SetUp() override {
    kelo_timer_init();
    log.clear();
  }

  LogCapture log;
  Calls calls;
};

TEST_F(TimerTimes, TimesTheSystemRefuses) {
  struct Times {
    kelo_timer_span value;
    kelo_timer_span interval;
    bool good;
  };
  const std::vector<Times> all = {
      {{3600, 999'999'999}, {0, 0}, true},   {{3600, 1'000'000'000}, {0, 0}, false},
      {{3600, -1}, {0, 0}, false},           {{-1, 0}, {0, 0}, false},
      {{3600, 0}, {0, 999'999'999}, true},   {{3600, 0}, {0, 1'000'000'000}, false},
      {{3600, 0}, {0, -1}, false},           {{3600, 0}, {-1, 0}, false},
      {{2'147'483'647, 0}, {0, 0}, true},    {{3600, 0}, {2'147'483'647, 0}, true},
      {{3600, 2'147'483'647}, {0, 0}, false}};
  for (const Times& times : all) {
    SCOPED_TRACE(testing::Message() << times.value.tv_sec << " s " << times.value.tv_nsec << " ns, "
                                    << times.interval.tv_sec << " s " << times.interval.tv_nsec << " ns");
    NamedTimer timer(calls, 1, times.value, times.interval);
    ASSERT_EQ(kelo_timer_create(&timer.info), 0);
    EXPECT_EQ(kelo_timer_start(&timer.info), times.good ? 0 : -1);
    EXPECT_EQ(timer.info.state, times.good ? TIMER_STATE_RUNNING : TIMER_STATE_CREATED);
    EXPECT_EQ(timer.is_armed(), times.good);
    EXPECT_EQ(log.lines().size(), times.good ? 0U : 1U) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_timer_start", "failed to set time, rc=-1\n"), times.good ? 0 : 1);
    log.clear();
  }
}

TEST_F(TimerTimes, FiresOnceNeverEarlyAndStaysStarted) {
  for (const int wait : {1, 30}) {
    Calls fired;
    NamedTimer timer(fired, 1, milliseconds(wait));
    ASSERT_EQ(kelo_timer_create(&timer.info), 0);
    const long long before = monotonic_now();
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
    ASSERT_TRUE(fired.wait_for(1));
    EXPECT_GE(fired.times()[0] - before, wait * 1'000'000LL);
    pass_worker();
    EXPECT_EQ(fired.count(), 1U);
    EXPECT_EQ(timer.info.state, TIMER_STATE_RUNNING);
    EXPECT_EQ(kelo_timer_is_already_start(&timer.info), 1);
    EXPECT_FALSE(timer.is_armed());
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(TimerTimes, PeriodsFollowTheFirstExpiry) {
  constexpr int kFirst = 30;
  constexpr int kPeriod = 5;
  NamedTimer timer(calls, 1, milliseconds(kFirst), milliseconds(kPeriod));
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  const long long before = monotonic_now();
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  ASSERT_TRUE(calls.wait_for(5));
  const auto times = calls.times();
  for (int i = 0; i < 5; ++i) {
    EXPECT_GE(times[static_cast<std::size_t>(i)] - before, (kFirst + i * kPeriod) * 1'000'000LL) << i;
  }
  EXPECT_EQ(kelo_timer_stop(&timer.info), 0);
  pass_worker();
  const std::size_t count = calls.count();
  EXPECT_FALSE(timer.is_armed());
  pass_worker();
  EXPECT_EQ(calls.count(), count);
}

TEST_F(TimerTimes, ZeroValueLeavesItUnarmed) {
  for (const kelo_timer_span interval : {kelo_timer_span{0, 0}, kInAnHour}) {
    NamedTimer timer(calls, 1, {0, 0}, interval);
    ASSERT_EQ(kelo_timer_create(&timer.info), 0);
    EXPECT_EQ(kelo_timer_start(&timer.info), 0);
    EXPECT_EQ(timer.info.state, TIMER_STATE_RUNNING);
    EXPECT_FALSE(timer.is_armed());
    timer.info.value = kInAnHour;
    EXPECT_EQ(kelo_timer_settime(&timer.info), 0);
    EXPECT_TRUE(timer.is_armed());
    timer.info.value = {0, 0};
    EXPECT_EQ(kelo_timer_settime(&timer.info), 0);
    EXPECT_FALSE(timer.is_armed());
  }
}

TEST_F(TimerTimes, GettimeTellsWhatIsLeftAndThePeriod) {
  constexpr kelo_timer_span kValue{3600, 123'456'789};
  constexpr kelo_timer_span kInterval{7, 987'654'321};
  NamedTimer timer(calls, 1, kValue, kInterval);
  const long long before = monotonic_now();
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  ASSERT_EQ(kelo_timer_gettime(&timer.info), 0);
  const long long elapsed = monotonic_now() - before;
  EXPECT_LE(nanoseconds(timer.info.value), nanoseconds(kValue));
  EXPECT_GE(nanoseconds(timer.info.value), nanoseconds(kValue) - elapsed);
  EXPECT_EQ(timer.info.interval.tv_sec, kInterval.tv_sec);
  EXPECT_EQ(timer.info.interval.tv_nsec, kInterval.tv_nsec);
  ASSERT_EQ(kelo_timer_stop(&timer.info), 0);
  ASSERT_EQ(kelo_timer_gettime(&timer.info), 0);
  EXPECT_EQ(nanoseconds(timer.info.value), 0);
  EXPECT_EQ(nanoseconds(timer.info.interval), 0);
}

TEST_F(TimerTimes, SettimeArmsAnew) {
  NamedTimer timer(calls, 1);
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  timer.info.value = milliseconds(20);
  const long long before = monotonic_now();
  ASSERT_EQ(kelo_timer_settime(&timer.info), 0);
  ASSERT_TRUE(calls.wait_for(1));
  EXPECT_GE(calls.times()[0] - before, 20'000'000LL);
}

TEST_F(TimerTimes, StoppedAndFiredTimersStartAgain) {
  NamedTimer timer(calls, 1);
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  ASSERT_EQ(kelo_timer_stop(&timer.info), 0);
  timer.info.value = milliseconds(2);
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
    ASSERT_TRUE(calls.wait_for(round));
  }
}

TEST_F(TimerTimes, DeletedRecordIsCreatedAgain) {
  NamedTimer timer(calls, 1, milliseconds(2));
  for (std::size_t round = 1; round <= 3; ++round) {
    ASSERT_EQ(kelo_timer_create(&timer.info), 0);
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
    ASSERT_TRUE(calls.wait_for(round));
    ASSERT_EQ(kelo_timer_delete(&timer.info), 0);
    EXPECT_EQ(kelo_timer_is_already_start(&timer.info), 0);
  }
}

}  // namespace
