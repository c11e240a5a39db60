// SPDX-License-Identifier: MIT
// Commands in programs whose signals and streams are in any state: what their processes start with, and what the
// program learns of their end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/timer.h"
#include "tests/support/child_process.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/own_tools.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::make_script;
using kelo::tests::run_in_child;

std::uint32_t length_of(const std::string& text) { return static_cast<std::uint32_t>(text.size()); }

// Each runs a command, which may be no more than the path of a script. 0 when it learned of success.
struct Runner {
  const char* name;
  int (*run)(const std::string& command);
  bool tells_the_status;
};
constexpr std::array kRunners = {
    Runner{"system_call",
           [](const std::string& command) { return kelo_system_call(command.c_str(), length_of(command)); },
           true},
    Runner{
        "system_call_ex",
        [](const std::string& command) { return kelo_system_call_ex(command.c_str(), length_of(command)); },
        true},
    Runner{"popen_call",
           [](const std::string& command) {
             std::array<char, 64> output{};
             return kelo_popen_call(command.c_str(), output.data(), output.size());
           },
           false},
    Runner{"sqlite_system_cmd",
           [](const std::string& command) {
             std::array<char, 64> output{};
             return dm_sqlite_system_cmd(command.c_str(), output.data(), output.size());
           },
           false},
    Runner{"ds_system_call3",
           [](const std::string& command) { return kelo_ds_system_call3(command.c_str(), 0, nullptr, 0, 0); },
           true},
};

std::ostream& operator<<(std::ostream& out, const Runner& runner) { return out << runner.name; }

class Child : public kelo::tests::LeavesNothing, public testing::WithParamInterface<Runner> {
 protected:
  static int run(const std::string& command) { return GetParam().run(command); }

  static std::string signal_script() {
    return make_script("signals", "grep -E '^Sig(Blk|Ign)' /proc/self/status > /tmp/signals");
  }
};

// The signals that the last run of signal_script() found blocked and ignored. Two are the C library's own, and the
// emulator takes two more for its own use.
constexpr std::uint64_t kLibrarysOwn = kelo::tests::kEmulated ? 0x780000000 : 0x180000000;
struct Signals {
  std::uint64_t blocked = ~0ULL;
  std::uint64_t ignored = ~0ULL;

