// SPDX-License-Identifier: MIT
// What starts the timer service, and what becomes of it when a step fails. Each test is a process that has
// not started it yet.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/child_process.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/timer_faults.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::BlockedSignal;
using kelo::tests::Calls;
using kelo::tests::ChildEnd;
using kelo::tests::ChildResult;
using kelo::tests::expire;
using kelo::tests::Fault;
using kelo::tests::fork_bounded;
using kelo::tests::LogCapture;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::timer_calls;

constexpr char kInit[] = "oem_timer_init";

void in_fresh_process(const std::function<void()>& body) {
  const ChildResult child = kelo::tests::run_in_child(body);
  EXPECT_EQ(child.exit_status, 0) << child.standard_output << child.standard_error;
  EXPECT_EQ(child.signal, 0) << child.standard_output << child.standard_error;
}

int threads() { return timer_calls.threads; }

struct sigaction installed_action() {
  struct sigaction action {};
  EXPECT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
  return action;
}

bool handler_is_installed() { return installed_action().sa_handler != SIG_DFL; }

void expect_timers_to_work() {
  Calls calls;
  NamedTimer timer(calls, 1, milliseconds(1));
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  ASSERT_EQ(kelo_timer_start(&timer.info), 0);
  EXPECT_TRUE(calls.wait_for(1));
}

// Exactly these lines, each in the form "level function text".
void expect_lines(const LogCapture& log, const std::vector<std::string>& expected) {
  std::vector<std::string> lines;
  for (const auto& line : log.lines())
    lines.push_back(kelo::tests::level_name(line.level) + ' ' + line.function + ' ' + line.text);
  EXPECT_EQ(lines, expected);
}

const std::string kHandlerLine = "DBUG timer_sigaction_init timer handler init!\n";

TEST(TimerInit, StartsOneWorkerAndInstallsTheHandler) {
  in_fresh_process([] {
    const LogCapture log;
    const int before = threads();
    EXPECT_FALSE(handler_is_installed());
    kelo_timer_init();
    expect_lines(log, {kHandlerLine});
    EXPECT_EQ(threads(), before + 1);
    EXPECT_TRUE(handler_is_installed());
    expect_timers_to_work();
  });
}

TEST(TimerInit, SecondCallWarnsAndDoesNothing) {
  in_fresh_process([] {
    kelo_timer_init();
    const int before = threads();
    pthread_mutex_lock(&free_mutex);
    const LogCapture log;
    kelo_timer_init();
    expect_lines(log, {std::string("WRN ") + kInit + " oem_timer_init is already done\n"});
    EXPECT_EQ(threads(), before);
    EXPECT_EQ(pthread_mutex_trylock(&free_mutex), EBUSY);
    expect_timers_to_work();
  });
}

TEST(TimerInit, ActionHasSignalInformationAndNothingElse) {
  in_fresh_process([] {
    kelo_timer_init();
    const struct sigaction action = installed_action();
    constexpr int kRestorer = 0x04000000;  // the C library's own, where the machine needs it
    EXPECT_EQ(action.sa_flags & ~kRestorer, SA_SIGINFO);
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
      EXPECT_NE(sigismember(&action.sa_mask, signal), 1) << signal;
    }
  });
}

TEST(TimerInit, InitialisesTheMutexForOthers) {
  in_fresh_process([] {
    pthread_mutex_lock(&free_mutex);
    kelo_timer_init();
    EXPECT_EQ(pthread_mutex_trylock(&free_mutex), 0);
    EXPECT_EQ(pthread_mutex_trylock(&free_mutex), EBUSY) << "default attributes";
    expect_timers_to_work();
    EXPECT_EQ(pthread_mutex_unlock(&free_mutex), 0);
  });
}

TEST(TimerInit, NoThreadAttributesNothingStarted) {
  in_fresh_process([] {
    const LogCapture log;
    const int before = threads();
    {
      const Fault fault({"pthread_attr_init", ENOMEM});
      kelo_timer_init();
    }
    expect_lines(log, {std::string("ERR ") + kInit + " oem_timer_init init thread attribute failed\n"});
    EXPECT_EQ(threads(), before);
    EXPECT_FALSE(handler_is_installed());
    kelo_timer_init();
    EXPECT_EQ(log.lines().size(), 2U) << log.dump();
    expect_timers_to_work();
  });
}

TEST(TimerInit, GoesOnWithoutAnAttribute) {
  struct Step {
    std::string call;
    std::string text;
  };
  for (const Step& step :
       {Step{"pthread_attr_setstacksize", "oem_timer_init set stack size failed\n"},
        Step{"pthread_attr_setdetachstate", "oem_timer_init set setdetachstate failed\n"}}) {
    in_fresh_process([&] {
      const LogCapture log;
      const int before = threads();
      {
        const Fault fault({step.call, EINVAL});
        kelo_timer_init();
        EXPECT_EQ(fault.seen(), 1);
      }
      expect_lines(log, {std::string("ERR ") + kInit + ' ' + step.text, kHandlerLine});
      EXPECT_EQ(threads(), before + 1);
      expect_timers_to_work();
    });
  }
}

