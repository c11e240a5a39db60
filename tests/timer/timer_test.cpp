// SPDX-License-Identifier: MIT
// The calls that drive one timer: every call in every state, and failing system calls.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/c_library.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/timer_faults.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::bytes_of;
using kelo::tests::Calls;
using kelo::tests::Fault;
using kelo::tests::kInAnHour;
using kelo::tests::LogCapture;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::nanoseconds;
using kelo::tests::timer_calls;

class Timer : public testing::Test {
 protected:
  void SetUp() override {
    kelo_timer_init();
    log.clear();
  }
  void TearDown() override { timer_calls.after_settime = nullptr; }

  // Exactly this line since the last look.
  void expect_line(int level, const std::string& function, const std::string& text) {
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_EQ(log.count(level, function, text), 1) << log.dump();
    log.clear();
  }
  void expect_no_line() {
    EXPECT_TRUE(log.lines().empty()) << log.dump();
    log.clear();
  }

  LogCapture log;
  Calls calls;
};

// Brings an idle record with a long value into a state by the calls themselves; 4 and -1 are no states.
void bring_to(kelo_timer_info& info, std::int32_t state) {
  if (state == TIMER_STATE_IDLE) return;
  ASSERT_EQ(kelo_timer_create(&info), 0);
  if (state == TIMER_STATE_RUNNING || state == TIMER_STATE_STOPPED) {
    ASSERT_EQ(kelo_timer_start(&info), 0);
  }
  if (state == TIMER_STATE_STOPPED) {
    ASSERT_EQ(kelo_timer_stop(&info), 0);
  }
  if (state == 4 || state == -1) info.state = state;
  ASSERT_EQ(info.state, state);
}

struct Call {
  const char* name;
  int (*function)(kelo_timer_info*);
};
constexpr Call kCreate = {"oem_timer_create", kelo_timer_create};
constexpr Call kStart = {"oem_timer_start", kelo_timer_start};
constexpr Call kSettime = {"oem_timer_settime", kelo_timer_settime};
constexpr Call kStop = {"oem_timer_stop", kelo_timer_stop};
constexpr Call kGettime = {"oem_timer_gettime", kelo_timer_gettime};
constexpr Call kDelete = {"oem_timer_delete", kelo_timer_delete};
constexpr Call kIsStarted = {"oem_timer_is_already_start", kelo_timer_is_already_start};

// --- Every call in every state ---

enum class Armed { no, yes, gone };

struct Step {
  Call call;
  std::int32_t before;
  int result;
  std::int32_t after;
  Armed armed;
  std::string text;  // of the error that is logged; none when empty
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
  return out << step.call.name << " in state " << step.before;
}

const std::vector<Step> kSteps = {
    {kCreate, 0, 0, 1, Armed::no, ""},
    {kCreate, 1, -1, 1, Armed::no, "invalid state:1\n"},
    {kCreate, 2, -1, 2, Armed::yes, "invalid state:2\n"},
    {kCreate, 3, -1, 3, Armed::no, "invalid state:3\n"},
    {kCreate, 4, -1, 4, Armed::no, "invalid state:4\n"},
    {kCreate, -1, -1, -1, Armed::no, "invalid state:-1\n"},
    {kStart, 0, -1, 0, Armed::gone, "invalid state:0\n"},
    {kStart, 1, 0, 2, Armed::yes, ""},
    {kStart, 2, 0, 2, Armed::yes, ""},
    {kStart, 3, 0, 2, Armed::yes, ""},
    {kStart, 4, -1, 4, Armed::no, "invalid state:4\n"},
    {kStart, -1, -1, -1, Armed::no, "invalid state:-1\n"},
    {kSettime, 0, -1, 0, Armed::gone, "invalid state:0\n"},
    {kSettime, 1, -1, 1, Armed::no, "invalid state:1\n"},
    {kSettime, 2, 0, 2, Armed::yes, ""},
    {kSettime, 3, -1, 3, Armed::no, "invalid state:3\n"},
    {kSettime, 4, -1, 4, Armed::no, "invalid state:4\n"},
    {kSettime, -1, -1, -1, Armed::no, "invalid state:-1\n"},
    {kStop, 0, -1, 0, Armed::gone, "not valid state:0!\n"},
    {kStop, 1, -1, 1, Armed::no, "not valid state:1!\n"},
    {kStop, 2, 0, 3, Armed::no, ""},
    {kStop, 3, -1, 3, Armed::no, "not valid state:3!\n"},
    {kStop, 4, -1, 4, Armed::no, "not valid state:4!\n"},
    {kStop, -1, -1, -1, Armed::no, "not valid state:-1!\n"},
    {kGettime, 0, -1, 0, Armed::gone, "failed to get time, rc=-1\n"},
    {kGettime, 1, 0, 1, Armed::no, ""},
    {kGettime, 2, 0, 2, Armed::yes, ""},
    {kGettime, 3, 0, 3, Armed::no, ""},
    {kGettime, 4, 0, 4, Armed::no, ""},
    {kGettime, -1, 0, -1, Armed::no, ""},
    {kDelete, 0, -1, 0, Armed::gone, "invalid state:0\n"},
    {kDelete, 1, 0, 0, Armed::gone, ""},
    {kDelete, 2, 0, 0, Armed::gone, ""},
    {kDelete, 3, 0, 0, Armed::gone, ""},
    {kDelete, 4, 0, 0, Armed::gone, ""},
    {kDelete, -1, 0, 0, Armed::gone, ""},
    {kIsStarted, 0, 0, 0, Armed::gone, ""},
    {kIsStarted, 1, 0, 1, Armed::no, ""},
    {kIsStarted, 2, 1, 2, Armed::yes, ""},
    {kIsStarted, 3, 0, 3, Armed::no, ""},
    {kIsStarted, 4, 0, 4, Armed::no, ""},
    {kIsStarted, -1, 0, -1, Armed::no, ""},
};

