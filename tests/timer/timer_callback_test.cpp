// SPDX-License-Identifier: MIT
// What the callbacks of timers may do, to their own timers above all, and how they run.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "kelo_utils/timer.h"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::expire;
using kelo::tests::kInAnHour;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::record_of;

class TimerCallback : public testing::Test {
 protected:
  void SetUp() override { kelo_timer_init(); }
};

struct Changing {
  explicit Changing(int (*change)(Changing&)) : change_(change) {
    info.value = milliseconds(1);
    info.cb = {[](void* self) { static_cast<Changing*>(self)->run(); }, this};
    EXPECT_EQ(kelo_timer_create(&info), 0);
    EXPECT_EQ(kelo_timer_start(&info), 0);
  }
  ~Changing() {
    if (info.state != TIMER_STATE_IDLE) kelo_timer_delete(&info);
    pass_worker();
  }
  Changing(const Changing&) = delete;
  Changing& operator=(const Changing&) = delete;

  kelo_timer_info info{};
  Calls results;

 private:
  void run() { results.add(change_(*this)); }

  int (*change_)(Changing&);
};

TEST_F(TimerCallback, StartsItsTimerAgain) {
  Changing timer([](Changing& self) { return self.results.count() < 4 ? kelo_timer_start(&self.info) : 0; });
  EXPECT_TRUE(timer.results.wait_for(5));
  pass_worker();
  EXPECT_EQ(timer.results.names(), std::vector<int>(5, 0));
  EXPECT_EQ(timer.info.state, TIMER_STATE_RUNNING);
}

TEST_F(TimerCallback, ArmsItsTimerAnew) {
  Changing timer([](Changing& self) {
    if (self.results.count() == 2) self.info.value = kInAnHour;
    return kelo_timer_settime(&self.info);
  });
  EXPECT_TRUE(timer.results.wait_for(3));
  pass_worker();
  EXPECT_EQ(timer.results.names(), (std::vector{0, 0, 0}));
  EXPECT_EQ(timer.info.state, TIMER_STATE_RUNNING);
}

TEST_F(TimerCallback, StopsItsTimer) {
  Changing timer([](Changing& self) { return kelo_timer_stop(&self.info); });
  EXPECT_TRUE(timer.results.wait_for(1));
  pass_worker();
  EXPECT_EQ(timer.results.names(), std::vector{0});
  EXPECT_EQ(timer.info.state, TIMER_STATE_STOPPED);
}

TEST_F(TimerCallback, DeletesAndCreatesItsTimer) {
  Changing timer([](Changing& self) {
    if (self.results.count() >= 4) return kelo_timer_delete(&self.info);
    return kelo_timer_delete(&self.info) + kelo_timer_create(&self.info) + kelo_timer_start(&self.info);
  });
  EXPECT_TRUE(timer.results.wait_for(5));
  pass_worker();
  EXPECT_EQ(timer.results.names(), std::vector<int>(5, 0));
  EXPECT_EQ(timer.info.state, TIMER_STATE_IDLE);
}

TEST_F(TimerCallback, LeavesItsExpiryToATimerItStartsAnew) {
  Calls calls;
  NamedTimer other(calls, 1, milliseconds(1));
  ASSERT_EQ(kelo_timer_create(&other.info), 0);
  struct Stopping {
    kelo_timer_info* other;
    Calls results{};
    void run() {
      EXPECT_EQ(kelo_timer_start(other), 0);
      while (kelo_timer_gettime(other) == 0 && other->value.tv_nsec != 0) continue;
      results.add(kelo_timer_stop(other));
    }
  } stopping{&other.info};
  kelo_timer_info record = record_of([](void* self) { static_cast<Stopping*>(self)->run(); }, &stopping);
  expire(&record);
  ASSERT_TRUE(stopping.results.wait_for(1));
  pass_worker();
  EXPECT_EQ(stopping.results.names(), std::vector{0});
  EXPECT_EQ(calls.count(), 1U) << "it had expired before it was stopped";
}

TEST_F(TimerCallback, SeesTheSignalBlockedAndNoOther) {
  static Calls blocked;
  static const auto look = [](void*) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
      if (sigismember(&mask, signal) == 1) blocked.add(signal);
    }
  };
  kelo_timer_info record = record_of(look, nullptr);
  for (std::size_t round = 1; round <= 2; ++round) {
    expire(&record);
    ASSERT_TRUE(blocked.wait_for(round));
  }
  pass_worker();
  EXPECT_EQ(blocked.names(), (std::vector{SIGUSR1, SIGUSR1}));
}

TEST_F(TimerCallback, IsNotInterruptedByExpiriesWhereItBlocks) {
  Calls calls;
  static Calls naps;
  NamedTimer timer(calls, 1, milliseconds(1), milliseconds(1));
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  kelo_timer_info record = record_of(
      [](void*) {
        constexpr timespec kNap{0, 50'000'000};
        naps.add(nanosleep(&kNap, nullptr) == -1 ? errno : 0);
      },
      nullptr);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  expire(&record);
  ASSERT_TRUE(naps.wait_for(1));
  EXPECT_EQ(naps.names(), std::vector{0});
}

}  // namespace
