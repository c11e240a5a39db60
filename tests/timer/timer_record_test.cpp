// SPDX-License-Identifier: MIT
// The life of a timer's record: when it is not read any more, so that it may be freed or used again.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kelo_utils/timer.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::expire;
using kelo::tests::HeldWorker;
using kelo::tests::kInAnHour;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::record_of;
using kelo::tests::wait_until;

constexpr kelo_timer_span kTenthOfAMillisecond{0, 100'000};

class TimerRecordLife : public testing::Test {
 protected:
  void SetUp() override { kelo_timer_init(); }

  Calls calls;
};

// A record on the heap: a look into it after its end is an error that the address sanitizer reports.
struct Mortal {
  explicit Mortal(kelo_timer_span interval) {
    info.value = kTenthOfAMillisecond;
    info.interval = interval;
    info.cb = {[](void* self) { static_cast<Mortal*>(self)->end(); }, this};
    EXPECT_EQ(kelo_timer_create(&info), 0);
  }
  void end() {
    const int result = kelo_timer_delete(&info);
    delete this;
    ended.add(result);
  }

  kelo_timer_info info{};

  static inline Calls ended;
};

TEST_F(TimerRecordLife, EndsInItsOwnCallback) {
  constexpr std::size_t kRounds = 200;
  for (const kelo_timer_span interval : {kelo_timer_span{}, kTenthOfAMillisecond, kelo_timer_span{0, 1}}) {
    const std::size_t before = Mortal::ended.count();
    for (std::size_t round = 1; round <= kRounds; ++round) {
      ASSERT_EQ(kelo_timer_start(&(new Mortal(interval))->info), 0);
      if (round % 4 != 0) continue;
      ASSERT_TRUE(Mortal::ended.wait_for(before + round));
    }
  }
  pass_worker();
  EXPECT_EQ(Mortal::ended.names(), std::vector<int>(3 * kRounds, 0));
}

// Expiries of a timer that a callback deletes came while that callback ran, or wait since before.
TEST_F(TimerRecordLife, EndsInTheCallbackOfAnotherTimer) {
  struct Ending {
    std::vector<std::unique_ptr<NamedTimer>> others;
    Calls done;
    kelo_timer_info record = record_of([](void* self) { static_cast<Ending*>(self)->run(); }, this);
    void run() {
      constexpr timespec kManyPeriods{0, 1'000'000};
      for (const auto& other : others) expire(&other->info);
      nanosleep(&kManyPeriods, nullptr);
      for (auto& other : others) {
        EXPECT_EQ(kelo_timer_delete(&other->info), 0);
        other.reset();
      }
      done.add(0);
    }
  };
  for (int round = 0; round < 20; ++round) {
    Ending ending;
    for (int name = 0; name < 5; ++name) {
      ending.others.push_back(
          std::make_unique<NamedTimer>(calls, name, kTenthOfAMillisecond, kTenthOfAMillisecond));
      ASSERT_EQ(kelo_timer_create(&ending.others.back()->info), 0);
    }
    HeldWorker worker;
    for (const auto& other : ending.others) ASSERT_EQ(kelo_timer_start(&other->info), 0);
    expire(&ending.record);
    const std::size_t before = calls.count();
    worker.release();
    ASSERT_TRUE(ending.done.wait_for(1));
    pass_worker();
    EXPECT_LE(calls.count(), before + 5) << "at most those before it";
  }
}

TEST_F(TimerRecordLife, DeleteInAnotherThreadTakesBackWhatWaits) {
  std::vector<std::unique_ptr<NamedTimer>> timers;
  for (int name = 0; name < 5; ++name) {
    timers.push_back(std::make_unique<NamedTimer>(calls, name, milliseconds(1), milliseconds(1)));
    ASSERT_EQ(kelo_timer_create(&timers.back()->info), 0);
  }
  {
    const HeldWorker worker;
    for (const auto& timer : timers) {
      ASSERT_EQ(kelo_timer_start(&timer->info), 0);
      expire(&timer->info);
    }
    constexpr timespec kManyPeriods{0, 5'000'000};
    nanosleep(&kManyPeriods, nullptr);
    for (const std::size_t gone : {0U, 2U, 4U}) {
      ASSERT_EQ(kelo_timer_delete(&timers[gone]->info), 0);
      timers[gone].reset();
    }
  }
  ASSERT_TRUE(calls.wait_for(4));
  for (const int name : calls.names()) EXPECT_EQ(name % 2, 1);
}

TEST_F(TimerRecordLife, DeletedRecordIsNotCalledForItsLifeBefore) {
  NamedTimer timer(calls, 1, milliseconds(1));
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  {
    const HeldWorker worker;
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
    ASSERT_TRUE(wait_until([&] { return !timer.is_armed(); }));
    expire(&timer.info);
    ASSERT_EQ(kelo_timer_delete(&timer.info), 0);
    timer.info.value = kInAnHour;
    ASSERT_EQ(kelo_timer_create(&timer.info), 0);
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  }
  EXPECT_EQ(calls.count(), 0U);
}

// As kernels do that deliver what pended for a timer when it was deleted.
void send_stale_expiry(int worker, int system_timer, kelo_timer_info* record) {
  siginfo_t signal{};
  signal.si_signo = SIGUSR1;
  signal.si_code = SI_TIMER;
  signal.si_timerid = system_timer;
  signal.si_value.sival_ptr = record;
  ASSERT_EQ(syscall(SYS_rt_tgsigqueueinfo, getpid(), worker, SIGUSR1, &signal), 0);
}

TEST_F(TimerRecordLife, ExpiryThatPendsAfterTheDeleteIsForgotten) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << "the emulator numbers timers in another way than their signals";
  static std::atomic<int> worker{0};
  Calls known;
  kelo_timer_info look = record_of(
      [](void* arg) {
        worker = gettid();
        static_cast<Calls*>(arg)->add(0);
      },
      &known);
  expire(&look);
  ASSERT_TRUE(known.wait_for(1));
  for (const bool asleep : {false, true}) {
    auto timer = std::make_unique<NamedTimer>(calls, 1);
    ASSERT_EQ(kelo_timer_create(&timer->info), 0);
    const auto system_timer = static_cast<int>(reinterpret_cast<std::intptr_t>(timer->info.timer_id));
    kelo_timer_info* const record = &timer->info;
    HeldWorker held;
    if (asleep) {
      held.release();
      pass_worker();
    }
    ASSERT_EQ(kelo_timer_delete(record), 0);
    timer.reset();
    send_stale_expiry(worker, system_timer, record);
    held.release();
    pass_worker();
  }
  EXPECT_EQ(calls.count(), 0U);
}

