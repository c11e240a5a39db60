// SPDX-License-Identifier: MIT
// Supervised commands as they run: real programs, their output, their ends and their silence.
#include "kelo_utils/app_os_al.h"

#include <signal.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "kelo_utils/log.h"
#include "tests/support/emulation.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools.hpp"
#include "tests/support/supervised_run.hpp"

namespace {

using kelo::tests::LogCapture;
using kelo::tests::make_script;
using kelo::tests::make_tool;
using kelo::tests::Outcome;
using kelo::tests::run_supervised;

constexpr auto& kStage = kelo::tests::kSupervisedStage;

class SupervisedChild : public kelo::tests::SupervisedRun {
 protected:
  // Expects the line of the kill, and takes the zombie over.
  void expect_killed() {
    const std::string id = child();
    const std::string line = "[cpid:" + id + "] ds_exec kill()ed pid " + id + " with SIGKILL\n";
    EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, line), 1) << log.dump();
    EXPECT_EQ(log.lines().back().text, line) << log.dump();
    EXPECT_EQ(waitpid(std::stoi(id), &killed_status, 0), std::stoi(id)) << "it was reaped";
  }

  int killed_status = 0;
};

TEST_F(SupervisedChild, CapturesStandardOutput) {
  const Outcome echo = run_supervised("echo one   two");
  EXPECT_EQ(echo.result, 0);
  EXPECT_EQ(echo.output, "one two\n");
}

TEST_F(SupervisedChild, RunsTheToolsOfTheSystem) {
  std::ofstream("/tmp/victim").put('x');
  EXPECT_EQ(run_supervised("ls /tmp/victim").output, "/tmp/victim\n");
  EXPECT_EQ(run_supervised("rm /tmp/victim").result, 0);
  EXPECT_FALSE(std::filesystem::exists("/tmp/victim"));
}

TEST_F(SupervisedChild, CapturesStandardErrorAlongInTheOrderOfWriting) {
  const std::string script = make_script("both", "echo one; echo two >&2; echo three; exit 1");
  const Outcome both = run_supervised(script);
  EXPECT_EQ(both.result, -1);
  EXPECT_EQ(both.output, "one\ntwo\nthree\n");
  EXPECT_EQ(log.lines().back().text, "[cpid:" + child() + "] Process exited normally with rc=1\n");
}

TEST_F(SupervisedChild, KeepsTheMessageOfAToolThatFails) {
  const Outcome missing = run_supervised("ls /tmp/missing");
  EXPECT_EQ(missing.result, -1);
  EXPECT_NE(missing.output.find("/tmp/missing"), std::string::npos) << missing.output;
}

TEST_F(SupervisedChild, GivesTheProgramItsOwnPathAsFirstArgument) {
  const std::string script = make_script("name", "tr '\\0' ' ' < /proc/$$/cmdline");
  EXPECT_EQ(run_supervised(script + " a b").output, "/bin/sh " + script + " a b ");
}

struct SizedOutput {
  std::int32_t size;
  const char* text;  // null: the buffer is left as it was
};

TEST_F(SupervisedChild, KeepsWhatFitsBeforeTheTerminator) {
  constexpr std::array<SizedOutput, 11> kSizes = {{{INT32_MIN, nullptr},
                                                   {-1, nullptr},
                                                   {0, nullptr},
                                                   {1, nullptr},
                                                   {2, "a"},
                                                   {3, "ab"},
                                                   {4, "abc"},
                                                   {6, "abcde"},
                                                   {7, "abcdef"},
                                                   {8, "abcdef\n"},
                                                   {9, "abcdef\n"}}};
  for (const auto& [size, text] : kSizes) {
    std::array<char, 16> output;
    output.fill('#');
    EXPECT_EQ(kelo_ds_system_call3("echo abcdef", 0, output.data(), size, 0), 0);
    std::array<char, 16> expected;
    expected.fill('#');
    if (text != nullptr) std::memcpy(expected.data(), text, std::strlen(text) + 1);
    EXPECT_EQ(output, expected) << "size " << size;
  }
}

TEST_F(SupervisedChild, LeavesTheBufferOfASilentCommandAlone) {
  std::array<char, 8> output = {"preset"};
  EXPECT_EQ(kelo_ds_system_call3(make_script("quiet", "exit 0").c_str(), 0, output.data(), 8, 1), 0);
  EXPECT_STREQ(output.data(), "preset");
}

TEST_F(SupervisedChild, DiscardsTheOutputWithoutABuffer) {
  const std::string script = make_script("chatter", "head -c 300000 /dev/zero");
  EXPECT_EQ(kelo_ds_system_call3(script.c_str(), 0, nullptr, 4096, 0), 0);
}

TEST_F(SupervisedChild, ReadsToTheEndWhatDoesNotFit) {
  const std::string script = make_script("numbers", "seq 1 100000; echo done > /tmp/done");
  EXPECT_EQ(run_supervised(script, 10).output, "1\n2\n3\n4\n5");
  EXPECT_TRUE(std::filesystem::exists("/tmp/done"));
}

