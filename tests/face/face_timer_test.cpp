// SPDX-License-Identifier: MIT
// Timers of the C++ face: what they call, how they move, and where they may be destroyed.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelo_utils/kelo.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::Timer;
using kelo::tests::Calls;
using kelo::tests::kEmulated;
using kelo::tests::pass_worker;
using kelo::tests::wait_until;
using namespace std::chrono_literals;

constexpr int kRefused = -1;

// The emulator has 32 timers, and an ended one takes one of them until the worker has passed it.
template <class Callable>
bool begins(Timer& timer, std::chrono::nanoseconds period, const Callable& callable) {
  const auto begin = [&] { return timer.every(period, callable).ok(); };
  return kEmulated ? wait_until(begin) : begin();
}

class FaceTimer : public testing::Test {
 protected:
  void SetUp() override { kelo_timer_init(); }

  Calls calls_;
};

TEST_F(FaceTimer, CallsOnce) {
  Timer timer;
  EXPECT_FALSE(timer);
  EXPECT_TRUE(timer.once(1ms, [&] { calls_.add(1); }));
  EXPECT_TRUE(timer);
  EXPECT_TRUE(calls_.wait_for(1));
  EXPECT_EQ(timer.remaining().value(), 0ns);
  EXPECT_TRUE(timer.running());
  EXPECT_TRUE(timer.start());
  EXPECT_TRUE(calls_.wait_for(2));
}

TEST_F(FaceTimer, ADelayOfZeroIsAtOnce) {
  Timer timer;
  EXPECT_TRUE(timer.once(0ms, [&] { calls_.add(1); }));
  EXPECT_TRUE(calls_.wait_for(1));
}

TEST_F(FaceTimer, CallsAgainAndAgain) {
  Timer timer;
  EXPECT_TRUE(timer.every(1ms, [&, count = 0]() mutable { calls_.add(++count); }));
  EXPECT_TRUE(calls_.wait_for(3));
  EXPECT_TRUE(timer.stop());
  EXPECT_FALSE(timer.running());
  EXPECT_EQ(timer.stop().code(), kRefused);
  EXPECT_EQ(calls_.names()[2], 3);
}

TEST_F(FaceTimer, HasAFirstTimeAndAPeriod) {
  Timer timer;
  EXPECT_TRUE(timer.every(1h, 1ms, [] {}));
  EXPECT_GT(timer.remaining().value(), 59min);
  EXPECT_LE(timer.remaining().value(), 1h);
  EXPECT_TRUE(timer.start()) << "remaining() must not change the times";
  EXPECT_GT(timer.remaining().value(), 59min);
}

TEST_F(FaceTimer, RefusesTimes) {
  Timer timer;
  EXPECT_EQ(timer.once(-1ns, [] {}).code(), kRefused);
  EXPECT_FALSE(timer);
  EXPECT_EQ(timer.once(std::chrono::seconds(INT32_MAX), [] {}).code(), kRefused);
  EXPECT_EQ(timer.every(0ns, [] {}).code(), kRefused);
  EXPECT_EQ(timer.every(1ms, 0ns, [] {}).code(), kRefused);
  EXPECT_EQ(timer.every(0ms, 1ms, [] {}).code(), kRefused);
  EXPECT_EQ(timer.start().code(), kRefused);
  EXPECT_EQ(timer.remaining().code(), kRefused);
  EXPECT_TRUE(timer.once(std::chrono::seconds(INT32_MAX) - 1ns, [] {}));
}

TEST_F(FaceTimer, Moves) {
  static_assert(!std::is_copy_constructible_v<Timer> && !std::is_copy_assignable_v<Timer>);
  std::vector<Timer> timers;
  for (int i = 0; i < 5; ++i) {
    Timer timer;
    EXPECT_TRUE(timer.once(20ms, [&, i] { calls_.add(i); }));
    timers.push_back(std::move(timer));
    // NOLINTNEXTLINE(bugprone-use-after-move): what is left after a move is part of the interface
    EXPECT_FALSE(timer);
    EXPECT_FALSE(timer.running());
  }
  timers[0] = std::move(timers[4]);
  EXPECT_TRUE(calls_.wait_for(4));
  timers.clear();
  pass_worker();
  EXPECT_EQ(calls_.count(), 4U);
}

