// Supervised commands as they run: real programs, their output, their ends and their silence.
#include "kelo_utils/app_os_al.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools.hpp"

namespace {

using kelo::tests::limit_descriptors;
using kelo::tests::listed_descriptors;
using kelo::tests::LogCapture;
using kelo::tests::make_script;
using kelo::tests::make_tool;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;
using Clock = std::chrono::steady_clock;

constexpr char kStage[] = "oem_ds_exec_internal";

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Outcome {
  int result;
  std::string output;
  double seconds;
};

// Runs a command with room for `size` bytes of output, terminator included.
Outcome run(const std::string& command, std::size_t size = 4096) {
  std::vector<char> output(size);
  const auto start = Clock::now();
  const int result =
      kelo_ds_system_call3(command.c_str(), 0, output.data(), static_cast<std::int32_t>(size), 0);
  return {result, output.data(), seconds_since(start)};
}

class SupervisedChild : public kelo::tests::LeavesNothing {
 protected:
  // Id of the child that the log names last, as text.
  std::string child() const {
    std::string id;
    for (const auto& line : log.lines()) {
      if (line.text.starts_with("[cpid:")) id = line.text.substr(6, line.text.find(']') - 6);
    }
    return id;
  }

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
  const Outcome echo = run("echo one   two");
  EXPECT_EQ(echo.result, 0);
  EXPECT_EQ(echo.output, "one two\n");
}

TEST_F(SupervisedChild, RunsTheToolsOfTheSystem) {
  std::ofstream("/tmp/victim").put('x');
  EXPECT_EQ(run("ls /tmp/victim").output, "/tmp/victim\n");
  EXPECT_EQ(run("rm /tmp/victim").result, 0);
  EXPECT_FALSE(std::filesystem::exists("/tmp/victim"));
}

TEST_F(SupervisedChild, CapturesStandardErrorAlongInTheOrderOfWriting) {
  const std::string script = make_script("both", "echo one; echo two >&2; echo three; exit 1");
  const Outcome both = run(script);
  EXPECT_EQ(both.result, -1);
  EXPECT_EQ(both.output, "one\ntwo\nthree\n");
  EXPECT_EQ(log.lines().back().text, "[cpid:" + child() + "] Process exited normally with rc=1\n");
}

TEST_F(SupervisedChild, KeepsTheMessageOfAToolThatFails) {
  const Outcome missing = run("ls /tmp/missing");
  EXPECT_EQ(missing.result, -1);
  EXPECT_NE(missing.output.find("/tmp/missing"), std::string::npos) << missing.output;
}

TEST_F(SupervisedChild, GivesTheProgramItsOwnPathAsFirstArgument) {
  const std::string script = make_script("name", "tr '\\0' ' ' < /proc/$$/cmdline");
  EXPECT_EQ(run(script + " a b").output, "/bin/sh " + script + " a b ");
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
  EXPECT_EQ(run(script, 10).output, "1\n2\n3\n4\n5");
  EXPECT_TRUE(std::filesystem::exists("/tmp/done"));
}

TEST_F(SupervisedChild, CapturesALargeOutputByteForByte) {
  std::string expected;
  for (int i = 1; i <= 200000; ++i) expected += std::to_string(i) + "\n";
  const std::string script = make_script("numbers", "seq 1 200000");
  EXPECT_EQ(run(script, 2 << 20).output, expected);
  EXPECT_EQ(run(script, expected.size() + 1).output, expected);
  expected.pop_back();
  EXPECT_EQ(run(script, expected.size() + 1).output, expected);
}

TEST_F(SupervisedChild, KeepsZeroBytesAndTerminatesBehindThem) {
  std::array<char, 8> output;
  output.fill('#');
  const std::string script = make_script("zeros", "printf 'a\\0b'");
  EXPECT_EQ(kelo_ds_system_call3(script.c_str(), 0, output.data(), output.size(), 0), 0);
  EXPECT_EQ(std::string(output.data(), 8), std::string("a\0b\0####", 8));
}

TEST_F(SupervisedChild, SucceedsWithExitCodeZeroAlone) {
  for (const int code : {1, 2, 127, 254, 255}) {
    EXPECT_EQ(run(make_script("code", "exit " + std::to_string(code))).result, -1);
    EXPECT_EQ(log.lines().back().text,
              "[cpid:" + child() + "] Process exited normally with rc=" + std::to_string(code) + "\n");
  }
}

TEST_F(SupervisedChild, FailsWhenASignalEndsTheProgram) {
  const Outcome ended = run(make_script("ended", "echo before; kill -TERM $$"));
  EXPECT_EQ(ended.result, -1);
  EXPECT_EQ(ended.output, "before\n");
  const std::string line = "(): [cpid:" + child() + "] wait_pid = 1\n";
  EXPECT_EQ(log.lines().back().text, line);
  EXPECT_EQ(log.count(LOG_LVL_INFO, kStage, line), 1);
}

TEST_F(SupervisedChild, FailsWhenTheProcessLetsTheSystemReap) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(run("echo x").output, "x\n");
  EXPECT_EQ(run("echo x").result, -1);
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
  const Outcome missing = run("/tmp/t/bin/missing");
  EXPECT_EQ(missing.result, -1);
  EXPECT_EQ(missing.output, "");
  expect_start_failure(log, ENOENT);
}

