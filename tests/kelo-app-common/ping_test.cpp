// SPDX-License-Identifier: MIT
// Whether a host answers: a `ping` of the test's own, and the real one.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/database.hpp"
#include "tests/support/interfaces.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools_first.hpp"
#include "tests/support/sqlite_faults.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::Fault;
using kelo::tests::kEveryTime;
using kelo::tests::make_script;
using kelo::tests::read_file;

constexpr char kOwnTools[] = "/tmp/t/bin";
constexpr char kRuns[] = "/tmp/t/runs";
constexpr std::size_t kLongestHost = 223;

class Ping : public kelo::tests::OwnToolsFirst {
 protected:
  // A `ping` that notes its arguments and does this then.
  static void make_ping(const std::string& lines) {
    make_script("ping", std::string("echo \"$*\" >> ") + kRuns + "\n" + lines);
  }

  // The arguments of each run, a line each.
  static std::string runs() { return std::filesystem::exists(kRuns) ? read_file(kRuns) : ""; }

  // Expects so many tries, the last of which says `status`; those before it have failed. Of each failure the
  // command's line is `failure`, followed by `more`, if there is one; numbers of errors are left out.
  void expect_tries(int tries, const std::string& status, const std::string& start,
                    const std::string& failure, const std::string& more = {}) {
    std::vector<std::string> expected;
    for (int i = 1; i <= tries; ++i) {
      const bool answered = i == tries && status == "success";
      if (!start.empty()) expected.push_back("DBUG oem_system_call_ex " + start);
      if (!answered) expected.push_back("ERR oem_system_call_ex " + failure);
      if (!answered && !more.empty()) expected.push_back("ERR oem_system_call_ex " + more);
      expected.push_back("DBUG oem_ping_state >>>ping status:" + (answered ? status : "fail") + ">>>\n");
    }
    std::vector<std::string> logged;
    for (const auto& line : log.lines())
      logged.push_back(kelo::tests::level_name(line.level) + " " + line.function + " " +
                       std::regex_replace(line.text, std::regex("errno: \\d+"), "errno: ?"));
    EXPECT_EQ(logged, expected);
    log.clear();
  }
};

constexpr char kStart[] = "system call: ping -c 2 -W 3 host > /dev/null 2>&1\n";
constexpr char kNotStarted[] = "system command failed, rc=-1 errno: ?\n";
constexpr char kExitedWith1[] = "system command failed, rc=1 errno: ?\n";

TEST_F(Ping, IsAnsweredAtTheFirstTry) {
  make_ping("exit 0");
  EXPECT_EQ(kelo_ping_state("host"), 0);
  EXPECT_EQ(runs(), "-c 2 -W 3 host\n");
  expect_tries(1, "success", kStart, "");
}

TEST_F(Ping, IsTriedUntilItIsAnswered) {
  for (const int last : {2, 3}) {
    std::filesystem::remove(kRuns);
    make_ping("[ \"$(wc -l < /tmp/t/runs)\" -eq " + std::to_string(last) + " ]");
    EXPECT_EQ(kelo_ping_state("host"), 0);
    expect_tries(last, "success", kStart, kExitedWith1);
  }
}

TEST_F(Ping, IsGivenUpAfterTheThirdTry) {
  make_ping("exit 1");
  EXPECT_EQ(kelo_ping_state("host"), -1);
  EXPECT_EQ(runs(), "-c 2 -W 3 host\n-c 2 -W 3 host\n-c 2 -W 3 host\n");
  expect_tries(3, "fail", kStart, kExitedWith1);
}

TEST_F(Ping, FailsWhateverTheFailureIs) {
  make_ping("exit 2");
  EXPECT_EQ(kelo_ping_state("host"), -1);
  expect_tries(3, "fail", kStart, "system command failed, rc=2 errno: ?\n");
  make_ping("kill -9 $$");
  EXPECT_EQ(kelo_ping_state("host"), -1);
  expect_tries(3, "fail", kStart, "system command failed, rc=137 errno: ?\n");
}

TEST_F(Ping, FailsWithoutThePingProgram) {
  std::filesystem::create_directories(kOwnTools);
  setenv("PATH", kOwnTools, 1);
  EXPECT_EQ(kelo_ping_state("host"), -1);
  expect_tries(3, "fail", kStart, "system command failed, rc=127 errno: ?\n");
}