TEST_F(Timer, EveryCallInEveryState) {
  for (const Step& step : kSteps) {
    SCOPED_TRACE(testing::Message() << step);
    NamedTimer timer(calls, 1);
    bring_to(timer.info, step.before);
    expect_no_line();
    const timer_t system_timer = timer.info.timer_id;
    const int deletes_before = timer_calls.deletes;

    EXPECT_EQ(step.call.function(&timer.info), step.result);
    EXPECT_EQ(timer.info.state, step.after);
    if (step.text.empty()) {
      expect_no_line();
    } else {
      expect_line(LOG_LVL_ERR, step.call.name, step.text);
    }
    const bool deleted = step.before != TIMER_STATE_IDLE && step.armed == Armed::gone;
    EXPECT_EQ(timer_calls.deletes - deletes_before, deleted ? 1 : 0);
    if (step.armed != Armed::gone) {
      EXPECT_EQ(timer.is_armed(), step.armed == Armed::yes);
    } else if (deleted) {
      itimerspec times{};
      EXPECT_EQ(timer_gettime(system_timer, &times), -1) << "the system knows it still";
    }
    if (step.call.function != kelo_timer_gettime) {
      EXPECT_EQ(nanoseconds(timer.info.value), nanoseconds(kInAnHour));
    }
    EXPECT_EQ(nanoseconds(timer.info.interval), 0);
  }
  EXPECT_EQ(calls.count(), 0U);
}

TEST_F(Timer, NullRecordIsRefused) {
  struct Refusal {
    Call call;
    int result;
    std::string text;
  };
  const std::string invalid = "invalid info " + kelo::tests::null_pointer_text() + "\n";
  const std::vector<Refusal> refusals = {{kCreate, -1, invalid},  {kStart, -1, invalid},
                                         {kSettime, -1, invalid}, {kStop, -1, "info is null\n"},
                                         {kDelete, -1, invalid},  {kIsStarted, 0, "NULL time handler\n"}};
  for (const Refusal& refusal : refusals) {
    EXPECT_EQ(refusal.call.function(nullptr), refusal.result);
    expect_line(LOG_LVL_ERR, refusal.call.name, refusal.text);
  }
}

TEST_F(Timer, CreateWithoutAHandlerWritesNothing) {
  for (const std::int32_t state : {0, 1, 2, 3, 4, -1}) {
    kelo_timer_info info;
    std::memset(&info, 0x5A, sizeof info);
    info.cb.handler = nullptr;
    info.state = state;
    const std::string before = bytes_of(info);
    EXPECT_EQ(kelo_timer_create(&info), -1);
    EXPECT_EQ(bytes_of(info), before) << state;
    expect_line(LOG_LVL_ERR, "oem_timer_create", "handler is NULL!!");
  }
}

TEST_F(Timer, RefusedCreateWritesTheMagicAlone) {
  for (const std::int32_t state : {1, 2, 3, 4, -1}) {
    kelo_timer_info info;
    std::memset(&info, 0x5A, sizeof info);
    info.state = state;
    std::string expected = bytes_of(info);
    expected.replace(offsetof(kelo_timer_info, magic), 4, "QdrJ");
    EXPECT_EQ(kelo_timer_create(&info), -1);
    EXPECT_EQ(bytes_of(info), expected) << state;
  }
}