TEST(TimerInit, ExpiriesWaitForAWorkerThatStartsLater) {
  in_fresh_process([] {
    const LogCapture log;
    const int before = threads();
    {
      const Fault fault({"pthread_create", EAGAIN});
      kelo_timer_init();
    }
    expect_lines(log, {std::string("ERR ") + kInit + " oem_timer_init create thread failed\n", kHandlerLine});
    EXPECT_EQ(threads(), before);
    pthread_mutex_lock(&free_mutex);

    Calls calls;
    NamedTimer timer(calls, 1, milliseconds(1));
    {
      const BlockedSignal blocked;
      ASSERT_EQ(kelo_timer_create(&timer.info), 0);
      ASSERT_EQ(kelo_timer_start(&timer.info), 0);
      blocked.let_one_in();
    }
    NamedTimer by_hand(calls, 2);
    by_hand.info.magic = KELO_TIMER_MAGIC;
    expire(&by_hand.info);
    EXPECT_EQ(calls.count(), 0U);

    kelo_timer_init();
    EXPECT_EQ(log.count(LOG_LVL_WRN, "oem_timer_init is already done\n"), 0) << log.dump();
    EXPECT_EQ(threads(), before + 1);
    pass_worker();
    EXPECT_EQ(calls.names(), (std::vector{1, 2}));
    EXPECT_EQ(pthread_mutex_trylock(&free_mutex), EBUSY) << "it belongs to others by now";
    // The timer of that time still finds the worker.
    ASSERT_EQ(kelo_timer_start(&timer.info), 0);
    EXPECT_TRUE(calls.wait_for(3));
    expect_timers_to_work();
    kelo_timer_init();
    EXPECT_EQ(log.count(LOG_LVL_WRN, kInit, "oem_timer_init is already done\n"), 1) << log.dump();
  });
}

TEST(TimerInit, LogsAHandlerThatCannotBeInstalled) {
  in_fresh_process([] {
    const LogCapture log;
    const int before = threads();
    {
      const Fault fault({"sigaction", EINVAL});
      kelo_timer_init();
      EXPECT_EQ(fault.seen(), 1);
    }
    expect_lines(log, {kHandlerLine, "ERR timer_sigaction_init failed to sigaction SIGUSR1\n"});
    EXPECT_EQ(threads(), before + 1);
    EXPECT_FALSE(handler_is_installed());
  });
}

TEST(TimerInit, AttributesAreDestroyedOnce) {
  in_fresh_process([] {
    const Fault count({.call = "pthread_attr_destroy", .at = kelo::tests::kNever});
    kelo_timer_init();
    EXPECT_EQ(count.seen(), 1);
  });
}

TEST(TimerInit, WorksWhereEveryThreadBlocksEverySignal) {
  in_fresh_process([] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::thread([] { kelo_timer_init(); }).join();
    expect_timers_to_work();
  });
}

// The child of a daemon has neither its worker nor its timers. The parent of these tests has no worker
// either, so that any tool follows the fork.
void install_handler_alone() {
  const Fault fault({"pthread_create", EAGAIN});
  kelo_timer_init();
}

TEST(TimerInit, ForkedChildStartsItsOwn) {
  in_fresh_process([] {
    install_handler_alone();
    Calls calls;
    NamedTimer timer(calls, 1, milliseconds(1));
    timer.info.magic = KELO_TIMER_MAGIC;
    NamedTimer left_behind(calls, 2);
    left_behind.info.magic = KELO_TIMER_MAGIC;
    pthread_mutex_lock(&free_mutex);
    expire(&left_behind.info);
    expire(&timer.info);
    in_fresh_process([&] {
      const LogCapture log;
      kelo_timer_init();
      expect_lines(log, {kHandlerLine});
      EXPECT_EQ(pthread_mutex_trylock(&free_mutex), 0);
      ASSERT_EQ(kelo_timer_create(&timer.info), 0);
      ASSERT_EQ(kelo_timer_start(&timer.info), 0);
      EXPECT_TRUE(calls.wait_for(1));
      pass_worker();
      EXPECT_EQ(calls.names(), std::vector{1}) << "what waited in the parent is none of the child's";
    });
    kelo_timer_init();
    EXPECT_TRUE(calls.wait_for(2));
    EXPECT_EQ(calls.names(), (std::vector{2, 1}));
  });
}

TEST(TimerInit, ForkedChildLeavesRefusalsToItsParent) {
  in_fresh_process([] {
    install_handler_alone();
    auto* const lost = static_cast<kelo_timer_info*>(std::calloc(1, sizeof(kelo_timer_info)));
    ASSERT_NE(lost, nullptr);
    kelo_timer_info wrong{};
    wrong.cb.handler = [](void*) { FAIL(); };
    expire(&wrong);
    expire(lost);
    in_fresh_process([&] {
      const LogCapture log;
      kelo_timer_init();
      wrong.magic = 9;
      expire(&wrong);
      pass_worker();
      EXPECT_EQ(log.lines().size(), 2U) << log.dump();
      EXPECT_EQ(log.count(LOG_LVL_INFO, "timer_sigaction_handler oem Q error:0x9\n"), 1) << log.dump();
      std::free(lost);
    });
    const LogCapture log;
    kelo_timer_init();
    pass_worker();
    EXPECT_EQ(log.lines().size(), 3U) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_INFO, "timer_sigaction_handler oem Q error:0x0\n"), 1) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_ERR, "timer_sigaction_handler cb handler is NULL!!!!!\n"), 1) << log.dump();
  });
}

// The child cannot send expiries to its parent's worker.
TEST(TimerInit, ForkedChildCreatesTimersBeforeItStartsItsOwn) {
  in_fresh_process([] {
    kelo_timer_init();
    EXPECT_EQ(fork_bounded([] {
                kelo_timer_info info{};
                info.cb.handler = [](void*) {};
                return kelo_timer_create(&info) == 0 && kelo_timer_delete(&info) == 0;
              }),
              ChildEnd::good);
  });
}

}  // namespace