TEST_F(Ping, FailsWithoutAProcess) {
  make_ping("exit 0");
  const Fault fault({.call = "popen", .code = EAGAIN, .times = kEveryTime});
  EXPECT_EQ(kelo_ping_state("host"), -1);
  EXPECT_EQ(fault.failed(), 3);
  EXPECT_EQ(runs(), "");
  expect_tries(3, "fail", kStart, "system command failed\n", kNotStarted);
}

TEST_F(Ping, GoesOnAfterAProcessThatDidNotStart) {
  make_ping("exit 0");
  const Fault fault({.call = "popen", .code = EAGAIN});
  EXPECT_EQ(kelo_ping_state("host"), 0);
  expect_tries(2, "success", kStart, "system command failed\n", kNotStarted);
}

TEST_F(Ping, ShowsNothingOfThePing) {
  make_ping("echo out; echo err >&2");
  kelo::tests::StdoutCapture output;
  EXPECT_EQ(kelo_ping_state("host"), 0);
  EXPECT_EQ(output.take(), "");
  expect_tries(1, "success", kStart, "");
}

TEST_F(Ping, RunsNothingForAHostThatTheShellWouldActOn) {
  make_ping("exit 0");
  for (const char character : std::string(";&|<>$\\`()\n")) {
    for (const std::string& host : {std::string(1, character), "host" + std::string(1, character),
                                    "host" + std::string(1, character) + "x"}) {
      const CallTrace trace;
      EXPECT_EQ(kelo_ping_state(host.c_str()), -1) << host;
      EXPECT_TRUE(trace.calls().empty()) << trace.dump();
      EXPECT_EQ(log.count(LOG_LVL_DBUG, "oem_ping_state", ">>>ping status:fail>>>\n"), 3);
      EXPECT_EQ(log.lines().size(), 3U) << log.dump();
      log.clear();
    }
  }
  EXPECT_EQ(runs(), "");
}

TEST_F(Ping, HandsAnyOtherHostToTheShellAsItIs) {
  make_ping("exit 0");
  EXPECT_EQ(kelo_ping_state("-I 'wan 0' fe80::1"), 0);
  EXPECT_EQ(runs(), "-c 2 -W 3 -I wan 0 fe80::1\n");
  EXPECT_EQ(kelo_ping_state(""), 0);
  EXPECT_EQ(runs(), "-c 2 -W 3 -I wan 0 fe80::1\n-c 2 -W 3\n");
  log.clear();
}

TEST_F(Ping, RefusesANullHost) {
  make_ping("exit 0");
  const CallTrace trace;
  EXPECT_EQ(kelo_ping_state(nullptr), 3);
  EXPECT_TRUE(trace.calls().empty()) << trace.dump();
}

TEST_F(Ping, TakesALongHost) {
  make_ping("exit 0");
  for (const std::size_t length : {kLongestHost - 1, kLongestHost}) {
    std::filesystem::remove(kRuns);
    const std::string host(length, 'x');
    EXPECT_EQ(kelo_ping_state(host.c_str()), 0);
    EXPECT_EQ(runs(), "-c 2 -W 3 " + host + "\n");
    expect_tries(1, "success", "system call: ping -c 2 -W 3 " + host + " > /dev/null 2>&1\n", "");
  }
}

TEST_F(Ping, RunsNothingForALongerHost) {
  make_ping("exit 0");
  for (const std::size_t length : {kLongestHost + 1, kLongestHost + 2, std::size_t{100000}}) {
    const CallTrace trace;
    EXPECT_EQ(kelo_ping_state(std::string(length, length % 2 == 0 ? 'x' : ';').c_str()), -1);
    EXPECT_TRUE(trace.calls().empty()) << trace.dump();
    expect_tries(3, "fail", "", "system call length mismatch: " + std::to_string(length + 32) + " != 255\n");
  }
}

TEST_F(Ping, IsAnsweredByTheLoopback) {
  if (std::system("command -v ping > /dev/null 2>&1") != 0) GTEST_SKIP() << "this machine has no ping";
  EXPECT_EQ(kelo_ping_state("127.0.0.1"), -1) << "the interface is down";
  kelo::tests::bring_up("lo");
  EXPECT_EQ(kelo_ping_state("127.0.0.1"), 0);
  log.clear();
}

}  // namespace
