// SPDX-License-Identifier: MIT
// Commands of two threads, when the second thread runs its whole command after any action that the first one sets.
#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <thread>
#include <utility>

#include "kelo_utils/app_os_al.h"
#include "tests/support/child_process.hpp"

using SetAction = int(int signal, const struct sigaction* action, struct sigaction* before);
SetAction set_action asm("__real_sigaction");
SetAction set_and_go_on asm("__wrap_sigaction");

namespace {

std::function<void()> meanwhile;  // runs once, after the set that is due
int sets_before = 0;

}  // namespace

int set_and_go_on(int signal, const struct sigaction* action, struct sigaction* before) {
  const int result = set_action(signal, action, before);
  if (action != nullptr && meanwhile && sets_before-- == 0) std::exchange(meanwhile, nullptr)();
  return result;
}

namespace {

int interrupt_the_command() { return kelo_system_call("kill -INT $$", 12); }

class SystemCallInterrupts : public testing::TestWithParam<int> {};

TEST_P(SystemCallInterrupts, EndTheCommandOfEachThread) {
  const auto ended = kelo::tests::run_in_child([] {
    int other = -1;
    sets_before = GetParam();
    meanwhile = [&other] { std::thread([&other] { other = interrupt_the_command(); }).join(); };
    EXPECT_EQ(interrupt_the_command(), SIGINT);
    EXPECT_EQ(meanwhile, nullptr) << "no action was set so often";
    EXPECT_EQ(other, SIGINT);
    struct sigaction after {};
    set_action(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, SIG_DFL);
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

INSTANTIATE_TEST_SUITE_P(AfterSet, SystemCallInterrupts,
                         testing::Range(0, 4));  // two signals, ignored and restored

}  // namespace
