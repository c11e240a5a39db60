// SPDX-License-Identifier: MIT
// The way from an expiry to its callback: order, coalescing, and whose signals count.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sanitized.hpp"
#include "tests/support/thread_signal.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

// Set while a call of the library is to leave an errno of its own.
std::atomic<bool> getpid_sets_errno{false};

// How often the worker slept, and how often with SIGUSR1 let in.
std::atomic<int> sleeps{0};
std::atomic<int> sleeps_with_the_signal_let_in{0};

}  // namespace

extern "C" {

// The C library's own declarations have reserved parameter names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
int sigwaitinfo(const sigset_t* set, siginfo_t* signal) {
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  if (sigismember(&mask, SIGUSR1) == 0) ++sleeps_with_the_signal_let_in;
  ++sleeps;
  return sigtimedwait(set, signal, nullptr);
}

pid_t getpid() {
  if (getpid_sets_errno) errno = ESRCH;
  return static_cast<pid_t>(syscall(SYS_getpid));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

#if KELO_THREAD_SANITIZER
// A child of a process with threads starts a worker here.
const char* __tsan_default_options() { return "die_after_fork=0"; }
#endif

}  // extern "C"

namespace {

using kelo::tests::Calls;
using kelo::tests::ChildEnd;
using kelo::tests::expire;
using kelo::tests::fork_bounded;
using kelo::tests::HeldWorker;
using kelo::tests::LogCapture;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::record_of;
using kelo::tests::wait_until;

class TimerService : public testing::Test {
 protected:
  void SetUp() override { kelo_timer_init(); }

  Calls calls;
};

// A record that is called for expiries sent by hand.
class HandSent : public NamedTimer {
 public:
  HandSent(Calls& calls, int name) : NamedTimer(calls, name) { info.magic = KELO_TIMER_MAGIC; }
};

// --- Order ---

TEST_F(TimerService, CallbacksRunOnOneThreadOfTheirOwn) {
  static Calls threads;
  std::array<kelo_timer_info, 3> records{};
  for (kelo_timer_info& record : records) {
    record.value = milliseconds(1);
    record.interval = milliseconds(1);
    record.cb = {[](void*) { threads.add(gettid()); }, nullptr};
    ASSERT_EQ(kelo_timer_create(&record), 0);
    ASSERT_EQ(kelo_timer_start(&record), 0);
  }
  EXPECT_TRUE(threads.wait_for(20));
  for (kelo_timer_info& record : records) ASSERT_EQ(kelo_timer_delete(&record), 0);
  pass_worker();
  const auto names = threads.names();
  const std::set<int> distinct(names.begin(), names.end());
  EXPECT_EQ(distinct.size(), 1U);
  EXPECT_EQ(distinct.count(gettid()), 0U);
}

// Each is started later than the one before and runs longer, so that no load changes their order.
TEST_F(TimerService, CallbacksFollowTheOrderOfExpiry) {
  constexpr int kTimers = 6;
  constexpr std::array<int, kTimers> kOrder = {3, 5, 0, 4, 2, 1};
  std::vector<std::unique_ptr<NamedTimer>> timers;
  for (int name = 0; name < kTimers; ++name) {
    timers.push_back(std::make_unique<NamedTimer>(calls, name));
    ASSERT_EQ(kelo_timer_create(&timers.back()->info), 0);
  }
  HeldWorker worker;
  int delay = 10;
  for (const int name : kOrder) {
    kelo_timer_info& info = timers[static_cast<std::size_t>(name)]->info;
    info.value = milliseconds(delay += 5);
    ASSERT_EQ(kelo_timer_start(&info), 0);
  }
  for (const auto& timer : timers) {
    ASSERT_TRUE(wait_until([&] { return !timer->is_armed(); }));
  }
  EXPECT_EQ(calls.count(), 0U);
  worker.release();
  ASSERT_TRUE(calls.wait_for(kTimers));
  EXPECT_EQ(calls.names(), std::vector<int>(kOrder.begin(), kOrder.end()));
}

TEST_F(TimerService, OrderHoldsForExpiriesThatOtherThreadsTake) {
  HandSent a(calls, 1);
  HandSent b(calls, 2);
  HandSent c(calls, 3);
  HeldWorker worker;
  for (HandSent* record : {&b, &c, &a}) std::thread([&] { expire(&record->info); }).join();
  worker.release();
  ASSERT_TRUE(calls.wait_for(3));
  EXPECT_EQ(calls.names(), (std::vector{2, 3, 1}));
}

TEST_F(TimerService, NoWakeUpIsLost) {
  constexpr std::size_t kRounds = 2000;
  HandSent record(calls, 1);
  for (std::size_t round = 1; round <= kRounds; ++round) {
    expire(&record.info);
    ASSERT_TRUE(calls.wait_for(round));
  }
}

// An expiry that the handler took between a look at what waits and the sleep after it would wake no thread.
TEST_F(TimerService, WorkerSleepsWithTheSignalBlocked) {
  ASSERT_TRUE(wait_until([] { return sleeps > 0; }));
  HandSent record(calls, 1);
  for (std::size_t round = 1; round <= 10; ++round) {
    const int before = sleeps;
    expire(&record.info);
    ASSERT_TRUE(calls.wait_for(round));
    ASSERT_TRUE(wait_until([&] { return sleeps > before; }));
  }
  EXPECT_EQ(sleeps_with_the_signal_let_in, 0);
}

TEST_F(TimerService, InterruptsNoThreadOfTheDaemon) {
  NamedTimer timer(calls, 1, milliseconds(1), milliseconds(1));
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  constexpr timespec kNap{0, 50'000'000};
  EXPECT_EQ(nanosleep(&kNap, nullptr), 0);
  EXPECT_TRUE(calls.wait_for(3));
}

// --- Coalescing ---

// A periodic timer that stops itself when it is called. Its period is long enough for the worker to come from the expiry
// to that stop, in an emulator too.
struct SelfStopping {
  SelfStopping() {
    info.value = info.interval = milliseconds(30);
    info.cb = {[](void* self) { static_cast<SelfStopping*>(self)->run(); }, this};
    EXPECT_EQ(kelo_timer_create(&info), 0);
  }
  ~SelfStopping() {
    EXPECT_EQ(kelo_timer_delete(&info), 0);
    pass_worker();
  }
  SelfStopping(const SelfStopping&) = delete;
  SelfStopping& operator=(const SelfStopping&) = delete;

  kelo_timer_info info{};
  Calls calls;

 private:
  void run() {
    kelo_timer_stop(&info);
    calls.add(1);
  }
};

TEST_F(TimerService, WaitingTimerIsCalledOnce) {
  SelfStopping timer;
  {
    const HeldWorker worker;
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
    constexpr timespec kManyPeriods{0, 150'000'000};
    nanosleep(&kManyPeriods, nullptr);
    EXPECT_EQ(timer.calls.count(), 0U);
  }
  EXPECT_EQ(timer.calls.count(), 1U);
}

// Its second expiry pends when the worker comes to the first.
TEST_F(TimerService, TimerThatExpiresAgainWhileOthersAreCalledIsCalledOnce) {
  SelfStopping timer;
  struct Slow {
    kelo_timer_info* other;
    kelo_timer_info record = record_of([](void* self) { static_cast<Slow*>(self)->run(); }, this);
    void run() const {
      constexpr timespec kManyPeriods{0, 150'000'000};
      EXPECT_EQ(kelo_timer_start(other), 0);
      expire(other);
      nanosleep(&kManyPeriods, nullptr);
    }
  } slow{&timer.info};
  expire(&slow.record);
  ASSERT_TRUE(timer.calls.wait_for(1));
  pass_worker();
  EXPECT_EQ(timer.calls.count(), 1U);
}

// The drain of what pends, which a callback's start of a timer does, has to end, too.
TEST_F(TimerService, PeriodTooShortToServeDelaysNoOtherTimer) {
  for (const std::int32_t period : {1, 100, 2000}) {
    NamedTimer storm(calls, 0, {0, period}, {0, period});
    Calls beats;
    NamedTimer beat(beats, 1, milliseconds(1), milliseconds(1));
    Calls starts;
    struct Starting {
      Calls& starts;
      kelo_timer_info info{};
      void run() {
        kelo_timer_start(&info);
        starts.add(2);
      }
    } starting{starts};
    starting.info.value = milliseconds(1);
    starting.info.cb = {[](void* self) { static_cast<Starting*>(self)->run(); }, &starting};
    for (kelo_timer_info* info : {&storm.info, &beat.info, &starting.info}) {
      ASSERT_EQ(kelo_timer_create(info), 0);
      ASSERT_EQ(kelo_timer_start(info), 0);
    }
    const std::size_t before = calls.count();
    EXPECT_TRUE(beats.wait_for(50)) << period;
    EXPECT_TRUE(starts.wait_for(50)) << period;
    EXPECT_GE(calls.count(), before + 50) << period;
    for (kelo_timer_info* info : {&storm.info, &beat.info, &starting.info}) {
      EXPECT_EQ(kelo_timer_delete(info), 0);
    }
    pass_worker();
  }
}

TEST_F(TimerService, WaitingTimerKeepsItsPlace) {
  HandSent a(calls, 1);
  HandSent b(calls, 2);
  {
    const HeldWorker worker;
    for (HandSent* record : {&a, &b, &a, &a, &b}) expire(&record->info);
  }
  EXPECT_EQ(calls.names(), (std::vector{1, 2}));
}

TEST_F(TimerService, CopyOfAWaitingRecordDoesNotWait) {
  HandSent original(calls, 1);
  HandSent copy(calls, 2);
  {
    const HeldWorker worker;
    expire(&original.info);
    copy.info.link = original.info.link;
    expire(&copy.info);
  }
  EXPECT_EQ(calls.names(), (std::vector{1, 2}));
}

TEST_F(TimerService, ExpiryDuringItsCallbackRunsItOnceMore) {
  struct Again {
    Calls calls;
    kelo_timer_info record = record_of([](void* self) { static_cast<Again*>(self)->run(); }, this);
    void run() {
      if (calls.count() == 0) {
        for (int i = 0; i < 3; ++i) expire(&record);
      }
      calls.add(1);
    }
  } again;
  expire(&again.record);
  ASSERT_TRUE(again.calls.wait_for(2));
  pass_worker();
  EXPECT_EQ(again.calls.count(), 2U);
}

TEST_F(TimerService, ExpiryDuringTheCallbackOfATimerBeforeItIsNotLost) {
  HandSent later(calls, 2);
  struct First {
    Calls& calls;
    kelo_timer_info& later;
    kelo_timer_info record = record_of([](void* self) { static_cast<First*>(self)->run(); }, this);
    void run() {
      calls.add(1);
      expire(&later);
    }
  } first{calls, later.info};
  {
    const HeldWorker worker;
    expire(&first.record);
    expire(&later.info);
  }
  EXPECT_EQ(calls.names(), (std::vector{1, 2})) << "the second was waiting still";
}

// --- Whose signals count ---

TEST_F(TimerService, SignalOfTheProcessItselfIsAnExpiry) {
  HandSent record(calls, 1);
  // The thread sanitizer does not know that a signal orders what comes before it.
  __atomic_store_n(&record.info.state, TIMER_STATE_IDLE, __ATOMIC_RELEASE);
  sigval value{};
  value.sival_ptr = &record.info;
  ASSERT_EQ(sigqueue(getpid(), SIGUSR1, value), 0);
  EXPECT_TRUE(calls.wait_for(1));
}

TEST_F(TimerService, SignalWithoutARecordIsIgnored) {
  const LogCapture log;
  for (const bool worker_takes_it : {false, true}) {
    HeldWorker worker;
    if (worker_takes_it) worker.release();
    expire(nullptr);
    ASSERT_EQ(sigqueue(getpid(), SIGUSR1, sigval{}), 0);
    ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
    ASSERT_EQ(raise(SIGUSR1), 0);
  }
  pass_worker();
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(TimerService, SignalsOfOtherProcessesAreIgnored) {
  const LogCapture log;
  HandSent record(calls, 1);
  for (const bool worker_takes_it : {false, true}) {
    HeldWorker worker;
    if (worker_takes_it) worker.release();
    EXPECT_EQ(fork_bounded([&] {
                sigval value{};
                value.sival_ptr = &record.info;
                return sigqueue(getppid(), SIGUSR1, value) == 0;
              }),
              ChildEnd::good);
    EXPECT_EQ(fork_bounded([] { return kill(getppid(), SIGUSR1) == 0; }), ChildEnd::good);
  }
  pass_worker();
  EXPECT_EQ(calls.count(), 0U);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(TimerService, HandlerIgnoresOtherSignals) {
  struct sigaction action {};
  ASSERT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
  HandSent record(calls, 1);
  siginfo_t signal{};
  signal.si_code = SI_TIMER;
  signal.si_value.sival_ptr = &record.info;
  action.sa_sigaction(SIGUSR2, &signal, nullptr);
  pass_worker();
  EXPECT_EQ(calls.count(), 0U);
  action.sa_sigaction(SIGUSR1, &signal, nullptr);
  EXPECT_TRUE(calls.wait_for(1));
}

TEST_F(TimerService, HandlerKeepsErrno) {
  HandSent record(calls, 1);
  pass_worker();
  getpid_sets_errno = true;
  errno = EXDEV;
  const int result = kelo::tests::queue_signal(gettid(), SIGUSR1, &record.info);
  const int after = errno;
  getpid_sets_errno = false;
  ASSERT_EQ(result, 0);
  EXPECT_EQ(after, EXDEV);
  EXPECT_TRUE(calls.wait_for(1));
}

TEST_F(TimerService, ForkedChildIsCalledForARecordThatWaitedInItsParent) {
  HandSent waiting(calls, 1);
  HandSent left_behind(calls, 2);
  {
    const HeldWorker worker;
    expire(&left_behind.info);
    expire(&waiting.info);
    EXPECT_EQ(fork_bounded([&] {
                kelo_timer_init();
                waiting.info.value = milliseconds(1);
                return kelo_timer_create(&waiting.info) == 0 && kelo_timer_start(&waiting.info) == 0 &&
                       calls.wait_for(1) && calls.names() == std::vector{1};
              }),
              ChildEnd::good);
  }
  EXPECT_EQ(calls.names(), (std::vector{2, 1}));
}

}  // namespace