TEST_F(Timer, CreateWritesMagicTimerAndState) {
  NamedTimer timer(calls, 1, {-1, -1}, {-2, 2'000'000'000});
  timer.info.magic = 7;
  std::string expected = bytes_of(timer.info);
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  const auto replace = [&](std::size_t place, const void* bytes, std::size_t size) {
    expected.replace(place, size, static_cast<const char*>(bytes), size);
  };
  constexpr std::int32_t kCreated = 1;
  replace(offsetof(kelo_timer_info, magic), "QdrJ", 4);
  replace(offsetof(kelo_timer_info, timer_id), &timer.info.timer_id, sizeof timer.info.timer_id);
  replace(offsetof(kelo_timer_info, state), &kCreated, sizeof kCreated);
  EXPECT_EQ(bytes_of(timer.info), expected);
}

TEST_F(Timer, CreateAsksForASignalOfTheMonotonicClock) {
  NamedTimer timer(calls, 1);
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  EXPECT_EQ(timer_calls.clock, CLOCK_MONOTONIC);
  EXPECT_EQ(timer_calls.notification.sigev_signo, SIGUSR1);
  EXPECT_EQ(timer_calls.notification.sigev_value.sival_ptr, &timer.info);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  EXPECT_EQ(timer_calls.settime_flags, 0) << "times count from now";
}

// --- Failing system calls, and system calls that return more than 0 ---

TEST_F(Timer, CreateReturnsTheFailingResult) {
  for (const int result : {-1, -EAGAIN, -77}) {
    NamedTimer timer(calls, 1);
    const Fault fault({"timer_create", -result});
    EXPECT_EQ(kelo_timer_create(&timer.info), result);
    EXPECT_EQ(timer.info.state, TIMER_STATE_IDLE);
    EXPECT_EQ(timer.info.magic, KELO_TIMER_MAGIC);
    expect_line(LOG_LVL_ERR, "oem_timer_create",
                "failed to create timer, rc=" + std::to_string(result) + "\n");
  }
}

TEST_F(Timer, ArmingReturnsTheFailingResultAndLeavesTheState) {
  struct Arming {
    Call call;
    std::int32_t state;
  };
  for (const Arming& arming :
       {Arming{kStart, 1}, Arming{kStart, 2}, Arming{kStart, 3}, Arming{kSettime, 2}}) {
    NamedTimer timer(calls, 1);
    bring_to(timer.info, arming.state);
    const bool armed = timer.is_armed();
    const std::string before = bytes_of(timer.info);
    const Fault fault({"timer_settime", 22});
    EXPECT_EQ(arming.call.function(&timer.info), -22);
    EXPECT_EQ(bytes_of(timer.info), before) << arming.call.name << arming.state;
    EXPECT_EQ(timer.is_armed(), armed);
    expect_line(LOG_LVL_ERR, arming.call.name, "failed to set time, rc=-22\n");
  }
}

TEST_F(Timer, StopGoesOnWhenDisarmingFails) {
  NamedTimer timer(calls, 1);
  bring_to(timer.info, TIMER_STATE_RUNNING);
  const Fault fault({"timer_settime", 22});
  EXPECT_EQ(kelo_timer_stop(&timer.info), 0);
  EXPECT_EQ(timer.info.state, TIMER_STATE_STOPPED);
  EXPECT_TRUE(timer.is_armed());
  expect_line(LOG_LVL_ERR, "oem_timer_stop", "failed to set time, rc=-22\n");
}

TEST_F(Timer, FailingGettimeLeavesTheRecord) {
  NamedTimer timer(calls, 1, {3600, 7}, {11, 13});
  bring_to(timer.info, TIMER_STATE_RUNNING);
  const std::string before = bytes_of(timer.info);
  const Fault fault({"timer_gettime", 22});
  EXPECT_EQ(kelo_timer_gettime(&timer.info), -1);
  EXPECT_EQ(bytes_of(timer.info), before);
  expect_line(LOG_LVL_ERR, "oem_timer_gettime", "failed to get time, rc=-22\n");
}

TEST_F(Timer, GettimeOfADeletedTimerFails) {
  NamedTimer timer(calls, 1, {3600, 7}, {11, 13});
  bring_to(timer.info, TIMER_STATE_CREATED);
  ASSERT_EQ(kelo_timer_delete(&timer.info), 0);
  const std::string before = bytes_of(timer.info);
  EXPECT_EQ(kelo_timer_gettime(&timer.info), -1);
  EXPECT_EQ(bytes_of(timer.info), before);
  expect_line(LOG_LVL_ERR, "oem_timer_gettime", "failed to get time, rc=-1\n");
}

// A record of zeros names the first timer of the system.
TEST_F(Timer, GettimeOfAnIdleRecordReadsNoOtherTimer) {
  NamedTimer first(calls, 1, {3600, 7}, {11, 13});
  bring_to(first.info, TIMER_STATE_RUNNING);
  kelo_timer_info idle{};
  idle.timer_id = first.info.timer_id;
  const std::string before = bytes_of(idle);
  EXPECT_EQ(kelo_timer_gettime(&idle), -1);
  EXPECT_EQ(bytes_of(idle), before);
  expect_line(LOG_LVL_ERR, "oem_timer_gettime", "failed to get time, rc=-1\n");
}

TEST_F(Timer, FailingDeleteLeavesTheState) {
  for (const std::int32_t state : {1, 2, 3}) {
    NamedTimer timer(calls, 1);
    bring_to(timer.info, state);
    {
      const Fault fault({"timer_delete", 22});
      EXPECT_EQ(kelo_timer_delete(&timer.info), -1);
    }
    EXPECT_EQ(timer.info.state, state);
    expect_line(LOG_LVL_ERR, "oem_timer_delete", "failed to delete timer, rc=-22\n");
    EXPECT_EQ(kelo_timer_delete(&timer.info), 0);
  }
}

TEST_F(Timer, ResultsAboveZeroAreSuccesses) {
  constexpr int kAboveZero = -5;  // as an error: the call returns minus it
  NamedTimer timer(calls, 1);
  {
    const Fault result({"timer_create", kAboveZero});
    EXPECT_EQ(kelo_timer_create(&timer.info), 5);
    EXPECT_EQ(timer.info.state, TIMER_STATE_CREATED);
  }
  timer.info.state = TIMER_STATE_IDLE;
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  for (const Call& call : {kStart, kSettime}) {
    const Fault result({"timer_settime", kAboveZero});
    EXPECT_EQ(call.function(&timer.info), 5);
    EXPECT_EQ(timer.info.state, TIMER_STATE_RUNNING);
  }
  {
    const Fault result({"timer_gettime", kAboveZero});
    EXPECT_EQ(kelo_timer_gettime(&timer.info), 0);
  }
  {
    const Fault result({"timer_settime", kAboveZero});
    EXPECT_EQ(kelo_timer_stop(&timer.info), 0);
    EXPECT_EQ(timer.info.state, TIMER_STATE_STOPPED);
  }
  {
    const Fault result({"timer_delete", kAboveZero});
    EXPECT_EQ(kelo_timer_delete(&timer.info), 5);
    EXPECT_EQ(timer.info.state, TIMER_STATE_IDLE);
  }
  expect_no_line();
  timer.info.state = TIMER_STATE_CREATED;  // the system's timer is left
}

// The callback may come before the call that starts the timer is through.
TEST_F(Timer, StartLeavesARecordAloneWhoseCallbackDeletedIt) {
  static Calls deleted;
  kelo_timer_info info{};
  info.value = milliseconds(1);
  info.cb = {[](void* record) { deleted.add(kelo_timer_delete(static_cast<kelo_timer_info*>(record))); },
             &info};
  timer_calls.after_settime = [] { EXPECT_TRUE(deleted.wait_for(1)); };
  ASSERT_EQ(kelo_timer_create(&info), 0);
  EXPECT_EQ(kelo_timer_start(&info), 0);
  EXPECT_EQ(deleted.names(), std::vector<int>{0});
  EXPECT_EQ(info.state, TIMER_STATE_IDLE);
}

TEST(TimerRecord, Layout) {
  constexpr std::size_t kPointer = sizeof(void*);
  EXPECT_EQ(sizeof(kelo_timer_span), 8U);
  EXPECT_EQ(offsetof(kelo_timer_info, value), 0U);
  EXPECT_EQ(offsetof(kelo_timer_info, interval), 8U);
  EXPECT_EQ(offsetof(kelo_timer_info, cb.handler), 16U);
  EXPECT_EQ(offsetof(kelo_timer_info, cb.arg), 16 + kPointer);
  EXPECT_EQ(offsetof(kelo_timer_info, link), 16 + 2 * kPointer);
  EXPECT_EQ(offsetof(kelo_timer_info, magic), 16 + 4 * kPointer);
  EXPECT_EQ(offsetof(kelo_timer_info, timer_id), 16 + 5 * kPointer);
  EXPECT_EQ(offsetof(kelo_timer_info, state), 16 + 6 * kPointer);
  EXPECT_EQ(sizeof(kelo_timer_info), 16 + 7 * kPointer);
  EXPECT_EQ(KELO_TIMER_MAGIC, 0x4A726451U);
}

}  // namespace