TEST_F(SupervisedChild, CapturesALargeOutputByteForByte) {
  std::string expected;
  for (int i = 1; i <= 200000; ++i) expected += std::to_string(i) + "\n";
  const std::string script = make_script("numbers", "seq 1 200000");
  EXPECT_EQ(run_supervised(script, 2 << 20).output, expected);
  EXPECT_EQ(run_supervised(script, expected.size() + 1).output, expected);
  expected.pop_back();
  EXPECT_EQ(run_supervised(script, expected.size() + 1).output, expected);
}

TEST_F(SupervisedChild, KeepsZeroBytesAndTerminatesAfterThem) {
  std::array<char, 8> output;
  output.fill('#');
  const std::string script = make_script("zeros", "printf 'a\\0b'");
  EXPECT_EQ(kelo_ds_system_call3(script.c_str(), 0, output.data(), output.size(), 0), 0);
  EXPECT_EQ(std::string(output.data(), 8), std::string("a\0b\0####", 8));
}

TEST_F(SupervisedChild, SucceedsWithExitCodeZeroAlone) {
  for (const int code : {1, 2, 127, 254, 255}) {
    EXPECT_EQ(run_supervised(make_script("code", "exit " + std::to_string(code))).result, -1);
    EXPECT_EQ(log.lines().back().text,
              "[cpid:" + child() + "] Process exited normally with rc=" + std::to_string(code) + "\n");
  }
}

TEST_F(SupervisedChild, FailsWhenASignalEndsTheProgram) {
  const Outcome ended = run_supervised(make_script("ended", "echo before; kill -TERM $$"));
  EXPECT_EQ(ended.result, -1);
  EXPECT_EQ(ended.output, "before\n");
  const std::string line = "(): [cpid:" + child() + "] wait_pid = 1\n";
  EXPECT_EQ(log.lines().back().text, line);
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, line), 1);
}

TEST_F(SupervisedChild, FailsWhenTheProcessLetsTheSystemReap) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(run_supervised("echo x").output, "x\n");
  EXPECT_EQ(run_supervised("echo x").result, -1);
  signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(log.lines().back().text, "(): [cpid:" + child() + "] wait_pid = 0\n");
}

void expect_start_failure(const LogCapture& log, int error) {
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 5U) << log.dump();
  EXPECT_TRUE(lines[2].text.find("Spawned child PID(") != std::string::npos) << log.dump();
  EXPECT_EQ(lines[3].level, LOG_LVL_INFO);
  EXPECT_EQ(lines[3].function, kStage);
  EXPECT_EQ(lines[3].text,
            "exec() failed: " + std::to_string(error) + ":" + std::strerror(error) + "\nDying\n");
  EXPECT_TRUE(lines[4].text.ends_with("Process exited normally with rc=255\n")) << log.dump();
}

TEST_F(SupervisedChild, LogsAMissingProgramBeforeItsExitCode) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kEmulatorLosesTheError;
  const Outcome missing = run_supervised("/tmp/t/bin/missing");
  EXPECT_EQ(missing.result, -1);
  EXPECT_EQ(missing.output, "");
  expect_start_failure(log, ENOENT);
}

TEST_F(SupervisedChild, LogsAProgramThatMayNotBeStarted) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kEmulatorLosesTheError;
  std::filesystem::create_directories("/tmp/t/bin");
  std::ofstream("/tmp/t/bin/data").put('x');
  EXPECT_EQ(run_supervised("/tmp/t/bin/data").result, -1);
  expect_start_failure(log, EACCES);
}

TEST_F(SupervisedChild, SaysNothingOfAProgramThatEndsWith255Itself) {
  EXPECT_EQ(run_supervised(make_script("code", "exit 255")).result, -1);
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(SupervisedChild, FindsNdcThroughTheSearchPath) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kEmulatorLosesTheError;
  make_script("ndc", "echo ndc \"$@\"", "/tmp/one");
  const std::string system_path = getenv("PATH");
  setenv("PATH", "/tmp/none:/tmp/one:/usr/bin:/bin", 1);
  EXPECT_EQ(run_supervised("ndc network list").output, "ndc network list\n");
  setenv("PATH", "/tmp/none", 1);
  log.clear();
  EXPECT_EQ(run_supervised("ndc network list").result, -1);
  setenv("PATH", system_path.c_str(), 1);
  expect_start_failure(log, ENOENT);
}

TEST_F(SupervisedChild, RunsAScriptWithoutAnInterpreterLine) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kEmulatorLosesTheError;
  EXPECT_EQ(run_supervised(make_tool("plain", "echo \"plain $1\"\n") + " x").output, "plain x\n");
}

TEST_F(SupervisedChild, LetsACommandBeSilentForASecond) { EXPECT_EQ(run_supervised("sleep 1").result, 0); }

