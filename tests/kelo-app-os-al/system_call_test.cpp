// SPDX-License-Identifier: MIT
// Shell commands whose exit status is wanted.
#include <signal.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/c_library.hpp"
#include "tests/support/child_process.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::kDescriptorsOfAStart;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;

constexpr char kCall[] = "oem_system_call";
constexpr char kCallEx[] = "oem_system_call_ex";

int call(const std::string& command) {
  return kelo_system_call(command.c_str(), static_cast<std::uint32_t>(command.size()));
}

int call_ex(const std::string& command) {
  return kelo_system_call_ex(command.c_str(), static_cast<std::uint32_t>(command.size()));
}

class SystemCall : public kelo::tests::LeavesNothing {};

TEST_F(SystemCall, RefusesANullCommand) {
  EXPECT_EQ(kelo_system_call(nullptr, 0), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "kelo_system_call param NULL\n"}});
  EXPECT_EQ(kelo_system_call_ex(nullptr, 4), -1);
  expect_lines(log, kCallEx, {{LOG_LVL_ERR, "kelo_system_call_ex param NULL\n"}});
}

TEST_F(SystemCall, RefusesACommandOfAnotherLength) {
  for (const std::uint32_t length : {0U, 3U, 5U, UINT32_MAX}) {
    const std::string lengths = std::to_string(static_cast<std::int32_t>(length)) + " != 4\n";
    EXPECT_EQ(kelo_system_call("true", length), -1);
    expect_lines(log, kCall, {{LOG_LVL_ERR, "System call length mismatch: " + lengths}});
    EXPECT_EQ(kelo_system_call_ex("true", length), -1);
    expect_lines(log, kCallEx, {{LOG_LVL_ERR, "system call length mismatch: " + lengths}});
  }
}

TEST_F(SystemCall, RunsNothingOfARefusedCommand) {
  constexpr std::string_view kTouch = "touch /tmp/ran";
  EXPECT_EQ(kelo_system_call(kTouch.data(), kTouch.size() - 1), -1);
  EXPECT_EQ(kelo_system_call_ex(kTouch.data(), kTouch.size() + 1), -1);
  EXPECT_FALSE(std::filesystem::exists("/tmp/ran"));
  EXPECT_EQ(kelo_system_call(kTouch.data(), kTouch.size()), 0);
  EXPECT_TRUE(std::filesystem::remove("/tmp/ran"));
  EXPECT_EQ(kelo_system_call_ex(kTouch.data(), kTouch.size()), 0);
  EXPECT_TRUE(std::filesystem::remove("/tmp/ran"));
}

TEST_F(SystemCall, ReportsSuccess) {
  EXPECT_EQ(call("true"), 0);
  expect_lines(
      log, kCall,
      {{LOG_LVL_DBUG, "System call: true\n"}, {LOG_LVL_DBUG, "run shell script successfully result=0.\n"}});
  EXPECT_EQ(call_ex("true"), 0);
  expect_lines(log, kCallEx, {{LOG_LVL_DBUG, "system call: true\n"}});
}

TEST_F(SystemCall, RunsAnEmptyCommand) {
  EXPECT_EQ(call(""), 0);
  EXPECT_EQ(call_ex(""), 0);
}

TEST_F(SystemCall, HandsTheTextToTheShellAsItIs) {
  EXPECT_EQ(call("printf '%s|' 'a b' \"$((1+1))\" > /tmp/a; test \"$(cat /tmp/a)\" = 'a b|2|'"), 0);
  EXPECT_EQ(call_ex("printf '%s|' 'a b' \"$((1+1))\" > /tmp/b; cmp /tmp/a /tmp/b"), 0);
}

TEST_F(SystemCall, ReportsAnExitCodeAsRawStatus) {
  for (const int code : {1, 2, 127, 128, 255}) {
    const std::string command = "exit " + std::to_string(code);
    EXPECT_EQ(call(command), code * 256);
    expect_lines(log, kCall,
                 {{LOG_LVL_DBUG, "System call: " + command + "\n"},
                  {LOG_LVL_ERR, "run shell script fail=" + std::to_string(code * 256) +
                                    ", script exit code: " + std::to_string(code) + "\n"}});
  }
}

TEST_F(SystemCall, ReportsTheSignalThatEndedTheShell) {
  for (const int number : {SIGTERM, SIGKILL}) {
    const std::string command = "kill -" + std::to_string(number) + " $$";
    EXPECT_EQ(call(command), number);
    expect_lines(log, kCall,
                 {{LOG_LVL_DBUG, "System call: " + command + "\n"},
                  {LOG_LVL_ERR, "result=" + std::to_string(number) + ", exit status = [0]\n"}});
  }
}

