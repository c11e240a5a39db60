// SPDX-License-Identifier: MIT
// kelo_run(): every result, captured output, the limit of time and the group that is killed.
#include "kelo_utils/run.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/descriptors.hpp"
#include "tests/support/emulation.hpp"

namespace {

using kelo::tests::kEmulated;
using kelo::tests::kEmulatorLosesTheError;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kUntouched = 77;
constexpr std::int32_t kLong = 60000;

struct Ended {
  std::int32_t result;
  std::int32_t code;
  std::string output;

  bool operator==(const Ended&) const = default;
};

void PrintTo(const Ended& run, std::ostream* out) {
  *out << run.result << ", code " << run.code << ", \"" << run.output << '"';
}

Ended run(std::vector<const char*> words, std::int32_t timeout_ms = kLong, std::size_t size = 256) {
  words.push_back(nullptr);
  std::string output(size, '#');
  std::int32_t code = kUntouched;
  const std::int32_t result =
      kelo_run(words.data(), timeout_ms, output.data(), static_cast<std::int32_t>(size), &code);
  return {result, code, output.substr(0, output.find('\0'))};
}

Ended shell(const char* script, std::int32_t timeout_ms = kLong, std::size_t size = 256) {
  return run({"/bin/sh", "-c", script}, timeout_ms, size);
}

TEST(Run, ExitCodeIsGiven) {
  for (const int code : {0, 1, 127, 255})
    EXPECT_EQ(shell(("exit " + std::to_string(code)).c_str()), (Ended{KELO_RUN_EXITED, code, ""}));
}

TEST(Run, SignalIsGiven) { EXPECT_EQ(shell("kill -15 $$"), (Ended{KELO_RUN_KILLED, SIGTERM, ""})); }

TEST(Run, WordsAreNotInterpreted) {
  EXPECT_EQ(run({"echo", "a  b", "$HOME;", "*"}), (Ended{KELO_RUN_EXITED, 0, "a  b $HOME; *\n"}));
}

TEST(Run, BothStreamsAreCaptured) {
  EXPECT_EQ(shell("echo a; echo b >&2; echo c"), (Ended{KELO_RUN_EXITED, 0, "a\nb\nc\n"}));
}

TEST(Run, OutputThatDoesNotFitIsDropped) {
  for (const std::size_t size : {2U, 4U, 5U, 6U, 7U}) {
    const Ended cut = shell("printf abcde", kLong, size);
    EXPECT_EQ(cut, (Ended{KELO_RUN_EXITED, 0, std::string("abcde").substr(0, size - 1)})) << size;
  }
  EXPECT_EQ(shell("head -c 300000 /dev/zero | tr '\\0' x; exit 3", kLong, 4),
            (Ended{KELO_RUN_EXITED, 3, "xxx"}));
}

TEST(Run, OutputMayBeLeftOut) {
  const char* const words[] = {"echo", "a", nullptr};
  char output[] = "##";
  EXPECT_EQ(kelo_run(words, kLong, nullptr, 100, nullptr), KELO_RUN_EXITED);
  EXPECT_EQ(kelo_run(words, kLong, output, 0, nullptr), KELO_RUN_EXITED);
  EXPECT_EQ(kelo_run(words, kLong, output, -1, nullptr), KELO_RUN_EXITED);
  EXPECT_STREQ(output, "##");
  EXPECT_EQ(kelo_run(words, kLong, output, 1, nullptr), KELO_RUN_EXITED);
  EXPECT_STREQ(output, "");
}

TEST(Run, InputIsEmpty) { EXPECT_EQ(run({"cat"}), (Ended{KELO_RUN_EXITED, 0, ""})); }

TEST(Run, ProgramThatIsNotThere) {
  if (kEmulated) GTEST_SKIP() << kEmulatorLosesTheError;
  EXPECT_EQ(run({"/no/such/program"}), (Ended{KELO_RUN_NOT_FOUND, kUntouched, ""}));
  EXPECT_EQ(run({"no-such-program"}), (Ended{KELO_RUN_NOT_FOUND, kUntouched, ""}));
  EXPECT_EQ(run({"/bin/sh/program"}), (Ended{KELO_RUN_NOT_FOUND, kUntouched, ""}));
}

TEST(Run, FileThatIsNoProgram) {
  if (kEmulated) GTEST_SKIP() << kEmulatorLosesTheError;
  std::ofstream("/tmp/text") << "exit 0\n";
  EXPECT_EQ(run({"/tmp/text"}), (Ended{KELO_RUN_NOT_STARTED, kUntouched, ""})) << "it may not be run";
  chmod("/tmp/text", 0755);
  EXPECT_EQ(run({"/tmp/text"}), (Ended{KELO_RUN_NOT_STARTED, kUntouched, ""})) << "it has no #!";
  std::ofstream("/tmp/text") << "#!/no/such/shell\n";
  EXPECT_EQ(run({"/tmp/text"}), (Ended{KELO_RUN_NOT_FOUND, kUntouched, ""}));
}

TEST(Run, BadArgumentsAreRefused) {
  std::int32_t code = kUntouched;
  char output[] = "##";
  const char* const empty[] = {nullptr};
  const char* const words[] = {"true", nullptr};
  EXPECT_EQ(kelo_run(nullptr, kLong, output, sizeof output, &code), KELO_RUN_BAD_ARGUMENT);
  EXPECT_EQ(kelo_run(empty, kLong, output, sizeof output, &code), KELO_RUN_BAD_ARGUMENT);
  EXPECT_EQ(run({""}), (Ended{KELO_RUN_BAD_ARGUMENT, kUntouched, ""}));
  for (const std::int32_t timeout_ms : {0, -1, INT32_MIN})
    EXPECT_EQ(kelo_run(words, timeout_ms, output, sizeof output, &code), KELO_RUN_BAD_ARGUMENT);
  EXPECT_EQ(kelo_run(words, INT32_MAX, output, sizeof output, &code), KELO_RUN_EXITED);
  EXPECT_STREQ(output, "");
}

TEST(Run, NoDescriptorIsLeft) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const std::size_t open = kelo::tests::open_descriptors().size();
  EXPECT_EQ(shell("exit 5").code, 5);
  EXPECT_EQ(shell("sleep 60", 50).result, KELO_RUN_TIMED_OUT);
  const std::int32_t missing = run({"/no/such/program"}).result;
  EXPECT_EQ(missing, kEmulated ? KELO_RUN_EXITED : KELO_RUN_NOT_FOUND);
  EXPECT_EQ(kelo::tests::open_descriptors().size(), open);
  const rlimit none{3, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(shell("exit 5"), (Ended{KELO_RUN_NOT_STARTED, kUntouched, ""}));
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Run, TimeIsLimited) {
  const auto start = Clock::now();
  EXPECT_EQ(shell("echo a; sleep 60; echo b", 300), (Ended{KELO_RUN_TIMED_OUT, kUntouched, "a\n"}));
  const auto took = Clock::now() - start;
  EXPECT_GE(took, 300ms);
  EXPECT_LT(took, 10s);
}

// Output does not prolong the run.
TEST(Run, TimeOfAProgramThatPrintsIsLimited) {
  const auto start = Clock::now();
  EXPECT_EQ(shell("while :; do echo a; done", 300, 4), (Ended{KELO_RUN_TIMED_OUT, kUntouched, "a\na"}));
  EXPECT_LT(Clock::now() - start, 10s);
}

// The descendants have a pipe open, which ends when all of them have ended.
bool group_has_ended(const char* script) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  EXPECT_EQ(shell(script, 300).result, KELO_RUN_TIMED_OUT);
  close(ends[1]);
  alarm(20);
  char byte;
  const bool ended = read(ends[0], &byte, 1) == 0;
  alarm(0);
  close(ends[0]);
  return ended;
}

