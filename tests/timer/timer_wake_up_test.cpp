// SPDX-License-Identifier: MIT
// How a signal handler in a thread of the daemon wakes the worker. Each test is a process of its own.
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

#include "kelo_utils/timer.h"
#include "tests/support/emulation.hpp"
#include "tests/support/fault.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::expire;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::record_of;
using kelo::tests::wait_until;

std::atomic<bool> no_timers_for_the_worker{false};
std::atomic<bool> holds_before_the_wait{false};
Calls worker_held;
Calls worker_released;

// The worker waits here after it found no expiry, and before it asks for the next signal.
void hold_worker() {
  if (!holds_before_the_wait.exchange(false)) return;
  worker_held.add(gettid());
  (void)worker_released.wait_for(1);
}

bool pends(pid_t thread, int signal) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("SigPnd:"))
      return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0;
  }
  return false;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int sigwaitinfo(const sigset_t* set, siginfo_t* signal) {
  static const auto real = kelo::tests::next_call("sigwaitinfo", sigwaitinfo);
  hold_worker();
  return real(set, signal);
}

int timer_create(clockid_t clock, sigevent* notification, timer_t* timer) noexcept {
  static const auto real = kelo::tests::next_call("timer_create", timer_create);
  if (no_timers_for_the_worker) {
    errno = EAGAIN;
    return -1;
  }
  return real(clock, notification, timer);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

// Kernels from 6.13 on drop the signal of a timer that was stopped while its signal was pending, at the moment when the
// worker would receive it.
TEST(TimerWakeUp, IsNotLostWithTheSignalOfAStoppedTimer) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << "the emulator keeps pending signals to itself";
  kelo_timer_init();
  pass_worker();
  Calls calls;
  NamedTimer stopped(calls, 1, milliseconds(1));
  kelo_timer_info record = record_of(
      [](void* of_record) {
        static_cast<Calls*>(of_record)->add(2);
        holds_before_the_wait = static_cast<Calls*>(of_record)->count() == 1;
      },
      &calls);
  ASSERT_EQ(kelo_timer_create(&stopped.info), 0);
  expire(&record);
  ASSERT_TRUE(worker_held.wait_for(1));
  ASSERT_EQ(calls.names(), std::vector{2});
  ASSERT_EQ(kelo_timer_start(&stopped.info), 0);
  ASSERT_TRUE(wait_until([] { return pends(worker_held.names().at(0), SIGUSR1); }));
  ASSERT_EQ(kelo_timer_stop(&stopped.info), 0);
  expire(&record);
  worker_released.add(0);
  EXPECT_TRUE(wait_until([&calls] { return calls.names().back() == 2 && calls.count() > 1; }));
}

TEST(TimerWakeUp, IsASignalWhereTheWorkerGetsNoTimer) {
  no_timers_for_the_worker = true;
  kelo_timer_init();
  no_timers_for_the_worker = false;
  for (int round = 0; round < 100; ++round) pass_worker();
  Calls calls;
  NamedTimer timer(calls, 1, milliseconds(1));
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  EXPECT_TRUE(calls.wait_for(1));
}

// Signals whose values are no records are ignored.
TEST(TimerWakeUp, ByAnotherSenderCallsNothing) {
  kelo_timer_init();
  for (const std::uintptr_t value : {std::uintptr_t{0}, std::uintptr_t{1}}) {
    expire(reinterpret_cast<kelo_timer_info*>(value));
    pass_worker();
  }
}

}  // namespace