TEST_F(SystemCall, ReportsAShellThatCannotBeStarted) {
  const Fault fault({.call = "system", .code = -1});
  EXPECT_EQ(call("true"), -1);
  expect_lines(log, kCall, {{LOG_LVL_DBUG, "System call: true\n"}, {LOG_LVL_ERR, "system error!\n"}});
}

TEST_F(SystemCall, KeepsItsResultWithoutLogging) {
  kelo_set_log_level(LOG_LVL_CRT);
  EXPECT_EQ(call("exit 2"), 512);
  EXPECT_EQ(call_ex("exit 2"), 2);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

// Both commands live a bounded time, whenever the signal is delivered.
TEST_F(SystemCall, WaitsThroughSignals) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  EXPECT_EQ(call("kill -USR1 $PPID; exit 3"), 768);
  EXPECT_EQ(call_ex("kill -USR1 $PPID; exit 3"), 3);
}

TEST_F(SystemCall, SeesNoStatusWhereTheSystemReaps) {
  const auto ended = kelo::tests::run_in_child([this] {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(call("true"), -1);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kCall, "system error!\n"), 1) << log.dump();
    EXPECT_EQ(call_ex("true"), -1);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kCallEx,
                        "system command failed, rc=-1 errno: " + std::to_string(ECHILD) + "\n"),
              1)
        << log.dump();
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

// --- Formatted commands

TEST_F(SystemCall, FormatsTheCommandIntoTheBuffer) {
  const ExactBuffer buffer(std::strlen("exit 12") + 1);
  EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), 8, "exit %d%s", 1, "2"), 12 * 256);
  EXPECT_STREQ(buffer.data(), "exit 12");
  expect_lines(log, kCall,
               {{LOG_LVL_DBUG, "System call: exit 12\n"},
                {LOG_LVL_ERR, "run shell script fail=3072, script exit code: 12\n"}});
}

TEST_F(SystemCall, CutsAFormattedCommandAndRunsTheRest) {
  const ExactBuffer buffer(7);
  EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), 7, "exit %d%s", 1, "2"), 256);
  EXPECT_STREQ(buffer.data(), "exit 1");
  const ExactBuffer terminator(1);
  EXPECT_EQ(kelo_system_call_var_arg(terminator.data(), 1, "exit %d", 1), 0);
  EXPECT_STREQ(terminator.data(), "");
}

TEST_F(SystemCall, LeavesWhatFollowsAFormattedCommand) {
  const ExactBuffer buffer(8);
  EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), 8, "true"), 0);
  EXPECT_EQ(buffer.bytes(), std::string("true\0ZZZ", 8));
}

TEST_F(SystemCall, RefusesABufferWithoutRoom) {
  const ExactBuffer buffer("touch /tmp/ran");
  for (const std::int32_t size : {0, -1, INT32_MIN}) {
    EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), size, "%s", "true"), -1);
    expect_lines(log, "oem_system_call_var_arg", {{LOG_LVL_ERR, "kelo_system_call_var_arg param NULL\n"}});
  }
  EXPECT_STREQ(buffer.data(), "touch /tmp/ran");
  EXPECT_FALSE(std::filesystem::exists("/tmp/ran"));
}

TEST_F(SystemCall, RefusesANullBufferAndANullFormat) {
  const ExactBuffer buffer(8);
  EXPECT_EQ(kelo_system_call_var_arg(nullptr, 8, "true"), -1);
  expect_lines(log, "oem_system_call_var_arg", {{LOG_LVL_ERR, "kelo_system_call_var_arg param NULL\n"}});
  const char* volatile none = nullptr;  // out of sight of the compiler's own check
  EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), 8, none, 1), -1);
  expect_lines(log, "oem_system_call_var_arg", {{LOG_LVL_ERR, "kelo_system_call_var_arg param NULL\n"}});
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(SystemCall, RunsNothingOfACommandThatCannotBeFormatted) {
  std::array<char, 64> buffer{};
  constexpr std::array<wchar_t, 2> kNoCharacter = {static_cast<wchar_t>(0x7fffffff), L'\0'};
  EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), buffer.size(), "touch /tmp/ran%ls", kNoCharacter.data()),
            -1);
  expect_lines(log, "oem_system_call_var_arg", {{LOG_LVL_ERR, "system error!\n"}});
  EXPECT_FALSE(std::filesystem::exists("/tmp/ran"));
}

