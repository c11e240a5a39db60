// SPDX-License-Identifier: MIT
// A supervised command when the system calls under it fail.
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools.hpp"
#include "tests/support/process_faults.hpp"
#include "tests/support/supervised_run.hpp"

namespace {

using kelo::tests::Clock;
using kelo::tests::Fault;
using kelo::tests::seconds_since;

constexpr auto& kStage = kelo::tests::kSupervisedStage;

class SupervisedFaults : public kelo::tests::SupervisedRun {
 protected:
  int run(const std::string& command) {
    output = {"preset"};
    return kelo_ds_system_call3(command.c_str(), 0, output.data(), static_cast<std::int32_t>(output.size()),
                                0);
  }

  // Expects that the last line says so.
  void expect_not_killed(int error) {
    const std::string failed = "[cpid:" + child() + "] ds_exec tried kill(); failed with error " +
                               std::to_string(error) + " - " + std::strerror(error) + "\n";
    EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, failed), 1) << log.dump();
    EXPECT_EQ(log.lines().back().text, failed);
  }

  std::array<char, 64> output{};
};

TEST_F(SupervisedFaults, LogsTheResultOfTheFirstPipe) {
  const Fault fault({"pipe2", EMFILE});
  EXPECT_EQ(run("echo x"), -1);
  EXPECT_EQ(fault.seen(), 1);
  EXPECT_STREQ(output.data(), "preset");
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kStage, "ret=-1\n"), 1);
}

TEST_F(SupervisedFaults, LogsTheResultOfTheSecondPipe) {
  const Fault fault({.call = "pipe2", .code = EMFILE, .at = 2});
  EXPECT_EQ(run("echo x"), -1);
  EXPECT_STREQ(output.data(), "preset");
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2U) << log.dump();
  EXPECT_EQ(lines[0].text, "ret=0\n");
  EXPECT_EQ(lines[1].text, "ret=-1\n");
}

TEST_F(SupervisedFaults, EndsWithoutAFurtherLineWhenThereIsNoProcess) {
  for (const int error : {EAGAIN, ENOMEM}) {
    log.clear();
    const Fault fault({"posix_spawnp", error});
    EXPECT_EQ(run("echo x"), -1);
    EXPECT_EQ(fault.seen(), 1);
    EXPECT_STREQ(output.data(), "preset");
    EXPECT_EQ(log.lines().size(), 2U) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_DBUG, "ret=0\n"), 2);
  }
}

TEST_F(SupervisedFaults, WaitsAgainAfterAnInterruption) {
  constexpr int kInterruptions = 3;
  const Fault fault({.call = "poll", .code = EINTR, .times = kInterruptions});
  EXPECT_EQ(run("echo x"), 0);
  EXPECT_STREQ(output.data(), "x\n");
  const std::string failed = "[cpid:" + child() + "] Failed to select() -> " + std::to_string(EINTR) + ":" +
                             std::strerror(EINTR) + "\n";
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, failed), kInterruptions) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, "(): select() was interrupted, continuing"), kInterruptions);
  EXPECT_EQ(log.lines()[3].text, failed);
}

TEST_F(SupervisedFaults, GivesUpWhenItCannotWaitAndLeavesTheChildRunning) {
  const Fault fault({"poll", ENOMEM});
  EXPECT_EQ(run("sleep 1.5"), -1);
  EXPECT_EQ(fault.seen(), 1);
  EXPECT_STREQ(output.data(), "preset");
  const std::string failed = "[cpid:" + child() + "] Failed to select() -> " + std::to_string(ENOMEM) + ":" +
                             std::strerror(ENOMEM) + "\n";
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, failed), 1) << log.dump();
  EXPECT_EQ(log.lines().back().text, failed);
  int status = 0;
  EXPECT_EQ(waitpid(std::stoi(child()), &status, WNOHANG), 0) << "it has ended";
  EXPECT_EQ(waitpid(std::stoi(child()), &status, 0), std::stoi(child()));
  EXPECT_TRUE(WIFEXITED(status)) << "it was killed";
}

TEST_F(SupervisedFaults, GivesUpASilentChildThatItMayNotKill) {
  const Fault fault({"pidfd_send_signal", EPERM});
  const auto start = Clock::now();
  EXPECT_EQ(run("sleep 4"), -1);
  EXPECT_GE(seconds_since(start), 2.0);
  EXPECT_LT(seconds_since(start), 3.5);
  expect_not_killed(EPERM);
  int status = 0;
  EXPECT_EQ(waitpid(std::stoi(child()), &status, 0), std::stoi(child()));
  EXPECT_TRUE(WIFEXITED(status)) << "it was killed";
}

TEST_F(SupervisedFaults, KillsASilentChildOfAKernelWithoutHandles) {
  const Fault fault({"pidfd_open", ENOSYS});
  EXPECT_EQ(run("sleep 4"), -1);
  EXPECT_EQ(fault.seen(), 1);
  EXPECT_EQ(log.lines().back().text,
            "[cpid:" + child() + "] ds_exec kill()ed pid " + child() + " with SIGKILL\n");
  int status = 0;
  EXPECT_EQ(waitpid(std::stoi(child()), &status, 0), std::stoi(child()));
  EXPECT_TRUE(WIFSIGNALED(status));
}

// The number of a child that was reaped may be that of any process by now.
TEST_F(SupervisedFaults, SendsNothingToTheNumberOfAChildThatSomeoneReaped) {
  // It lives until the library has a handle of it.
  const std::string script =
      kelo::tests::make_script("left", "sleep 3 > /dev/null 2>&1 &\nsleep 0.3\necho gone");
  for (const bool handles : {true, false}) {
    kelo::tests::handles_are_missing = !handles;
    std::jthread reaper([] {
      while (waitpid(-1, nullptr, 0) == -1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    const Fault fault({"kill", EPERM});
    EXPECT_EQ(run(script), -1);
    EXPECT_EQ(fault.seen(), 0) << log.dump();
    expect_not_killed(handles ? ESRCH : ECHILD);
  }
  kelo::tests::handles_are_missing = false;
}

TEST_F(SupervisedFaults, LogsAChildThatCannotBeWaitedFor) {
  {
    const Fault fault({"waitpid", ECHILD});
    EXPECT_EQ(run("echo x"), -1);
  }
  EXPECT_STREQ(output.data(), "x\n");
  EXPECT_EQ(log.lines().back().text, "(): [cpid:" + child() + "] wait_pid = 0\n");
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, log.lines().back().text), 1);
  EXPECT_EQ(waitpid(std::stoi(child()), nullptr, 0), std::stoi(child()));
}

TEST_F(SupervisedFaults, KeepsWaitingForTheEndThroughSignals) {
  const Fault fault({.call = "waitpid", .code = EINTR, .times = 2});
  EXPECT_EQ(run("echo x"), 0);
  EXPECT_EQ(fault.seen(), 3);
}

// Signals of a running timer interrupt the wait for real.
class AlarmClock {
 public:
  explicit AlarmClock(int milliseconds) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval once = {{0, 0}, {milliseconds / 1000, milliseconds % 1000 * 1000L}};
    setitimer(ITIMER_REAL, &once, nullptr);
  }
  ~AlarmClock() { signal(SIGALRM, SIG_DFL); }
  AlarmClock(const AlarmClock&) = delete;
  AlarmClock& operator=(const AlarmClock&) = delete;
};

TEST_F(SupervisedFaults, StartsTheSilenceAnewAfterASignal) {
  const AlarmClock alarm(1000);
  EXPECT_EQ(run("sleep 2.5"), 0) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, "(): select() was interrupted, continuing"), 1) << log.dump();
}

}  // namespace