TEST_F(SupervisedChild, KillsACommandAfterTwoSecondsOfSilence) {
  const Outcome silent = run_supervised("sleep 3");
  EXPECT_EQ(silent.result, -1);
  EXPECT_GE(silent.seconds, 2.0);
  EXPECT_LT(silent.seconds, 2.9);
  expect_killed();
  EXPECT_TRUE(WIFSIGNALED(killed_status) && WTERMSIG(killed_status) == SIGKILL);
}

TEST_F(SupervisedChild, KeepsTheOutputOfAKilledCommand) {
  const Outcome silent =
      run_supervised(make_script("stuck", "echo started; sleep 1; echo stuck; exec sleep 5"));
  EXPECT_EQ(silent.result, -1);
  EXPECT_EQ(silent.output, "started\nstuck\n");
  EXPECT_GE(silent.seconds, 3.0);
  EXPECT_LT(silent.seconds, 4.5);
  expect_killed();
}

TEST_F(SupervisedChild, LetsAChattyCommandLive) {
  const Outcome chatty =
      run_supervised(make_script("chatty", "for i in 1 2 3 4 5 6; do sleep 1; printf $i; done"));
  EXPECT_EQ(chatty.result, 0) << log.dump();
  EXPECT_EQ(chatty.output, "123456");
  EXPECT_GE(chatty.seconds, 6.0);
}

TEST_F(SupervisedChild, CountsDroppedBytesAsSignsOfLife) {
  const std::string script = make_script("chatty", "for i in 1 2 3; do sleep 1; printf $i; done");
  EXPECT_EQ(kelo_ds_system_call3(script.c_str(), 0, nullptr, 0, 0), 0) << log.dump();
}

TEST_F(SupervisedChild, CountsTheEndOfTheOutputAsASignOfLife) {
  const Outcome closed = run_supervised(make_script("closed", "sleep 1; exec > /dev/null 2>&1; sleep 1.5"));
  EXPECT_EQ(closed.result, 0) << log.dump();
  EXPECT_GE(closed.seconds, 2.5);
}

// Lines of a script that put the number of the watch pipe's descriptor, the last of the pipes, into $watch.
constexpr char kFindWatchPipe[] =
    "ls -l /proc/self/fd > /tmp/list\n"
    "watch=$(sed -n 's/.* \\([0-9]*\\) -> pipe:.*/\\1/p' /tmp/list | tail -n 1)\n"
    "[ $watch -gt 2 ] || exit 9\n";

TEST_F(SupervisedChild, CountsAByteOnTheWatchPipeAsASignOfLife) {
  const Outcome kept = run_supervised(make_script(
      "watch", std::string("sleep 1\n") + kFindWatchPipe + "printf x > /proc/$$/fd/$watch && sleep 1.5"));
  EXPECT_EQ(kept.result, 0) << log.dump();
  EXPECT_EQ(kept.output, "");
  EXPECT_GE(kept.seconds, 2.5);
}

TEST_F(SupervisedChild, KeepsWatchingAfterAByteOnTheWatchPipe) {
  const Outcome kept = run_supervised(make_script(
      "watch", std::string(kFindWatchPipe) + "printf x > /proc/$$/fd/$watch\n"
                                             "(sleep 0.5; echo > /tmp/late) > /dev/null 2>&1 &\n"));
  EXPECT_EQ(kept.result, 0) << log.dump();
  EXPECT_TRUE(std::filesystem::exists("/tmp/late"));
}

TEST_F(SupervisedChild, CapturesWhatIsPrintedAfterTheEndOfTheWatchPipe) {
  const Outcome late = run_supervised(
      make_script("watch", std::string(kFindWatchPipe) +
                               "eval \"exec $watch>&-\"\n[ ! -e /proc/$$/fd/$watch ] || exit 8\n"
                               "sleep 0.2; echo late\n"));
  EXPECT_EQ(late.result, 0) << log.dump();
  EXPECT_EQ(late.output, "late\n");
}

TEST_F(SupervisedChild, WaitsForWhatTheProgramLeavesInTheBackground) {
  const Outcome left = run_supervised(make_script("left", "sleep 1.5 > /dev/null 2>&1 &\necho gone"));
  EXPECT_EQ(left.result, 0) << log.dump();
  EXPECT_EQ(left.output, "gone\n");
  EXPECT_GE(left.seconds, 1.5);
}

TEST_F(SupervisedChild, GivesUpASilentBackgroundOfAnEndedProgram) {
  const Outcome left = run_supervised(make_script("left", "sleep 30 > /dev/null 2>&1 &\necho gone"));
  EXPECT_EQ(left.result, -1);
  EXPECT_EQ(left.output, "gone\n");
  EXPECT_GE(left.seconds, 2.0);
  EXPECT_LT(left.seconds, 3.5);
  expect_killed();
  EXPECT_TRUE(WIFEXITED(killed_status)) << "it had ended before";
}

}  // namespace
