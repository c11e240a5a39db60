// SPDX-License-Identifier: MIT
// The timer service in daemons that do as they like with signals. Each test is a process that has not started the
// service yet.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/timer.h"
#include "tests/support/child_process.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::wait_until;

void in_fresh_process(const std::function<void()>& body) {
  const kelo::tests::ChildResult child = kelo::tests::run_in_child(body);
  EXPECT_EQ(child.exit_status, 0) << child.standard_output << child.standard_error;
  EXPECT_EQ(child.signal, 0) << child.standard_output << child.standard_error;
}

sigset_t set_of(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

void set_action(void (*action)(int)) {
  struct sigaction of_daemon {};
  of_daemon.sa_handler = action;
  ASSERT_EQ(sigaction(SIGUSR1, &of_daemon, nullptr), 0);
}

// One-shot timers of which the first keeps the worker while the others expire.
void expect_expiries_during_a_callback_to_be_called() {
  constexpr int kOthers = 20;
  Calls calls;
  kelo_timer_info slow{};
  slow.value = milliseconds(1);
  slow.cb.handler = [](void*) {
    constexpr timespec kUntilTheOthersAreDue{0, 50'000'000};
    nanosleep(&kUntilTheOthersAreDue, nullptr);
  };
  std::deque<NamedTimer> others;
  ASSERT_EQ(kelo_timer_create(&slow), 0);
  ASSERT_EQ(kelo_timer_start(&slow), 0);
  for (int i = 0; i < kOthers; ++i) {
    NamedTimer& other = others.emplace_back(calls, i, milliseconds(3 + i));
    ASSERT_EQ(kelo_timer_create(&other.info), 0);
    ASSERT_EQ(kelo_timer_start(&other.info), 0);
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (calls.count() < kOthers && std::chrono::steady_clock::now() < end) usleep(1000);
  EXPECT_EQ(calls.count(), std::size_t{kOthers});
  EXPECT_EQ(kelo_timer_delete(&slow), 0);
  for (NamedTimer& other : others) EXPECT_EQ(kelo_timer_delete(&other.info), 0);
}

TEST(TimerSignals, ActionOfTheDaemonCostsNoExpiry) {
  for (void (*const action)(int) : {+[](int) {}, SIG_IGN, SIG_DFL}) {
    in_fresh_process([action] {
      kelo_timer_init();
      set_action(action);
      expect_expiries_during_a_callback_to_be_called();
    });
  }
}

TEST(TimerSignals, ActionFromBeforeTheStartCostsNoExpiry) {
  for (void (*const action)(int) : {+[](int) {}, SIG_IGN}) {
    in_fresh_process([action] {
      set_action(action);
      kelo_timer_init();
      expect_expiries_during_a_callback_to_be_called();
    });
  }
}

TEST(TimerSignals, BlockedOnesCostNoExpiry) {
  for (const bool before : {false, true}) {
    in_fresh_process([before] {
      sigset_t all;
      sigfillset(&all);
      if (before) pthread_sigmask(SIG_BLOCK, &all, nullptr);
      kelo_timer_init();
      pthread_sigmask(SIG_BLOCK, &all, nullptr);
      expect_expiries_during_a_callback_to_be_called();
    });
  }
}

// What a thread of this process blocks at the moment.
std::uint64_t blocked_signals(pid_t thread) {
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("SigBlk:")) return std::stoull(line.substr(7), nullptr, 16);
  }
  return 0;
}

pid_t worker_thread() {
  static Calls worker;
  kelo_timer_info record = kelo::tests::record_of([](void*) { worker.add(gettid()); }, nullptr);
  kelo::tests::expire(&record);
  EXPECT_TRUE(worker.wait_for(1));
  pass_worker();
  return worker.names().at(0);
}

TEST(TimerSignals, SleepingWorkerLeavesThoseBlockedLaterToASignalDescriptor) {
  in_fresh_process([] {
    kelo_timer_init();
    const pid_t worker = worker_thread();
    const sigset_t ends = set_of({SIGTERM, SIGINT, SIGHUP, SIGALRM});
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    const int descriptor = signalfd(-1, &ends, SFD_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    const auto is_asleep = [worker] { return (blocked_signals(worker) >> (SIGCHLD - 1) & 1U) != 0; };
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGALRM}) {
      ASSERT_TRUE(wait_until(is_asleep));
      ASSERT_EQ(kill(getpid(), signal), 0);
      signalfd_siginfo taken{};
      ASSERT_EQ(read(descriptor, &taken, sizeof taken), static_cast<ssize_t>(sizeof taken));
      EXPECT_EQ(taken.ssi_signo, static_cast<unsigned>(signal));
    }
    expect_expiries_during_a_callback_to_be_called();
    close(descriptor);
  });
}

TEST(TimerSignals, CallbackBlocksWhatTheCallerOfInitBlocked) {
  in_fresh_process([] {
    static Calls blocked;
    const sigset_t ends = set_of({SIGTERM, SIGINT});
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    kelo_timer_init();
    kelo_timer_info record = kelo::tests::record_of(
        [](void*) {
          const std::uint64_t mask = blocked_signals(gettid());
          for (int signal = 1; signal < 32; ++signal) {
            if ((mask >> (signal - 1) & 1U) != 0) blocked.add(signal);
          }
        },
        nullptr);
    kelo::tests::expire(&record);
    pass_worker();
    EXPECT_EQ(blocked.names(), (std::vector{SIGINT, SIGUSR1, SIGTERM}));
  });
}

TEST(TimerSignals, ServiceWorksWithoutStandardStreamsAndTakesNoDescriptor) {
  in_fresh_process([] {
    const int saved = dup(STDERR_FILENO);
    for (const int stream : {0, 1, 2}) close(stream);
    const std::set<std::string> before = kelo::tests::open_descriptors();
    kelo_timer_init();
    expect_expiries_during_a_callback_to_be_called();
    const bool same = kelo::tests::open_descriptors() == before;
    dup2(saved, STDERR_FILENO);
    EXPECT_TRUE(same);
  });
}

}  // namespace