// What the header says: the callback of a timer that was started after the delete comes when no callback of the
// deleted one runs any more.
TEST_F(TimerRecordLife, EndsWithTheCallbackOfATimerStartedAfterTheDelete) {
  struct Used {
    std::atomic<int> value{0};
  };
  for (int round = 0; round < 100; ++round) {
    auto used = std::make_unique<Used>();
    auto record = std::make_unique<kelo_timer_info>();
    record->value = record->interval = kTenthOfAMillisecond;
    record->cb = {[](void* arg) {
                    for (int i = 0; i < 100; ++i) ++static_cast<Used*>(arg)->value;
                  },
                  used.get()};
    ASSERT_EQ(kelo_timer_create(record.get()), 0);
    ASSERT_EQ(kelo_timer_start(record.get()), 0);
    ASSERT_TRUE(wait_until([&] { return used->value > round % 3; }));
    ASSERT_EQ(kelo_timer_delete(record.get()), 0);
    record.reset();
    NamedTimer barrier(calls, 1, {0, 1});
    ASSERT_EQ(kelo_timer_create(&barrier.info), 0);
    ASSERT_EQ(kelo_timer_start(&barrier.info), 0);
    ASSERT_TRUE(calls.wait_for(static_cast<std::size_t>(round) + 1));
  }
}

// A forked child that has not started the service deletes a timer of its own while its parent's worker may have
// been anywhere.
TEST_F(TimerRecordLife, OneOfAForkedChildIsDeletedWithoutTheService) {
  NamedTimer storm(calls, 1, {0, 1}, {0, 1});
  ASSERT_EQ(kelo_timer_create(&storm.info), 0);
  ASSERT_EQ(kelo_timer_start(&storm.info), 0);
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(kelo::tests::fork_bounded([] {
                kelo_timer_info info{};
                info.cb.handler = [](void*) {};
                return kelo_timer_create(&info) == 0 && kelo_timer_delete(&info) == 0;
              }),
              kelo::tests::ChildEnd::good);
  }
}

}  // namespace