  bool operator==(const Signals&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Signals& signals) {
  return out << std::hex << signals.blocked << ' ' << signals.ignored;
}

Signals signals_of_child() {
  Signals found;
  std::ifstream file("/tmp/signals");
  std::string name;
  file >> std::hex >> name >> found.blocked >> name >> found.ignored;
  found.ignored &= ~kLibrarysOwn;
  return found;
}

constexpr Signals kNoSignals = {0, 0};

TEST_P(Child, StartsWithNoSignalBlockedAndNoneOfItsOwnIgnored) {
  const std::string script = signal_script();
  const auto ended = run_in_child([&] {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    run(script);
    EXPECT_EQ(signals_of_child(), kNoSignals);
    sigset_t still;
    sigprocmask(SIG_SETMASK, nullptr, &still);
    for (const int number : {SIGCHLD, SIGTERM, SIGPIPE}) EXPECT_EQ(sigismember(&still, number), 1);
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

TEST_P(Child, IgnoresWhatElseTheProgramIgnores) {
  const std::string script = signal_script();
  const auto ended = run_in_child([&] {
    signal(SIGHUP, SIG_IGN);
    signal(SIGQUIT, SIG_IGN);
    EXPECT_EQ(run(script), 0);
    EXPECT_EQ(signals_of_child(), (Signals{0, 1U << (SIGHUP - 1) | 1U << (SIGQUIT - 1)}));
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

TEST_P(Child, OfATimersCallbackStartsWithNoSignalBlocked) {
  static std::string script;
  script = signal_script();
  const auto ended = run_in_child([] {
    kelo::tests::Calls calls;
    kelo_timer_info timer{};
    timer.value = kelo::tests::milliseconds(1);
    timer.cb = {[](void* results) {
                  sigset_t blocked;
                  sigemptyset(&blocked);
                  sigaddset(&blocked, SIGUSR2);
                  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
                  static_cast<kelo::tests::Calls*>(results)->add(run(script));
                },
                &calls};
    kelo_timer_init();
    ASSERT_EQ(kelo_timer_create(&timer), 0);
    ASSERT_EQ(kelo_timer_start(&timer), 0);
    EXPECT_TRUE(calls.wait_for(1));
    EXPECT_EQ(calls.names(), std::vector{0});
    EXPECT_EQ(signals_of_child(), kNoSignals);
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

// It would never end if its writes only failed.
TEST_P(Child, IsEndedByAPipeThatNobodyReadsWhateverTheProgramIgnores) {
  const std::string script = make_script("chatter", "(while :; do echo x; done) | head -n 1");
  const auto ended = run_in_child([&] {
    alarm(10);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(run(script), 0);
  });
  EXPECT_EQ(ended.signal, 0) << "it never ended";
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

// The daemons' usual handler.
void reap_everything(int /*signal*/) {
  const int before = errno;
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  errno = before;
}

TEST_P(Child, IsReapedByItsCallerWhereAHandlerReapsEveryChild) {
  const auto ended = run_in_child([] {
    struct sigaction action {};
    action.sa_handler = reap_everything;
    sigaction(SIGCHLD, &action, nullptr);
    // The script ends during this handler, so that the other one comes before the program waits again.
    action.sa_handler = [](int) { std::this_thread::sleep_for(std::chrono::milliseconds(50)); };
    sigaction(SIGUSR1, &action, nullptr);
    const std::string script = make_script("quick", "kill -USR1 " + std::to_string(getpid()));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(run(script), 0) << i;
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGCHLD), 0);
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

TEST_P(Child, RunsInAProgramWithoutStandardStreams) {
  const std::string script = make_script("outputs", "echo out; echo err >&2; echo > /tmp/ran; exit 3");
  for (const std::array<bool, 3> closed : {std::array{true, true, true}, std::array{true, false, false},
                                           std::array{false, true, false}, std::array{false, false, true}}) {
    std::remove("/tmp/ran");
    const auto ended = run_in_child([&] {
      for (int stream = 0; stream < 3; ++stream) {
        if (closed[static_cast<std::size_t>(stream)]) close(stream);
      }
      const int result = run(script);
      EXPECT_EQ(result == 0, !GetParam().tells_the_status) << result;
      for (int stream = 0; stream < 3; ++stream) {
        EXPECT_TRUE(!closed[static_cast<std::size_t>(stream)] || fcntl(stream, F_GETFD) == -1);
      }
    });
    EXPECT_EQ(ended.exit_status, 0) << ended.standard_output << closed[0] << closed[1] << closed[2];
    EXPECT_TRUE(std::ifstream("/tmp/ran").is_open());
  }
}

TEST_P(Child, RunsInAProgramWhoseOutputNobodyReads) {
  const std::string script = make_script("quiet", "exit 0");
  const auto ended = run_in_child([&] {
    alarm(10);
    std::array<int, 2> full{};
    ASSERT_EQ(pipe2(full.data(), O_NONBLOCK), 0);
    const std::string filling(4096, 'x');
    while (write(full[1], filling.data(), filling.size()) > 0) {
    }
    fcntl(full[1], F_SETFL, 0);
    dup2(full[1], STDOUT_FILENO);
    dup2(full[1], STDERR_FILENO);
    const int result = run(script);
    _exit(result == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
  });
  EXPECT_EQ(ended.exit_status, 0);
}

INSTANTIATE_TEST_SUITE_P(Of, Child, testing::ValuesIn(kRunners),
                         [](const auto& runner) { return runner.param.name; });

class Interrupts : public kelo::tests::LeavesNothing {};

int runs_ended(int signal) {
  const std::string command =
      "kill -" + std::to_string(signal) + " $PPID; kill -" + std::to_string(signal) + " $$";
  return kelo_system_call(command.c_str(), length_of(command));
}

TEST_F(Interrupts, AreIgnoredByTheProgramAndNotByItsCommand) {
  for (const int number : {SIGINT, SIGQUIT}) {
    const auto ended = run_in_child([&] {
      EXPECT_EQ(runs_ended(number) & 0x7f, number);
      struct sigaction after {};
      sigaction(number, nullptr, &after);
      EXPECT_EQ(after.sa_handler, SIG_DFL);
    });
    EXPECT_EQ(ended.signal, 0) << "the program was ended";
    EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
  }
}

TEST_F(Interrupts, AreTheProgramsAgainWhenCallsOverlap) {
  const auto ended = run_in_child([] {
    signal(SIGINT, [](int) {});
    struct sigaction before {};
    sigaction(SIGINT, nullptr, &before);
    std::array<std::thread, 4> threads;
    for (std::thread& thread : threads)
      thread = std::thread([] {
        for (int i = 0; i < 10; ++i) EXPECT_EQ(kelo_system_call("kill -INT $$", 12), SIGINT);
      });
    for (std::thread& thread : threads) thread.join();
    struct sigaction after {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

}  // namespace