TEST_F(FaceTimer, IsDestroyedInItsCallback) {
  const auto token = std::make_shared<int>(0);
  std::optional<Timer> timer(std::in_place);
  EXPECT_TRUE(timer->every(1us, [&, token] {
    timer.reset();
    ++*token;  // the callable lives until it has returned
    calls_.add(1);
  }));
  EXPECT_TRUE(calls_.wait_for(1));
  EXPECT_TRUE(wait_until([&] { return token.use_count() == 1; }));
  pass_worker();
  EXPECT_EQ(calls_.count(), 1U);
}

TEST_F(FaceTimer, BeginsAnewInItsCallback) {
  Timer timer;
  EXPECT_TRUE(timer.once(1ms, [&] {
    calls_.add(1);
    EXPECT_TRUE(timer.once(1ms, [&] { calls_.add(2); }));
  }));
  EXPECT_TRUE(calls_.wait_for(2));
  EXPECT_EQ(calls_.names(), (std::vector{1, 2}));
}

TEST_F(FaceTimer, IsDestroyedInAnotherCallback) {
  const auto token = std::make_shared<int>(0);
  std::optional<Timer> victim(std::in_place);
  EXPECT_TRUE(victim->every(1us, [token] { ++*token; }));
  Timer other;
  EXPECT_TRUE(other.once(1ms, [&] {
    victim.reset();
    calls_.add(static_cast<int>(token.use_count()));
  }));
  EXPECT_TRUE(calls_.wait_for(1));
  EXPECT_EQ(calls_.names(), std::vector{1});
}

TEST_F(FaceTimer, IsDestroyedInARecordsCallback) {
  static std::optional<Timer> victim;
  static Calls calls;
  EXPECT_TRUE(victim.emplace().every(1us, [] {}));
  kelo_timer_info record{};
  record.value = kelo::tests::milliseconds(1);
  record.cb = {[](void*) {
                 victim.reset();
                 calls.add(1);
               },
               nullptr};
  EXPECT_EQ(kelo_timer_create(&record), 0);
  EXPECT_EQ(kelo_timer_start(&record), 0);
  EXPECT_TRUE(calls.wait_for(1));
  kelo_timer_delete(&record);
  pass_worker();
}

// When the destructor has returned nothing of the callable runs any more.
TEST_F(FaceTimer, TheEndWaitsForTheCallback) {
  for (int i = 0; i < 300; ++i) {
    auto alive = std::make_unique<int>(i);
    Timer timer;
    EXPECT_TRUE(begins(timer, 1us, [&alive] {
      EXPECT_NE(alive, nullptr);
      std::this_thread::yield();
      EXPECT_GE(*alive, 0);
    }));
    if (i % 3 == 0) std::this_thread::sleep_for(100us);
    timer.end();
    alive.reset();
  }
  pass_worker();
}

TEST_F(FaceTimer, TheEndWaitsForNoOtherCallback) {
  kelo::tests::HeldWorker held;
  Timer timer;
  EXPECT_TRUE(timer.every(1us, [&] { calls_.add(1); }));
  timer.end();
  held.release();
  pass_worker();
  EXPECT_EQ(calls_.count(), 0U);
}

TEST_F(FaceTimer, ManyThreadsEndTheirs) {
  std::atomic<int> called{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        Timer timer;
        EXPECT_TRUE(begins(timer, 10us, [&] { ++called; }));
        Timer second = std::move(timer);
        EXPECT_TRUE(second.start());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const int before = called;
  pass_worker();
  EXPECT_EQ(called, before);
}

TEST_F(FaceTimer, AChildDestroysThoseOfItsParent) {
  Timer timer;
  EXPECT_TRUE(timer.every(1us, [&] { calls_.add(1); }));
  EXPECT_TRUE(calls_.wait_for(1));
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    timer.end();
    _exit(timer ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(timer.running());
}

}  // namespace