// --- Commands without input

TEST_F(SystemCall, ReportsAnExitCodeItself) {
  for (const int code : {1, 2, 127, 128, 255}) {
    const std::string command = "exit " + std::to_string(code);
    errno = ENOTTY;
    EXPECT_EQ(call_ex(command), code);
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kCallEx, "system call: " + command + "\n"), 1) << log.dump();
    EXPECT_EQ(log.count_matching(LOG_LVL_ERR,
                                 "system command failed, rc=" + std::to_string(code) + " errno: \\d+\n"),
              1)
        << log.dump();
    EXPECT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1].function, kCallEx);
    log.clear();
  }
}

TEST_F(SystemCall, ReportsTheRawStatusOfASignal) {
  for (const int number : {SIGTERM, SIGKILL}) {
    EXPECT_EQ(call_ex("kill -" + std::to_string(number) + " $$"), number);
    EXPECT_EQ(log.count_matching(LOG_LVL_ERR,
                                 "system command failed, rc=" + std::to_string(number) + " errno: \\d+\n"),
              1)
        << log.dump();
  }
}

TEST_F(SystemCall, ReportsAPipeThatCannotBeMade) {
  const Fault fault({.call = "popen", .code = EMFILE});
  EXPECT_EQ(call_ex("true"), -1);
  expect_lines(log, kCallEx,
               {{LOG_LVL_DBUG, "system call: true\n"},
                {LOG_LVL_ERR, "system command failed\n"},
                {LOG_LVL_ERR, "system command failed, rc=-1 errno: " + std::to_string(EMFILE) + "\n"}});
}

TEST_F(SystemCall, ReportsACommandThatCannotBeWaitedFor) {
  const Fault fault({.call = "pclose", .code = EINVAL});
  EXPECT_EQ(call_ex("true"), -1);
  expect_lines(
      log, kCallEx,
      {{LOG_LVL_DBUG, "system call: true\n"}, {LOG_LVL_ERR, "system command failed, rc=-1 errno: 22\n"}});
}

TEST_F(SystemCall, GivesTheCommandAnInputThatEndsAtOnce) {
  EXPECT_EQ(call_ex("read -r line && exit 4; cat > /tmp/input; exit 5"), 5);
  EXPECT_EQ(std::filesystem::file_size("/tmp/input"), 0U);
}

TEST_F(SystemCall, SharesTheOutputOfTheCaller) {
  kelo::tests::StdoutCapture output;
  call("echo one");
  call_ex("echo two");
  EXPECT_EQ(output.take(), "one\ntwo\n");
}

// --- Descriptors and threads

TEST_F(SystemCall, HandsDownNoDescriptor) {
  const auto before = open_descriptors();
  for (const auto& run : {call, call_ex}) {
    EXPECT_EQ(run("ls -l /proc/self/fd > /tmp/descriptors"), 0);
    kelo::tests::expect_nothing_inherited("/tmp/descriptors", before);
  }
}

TEST_F(SystemCall, ServesAProcessWithMoreThan1024Descriptors) {
  kelo::tests::limit_descriptors(2048);
  if (IsSkipped() || HasFatalFailure()) return;
  const ManyDescriptors many(1500, 0);
  ASSERT_GT(many.highest(), 1024);
  EXPECT_EQ(call("exit 2"), 512);
  EXPECT_EQ(call_ex("exit 2"), 2);
}

TEST_F(SystemCall, FailsCleanlyWhenDescriptorsRunOut) {
  kelo::tests::limit_descriptors(64);
  for (const std::size_t free : {0U, 1U}) {
    log.clear();
    const ManyDescriptors many(64, free);
    EXPECT_EQ(call("exit 2"), kDescriptorsOfAStart == 0 ? 512 : -1);
    EXPECT_EQ(call_ex("exit 2"), -1);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kCallEx, "system command failed\n"), 1) << log.dump();
  }
  const ManyDescriptors many(64, 2 + kDescriptorsOfAStart);
  EXPECT_EQ(call("exit 2"), 512);
  EXPECT_EQ(call_ex("exit 2"), 2);
}

TEST_F(SystemCall, ServesSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int code = 1; code <= 4; ++code) {
    threads.emplace_back([code] {
      const std::string command = "exit " + std::to_string(code);
      for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(call(command), code * 256);
        EXPECT_EQ(call_ex(command), code);
        std::array<char, 16> buffer{};
        EXPECT_EQ(kelo_system_call_var_arg(buffer.data(), buffer.size(), "exit %d", code), code * 256);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
