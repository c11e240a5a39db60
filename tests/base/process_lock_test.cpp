// SPDX-License-Identifier: MIT
// The lock that a forked child finds free.
#include "base/process_lock.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "tests/support/bounded_fork.hpp"

namespace {

using kelo::base::ProcessLock;
using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;

// Each of several threads adds to a plain number under the lock.
void expect_exclusion(std::int32_t& holder) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 5000;
  int sum = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const ProcessLock lock(holder);
        ++sum;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sum, kThreads * kRounds);
  EXPECT_EQ(holder, 0);
}

TEST(ProcessLock, LetsOneThreadInAtATime) {
  std::int32_t holder = 0;
  expect_exclusion(holder);
}

TEST(ProcessLock, WaitsUntilItIsReleased) {
  std::int32_t holder = 0;
  std::atomic<bool> entered = false;
  std::thread other;
  {
    const ProcessLock lock(holder);
    EXPECT_EQ(holder, getpid());
    other = std::thread([&] {
      const ProcessLock its_lock(holder);
      entered = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(entered);
  }
  other.join();
  EXPECT_TRUE(entered);
}

TEST(ProcessLock, IsFreeInAChild) {
  std::int32_t holder = 0;
  const ProcessLock lock(holder);
  EXPECT_EQ(fork_bounded([&] {
              alarm(10);
              const ProcessLock its_lock(holder);
              return holder == getpid();
            }),
            ChildEnd::good);
  EXPECT_EQ(holder, getpid());
}

// As in a child of a parent that held it.
TEST(ProcessLock, LetsOneThreadInAtATimeAfterAnotherProcessHeldIt) {
  std::int32_t holder = getppid();
  ASSERT_NE(holder, getpid());
  expect_exclusion(holder);
}

}  // namespace