TEST_F(SupervisedChild, LogsAProgramThatMayNotBeStarted) {
  std::filesystem::create_directories("/tmp/t/bin");
  std::ofstream("/tmp/t/bin/data").put('x');
  EXPECT_EQ(run("/tmp/t/bin/data").result, -1);
  expect_start_failure(log, EACCES);
}

TEST_F(SupervisedChild, SaysNothingOfAProgramThatEndsWith255Itself) {
  EXPECT_EQ(run(make_script("code", "exit 255")).result, -1);
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(SupervisedChild, FindsNdcThroughTheSearchPath) {
  make_script("ndc", "echo ndc \"$@\"", "/tmp/one");
  const std::string system_path = getenv("PATH");
  setenv("PATH", "/tmp/none:/tmp/one:/usr/bin:/bin", 1);
  EXPECT_EQ(run("ndc network list").output, "ndc network list\n");
  setenv("PATH", "/tmp/none", 1);
  log.clear();
  EXPECT_EQ(run("ndc network list").result, -1);
  setenv("PATH", system_path.c_str(), 1);
  expect_start_failure(log, ENOENT);
}

TEST_F(SupervisedChild, RunsAScriptWithoutAnInterpreterLine) {
  EXPECT_EQ(run(make_tool("plain", "echo \"plain $1\"\n") + " x").output, "plain x\n");
}

TEST_F(SupervisedChild, LetsACommandBeSilentForASecond) { EXPECT_EQ(run("sleep 1").result, 0); }

TEST_F(SupervisedChild, KillsACommandAfterTwoSecondsOfSilence) {
  const Outcome silent = run("sleep 3");
  EXPECT_EQ(silent.result, -1);
  EXPECT_GE(silent.seconds, 2.0);
  EXPECT_LT(silent.seconds, 2.9);
  expect_killed();
  EXPECT_TRUE(WIFSIGNALED(killed_status) && WTERMSIG(killed_status) == SIGKILL);
}

TEST_F(SupervisedChild, KeepsTheOutputOfAKilledCommand) {
  const Outcome silent = run(make_script("stuck", "echo started; sleep 1; echo stuck; exec sleep 5"));
  EXPECT_EQ(silent.result, -1);
  EXPECT_EQ(silent.output, "started\nstuck\n");
  EXPECT_GE(silent.seconds, 3.0);
  EXPECT_LT(silent.seconds, 4.5);
  expect_killed();
}

TEST_F(SupervisedChild, LetsAChattyCommandLive) {
  const Outcome chatty = run(make_script("chatty", "for i in 1 2 3 4 5 6; do sleep 1; printf $i; done"));
  EXPECT_EQ(chatty.result, 0) << log.dump();
  EXPECT_EQ(chatty.output, "123456");
  EXPECT_GE(chatty.seconds, 6.0);
}

TEST_F(SupervisedChild, CountsDroppedBytesAsSignsOfLife) {
  const std::string script = make_script("chatty", "for i in 1 2 3; do sleep 1; printf $i; done");
  EXPECT_EQ(kelo_ds_system_call3(script.c_str(), 0, nullptr, 0, 0), 0) << log.dump();
}

TEST_F(SupervisedChild, CountsTheEndOfTheOutputAsASignOfLife) {
  const Outcome closed = run(make_script("closed", "sleep 1; exec > /dev/null 2>&1; sleep 1.5"));
  EXPECT_EQ(closed.result, 0) << log.dump();
  EXPECT_GE(closed.seconds, 2.5);
}

TEST_F(SupervisedChild, CountsAByteOnTheWatchPipeAsASignOfLife) {
  const Outcome kept =
      run(make_script("watch",
                      "sleep 1\n"
                      "ls -l /proc/self/fd > /tmp/list\n"
                      "number=$(sed -n 's/.* \\([0-9]*\\) -> pipe:.*/\\1/p' /tmp/list | tail -n 1)\n"
                      "[ $number -gt 2 ] && printf x > /proc/$$/fd/$number && sleep 1.5"));
  EXPECT_EQ(kept.result, 0) << log.dump();
  EXPECT_EQ(kept.output, "");
  EXPECT_GE(kept.seconds, 2.5);
}

TEST_F(SupervisedChild, WaitsForWhatTheProgramLeavesInTheBackground) {
  const Outcome left = run(make_script("left", "sleep 1.5 > /dev/null 2>&1 &\necho gone"));
  EXPECT_EQ(left.result, 0) << log.dump();
  EXPECT_EQ(left.output, "gone\n");
  EXPECT_GE(left.seconds, 1.5);
}

TEST_F(SupervisedChild, GivesUpASilentBackgroundOfAnEndedProgram) {
  const Outcome left = run(make_script("left", "sleep 30 > /dev/null 2>&1 &\necho gone"));
  EXPECT_EQ(left.result, -1);
  EXPECT_EQ(left.output, "gone\n");
  EXPECT_GE(left.seconds, 2.0);
  EXPECT_LT(left.seconds, 3.5);
  expect_killed();
  EXPECT_TRUE(WIFEXITED(killed_status)) << "it had ended before";
}

bool closes_on_exec(const std::string& descriptor) {
  return (fcntl(std::stoi(descriptor), F_GETFD) & FD_CLOEXEC) != 0;
}

std::set<std::string> listing_by_child() {
  const std::string listing = run("ls -l /proc/self/fd").output;
  std::ofstream("/tmp/list") << listing;
  return listed_descriptors("/tmp/list");
}

TEST_F(SupervisedChild, HandsDownTheStandardStreamsAndTheWatchPipeAlone) {
  std::set<std::string> before = open_descriptors();
  std::erase_if(before, [](const std::string& entry) {
    return closes_on_exec(entry) || entry.starts_with("1 ") || entry.starts_with("2 ");
  });
  std::set<std::string> listed = listing_by_child();
  std::set<std::string> added;
  std::set_difference(listed.begin(), listed.end(), before.begin(), before.end(),
                      std::inserter(added, added.end()));
  EXPECT_EQ(listed.size(), before.size() + added.size());
  ASSERT_EQ(added.size(), 3U) << testing::PrintToString(added);
  std::vector<std::string> targets;
  targets.reserve(added.size());
  for (const std::string& entry : added) targets.push_back(entry.substr(entry.find(' ') + 1));
  EXPECT_EQ(added.begin()->substr(0, 2), "1 ");
  EXPECT_EQ(std::next(added.begin())->substr(0, 2), "2 ");
  EXPECT_EQ(targets[0], targets[1]) << "output and errors do not share a pipe";
  EXPECT_NE(targets[2], targets[0]) << "the output's write end is open once more";
  EXPECT_TRUE(targets[2].starts_with("pipe:")) << targets[2];
}

TEST_F(SupervisedChild, ServesAProcessWithoutStandardStreams) {
  const auto child_result = kelo::tests::run_in_child([] {
    const int report = open("/tmp/report", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(stream);
    const std::string script =
        make_script("streams", "[ -e /proc/$$/fd/0 ] || printf 'no input,'; printf out,; printf err >&2");
    const Outcome streams = run(script);
    const std::string text = std::to_string(streams.result) + " " + streams.output;
    EXPECT_EQ(write(report, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1);
  });
  EXPECT_EQ(child_result.exit_status, 0);
  std::string text;
  std::getline(std::ifstream("/tmp/report"), text);
  EXPECT_EQ(text, "0 no input,out,err");
}

TEST_F(SupervisedChild, ServesAProcessWithMoreThan1024Descriptors) {
  limit_descriptors(2048);
  if (IsSkipped() || HasFatalFailure()) return;
  const ManyDescriptors many(1500, 0);
  ASSERT_GT(many.highest(), 1024);
  const Outcome echo = run("echo x");
  EXPECT_EQ(echo.result, 0);
  EXPECT_EQ(echo.output, "x\n");
}

TEST_F(SupervisedChild, FailsCleanlyWhenDescriptorsRunOut) {
  limit_descriptors(64);
  for (const std::size_t free : {0U, 1U, 2U, 3U}) {
    log.clear();
    {
      const ManyDescriptors many(64, free);
      EXPECT_EQ(run("echo x").result, -1);
    }
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), free < 2 ? 1U : 2U) << log.dump();
    EXPECT_EQ(lines.back().text, "ret=-1\n");
    EXPECT_EQ(lines.back().level, LOG_LVL_DBUG);
  }
  const ManyDescriptors many(64, 4);
  EXPECT_EQ(run("echo x").output, "x\n");
}

}  // namespace