TEST(Run, GroupIsKilled) { EXPECT_TRUE(group_has_ended("sleep 300 & sleep 300 & wait")); }

TEST(Run, ProgramThatLeftItsGroupIsKilled) {
  EXPECT_TRUE(group_has_ended("exec perl -e 'setpgrp(0, getpgrp(getppid())) or die; sleep 300'"));
}

TEST(Run, ProcessesLeftBehindAreNotWaitedFor) {
  const auto start = Clock::now();
  EXPECT_EQ(shell("echo a; sleep 5 & exit 4"), (Ended{KELO_RUN_EXITED, 4, "a\n"}));
  EXPECT_LT(Clock::now() - start, 4s);
}

TEST(Run, ProgramThatClosesItsOutputIsWaitedFor) {
  EXPECT_EQ(shell("echo a; exec >&- 2>&-; sleep 0.3; exit 6"), (Ended{KELO_RUN_EXITED, 6, "a\n"}));
}

TEST(Run, SignalsDoNotEndTheWait) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  const pthread_t caller = pthread_self();
  std::thread sender([caller] {
    for (int i = 0; i < 20; ++i) {
      pthread_kill(caller, SIGUSR1);
      std::this_thread::sleep_for(10ms);
    }
  });
  EXPECT_EQ(shell("sleep 0.4; echo a; exit 2"), (Ended{KELO_RUN_EXITED, 2, "a\n"}));
  sender.join();
}

TEST(Run, StatusThatIsTakenIsUnknown) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(shell("echo a; exit 2"), (Ended{KELO_RUN_UNKNOWN_END, kUntouched, "a\n"}));
}

TEST(Run, ThreadsRunProgramsAtOnce) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const std::string number = std::to_string(i);
      std::string script = "echo ";
      script.append(number).append("; exit ").append(number);
      EXPECT_EQ(shell(script.c_str()), (Ended{KELO_RUN_EXITED, i, number + "\n"}));
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
