// SPDX-License-Identifier: MIT
// Programs that the C++ face runs: output, exit codes, signals and every code.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "kelo_utils/kelo.hpp"
#include "tests/support/emulation.hpp"

namespace {

using kelo::run;
using namespace std::chrono_literals;

constexpr auto kLong = 60s;

TEST(FaceRun, CapturesOutputAndExitCode) {
  const auto ended = run({"sh", "-c", "echo out; echo err >&2; exit 3"}, kLong);
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended.value().output, "out\nerr\n");
  EXPECT_EQ(ended.value().exit_code, 3);
  EXPECT_EQ(ended.value().signal, 0);
}

TEST(FaceRun, TakesWordsOfEachKind) {
  EXPECT_EQ(run(std::vector<std::string>{"echo", "a b"}, kLong).value().output, "a b\n");
  const char* const words[] = {"echo", "c", nullptr};
  EXPECT_EQ(run(words, kLong).value().output, "c\n");
}

TEST(FaceRun, KeepsNoMoreOutputThanAsked) {
  EXPECT_EQ(run({"echo", "abc"}, kLong, 4).value().output, "abc\n");
  EXPECT_EQ(run({"echo", "abc"}, kLong, 2).value().output, "ab");
  EXPECT_EQ(run({"echo", "abc"}, kLong, 0).value().output, "");
  EXPECT_EQ(run({"echo", "abc"}, kLong, -1).value().output, "");
  EXPECT_EQ(run({"sh", "-c", "head -c 10000 /dev/zero | tr '\\0' x"}, kLong, 5000).value().output,
            std::string(5000, 'x'));
}

TEST(FaceRun, ASignalIsAFailureWithItsNumber) {
  const auto ended = run({"sh", "-c", "echo before; kill -TERM $$"}, kLong);
  EXPECT_EQ(ended.code(), KELO_RUN_KILLED);
  EXPECT_EQ(ended.value().signal, SIGTERM);
  EXPECT_EQ(ended.value().exit_code, -1);
  EXPECT_EQ(ended.value().output, "before\n");
}

TEST(FaceRun, ATimeOutKeepsTheOutput) {
  const auto ended = run({"sh", "-c", "echo before; sleep 60"}, 500ms);
  EXPECT_EQ(ended.code(), KELO_RUN_TIMED_OUT);
  EXPECT_EQ(ended.value().output, "before\n");
  EXPECT_EQ(ended.value().exit_code, -1);
}

TEST(FaceRun, WhatIsNoProgram) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kEmulatorLosesTheError;
  EXPECT_EQ(run({"no-such-program"}, kLong).code(), KELO_RUN_NOT_FOUND);
  EXPECT_EQ(run({"/etc"}, kLong).code(), KELO_RUN_NOT_STARTED);
}

TEST(FaceRun, RefusesArguments) {
  EXPECT_EQ(run(std::vector<std::string>{}, kLong).code(), KELO_RUN_BAD_ARGUMENT);
  EXPECT_EQ(run({""}, kLong).code(), KELO_RUN_BAD_ARGUMENT);
  EXPECT_EQ(run({"true"}, 0ms).code(), KELO_RUN_BAD_ARGUMENT);
  EXPECT_EQ(run({"true"}, -1h).code(), KELO_RUN_BAD_ARGUMENT);
  EXPECT_TRUE(run({"true"}, std::chrono::hours(24 * 365)));
}

TEST(FaceRun, ProgramsWhoseEndIsNotSeen) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(run({"true"}, kLong).code(), KELO_RUN_UNKNOWN_END);
  signal(SIGCHLD, SIG_DFL);
}

TEST(FaceRun, RunsATool) {
  const auto text = kelo::run_tool("echo a  b");
  ASSERT_TRUE(text);
  EXPECT_EQ(text.value(), "a b\n");
  const auto failed = kelo::run_tool("ls /no-such-folder");
  EXPECT_EQ(failed.code(), -1);
  EXPECT_NE(failed.value().find("no-such-folder"), std::string::npos);
  EXPECT_EQ(kelo::run_tool("reboot").code(), -1);
  EXPECT_EQ(kelo::run_tool(nullptr).value(), "");
}

}  // namespace
