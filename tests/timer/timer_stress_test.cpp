// SPDX-License-Identifier: MIT
// The timer service in a daemon whose other threads never stop allocating and logging: every expiry gets its
// callback, and none comes early.
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/background_loggers.hpp"
#include "tests/support/thread_signal.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::wait_until;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int kTimers = 10000;
constexpr int kFewestTimers = 1000;
constexpr int kLoaders = 4;

// How long the timers are under stress: KELO_STRESS_SECONDS, or a few seconds.
seconds stress_time() {
  const char* const wanted = std::getenv("KELO_STRESS_SECONDS");
  return seconds(wanted == nullptr ? 6 : std::strtol(wanted, nullptr, 10));
}

kelo_timer_span as_span(nanoseconds time) {
  const auto whole = std::chrono::duration_cast<seconds>(time);
  return {static_cast<std::int32_t>(whole.count()), static_cast<std::int32_t>((time - whole).count())};
}

// --- What goes on besides -----------------------------------------------------------------------------

std::atomic<long> lines{0};
std::array<pid_t, kLoaders> loaders;
std::atomic<std::size_t> loaders_known{0};

void load() {
  thread_local std::size_t step = 0;
  if (step == 0) loaders.at(loaders_known++) = gettid();
  std::array<std::unique_ptr<char[]>, 8> blocks;
  for (auto& block : blocks) block = std::make_unique<char[]>(16 + ++step * 97 % 5000);
  KELO_LOG(LOG_LVL_INFO, "step %zu\n", step);
}

// --- Timers that all expire together ------------------------------------------------------------------

// Each is started again only after its callback was made.
class OneShots {
 public:
  // Creates as many as the machine allows, up to `count`.
  explicit OneShots(int count) {
    while (std::ssize(shots_) < count) {
      Shot& shot = shots_.emplace_back(*this);
      if (kelo_timer_create(&shot.info) == 0) continue;
      shots_.pop_back();
      // Room for the timers that others create anew, and for the signals sent.
      for (int i = 0; i < 100 && !shots_.empty(); ++i) {
        kelo_timer_delete(&shots_.back().info);
        shots_.pop_back();
      }
      return;
    }
  }
  ~OneShots() {
    for (Shot& shot : shots_) kelo_timer_delete(&shot.info);
  }
  OneShots(const OneShots&) = delete;
  OneShots& operator=(const OneShots&) = delete;

  [[nodiscard]] int count() const { return static_cast<int>(std::ssize(shots_)); }

  // All expire at one instant, unless it takes longer than ever to start them, and each gets its callback.
  void run_round() {
    ++rounds_;
    called_ = 0;
    for (Shot& shot : shots_) shot.called_this_round = false;
    const auto begin = steady_clock::now();
    const auto due = begin + lead_;
    for (Shot& shot : shots_) shot.start(due);
    const auto armed = steady_clock::now();
    rounds_together_ += armed < due;
    lead_ = 2 * (armed - begin) + milliseconds(10);
    ASSERT_TRUE(wait_until([this] { return called_ == count(); })) << called_ << " of " << count();
  }

  void check() {
    testing::Test::RecordProperty("rounds", rounds_);
    testing::Test::RecordProperty("rounds_together", rounds_together_);
    for (Shot& shot : shots_) {
      ASSERT_EQ(shot.starts_failed, 0);
      ASSERT_GE(shot.calls, rounds_);
      ASSERT_LE(shot.calls, shot.starts);
      ASSERT_EQ(shot.starts, rounds_);
      ASSERT_EQ(shot.early, 0);
      ASSERT_GT(rounds_together_, 0);
    }
  }

 private:
  struct Shot {
    explicit Shot(OneShots& all) : owner(all) { info.cb = {called, this}; }

    void start(steady_clock::time_point due) {
      const auto now = steady_clock::now();
      const nanoseconds left = std::max<nanoseconds>(due - now, nanoseconds(1));
      info.value = as_span(left);
      not_before = now + left;
      ++starts;
      starts_failed += kelo_timer_start(&info) != 0;
    }
    static void called(void* arg) {
      auto* const shot = static_cast<Shot*>(arg);
      shot->early += steady_clock::now() < shot->not_before.load();
      ++shot->calls;
      shot->owner.called_ += !shot->called_this_round.exchange(true);
    }

    kelo_timer_info info{};
    OneShots& owner;
    std::atomic<steady_clock::time_point> not_before;
    int starts = 0;
    int starts_failed = 0;
    std::atomic<int> calls{0};
    std::atomic<int> early{0};
    std::atomic<bool> called_this_round{false};
  };

  std::deque<Shot> shots_;
  std::atomic<int> called_{0};           // shots of this round
  nanoseconds lead_ = milliseconds(50);  // from the start of the first timer to the expiry of all
  int rounds_ = 0;
  int rounds_together_ = 0;
};

// --- Periodic timers ----------------------------------------------------------------------------------

class Periodic {
 public:
  explicit Periodic(nanoseconds period) : period_(period), started_(steady_clock::now()) {
    info_.value = info_.interval = as_span(period);
    info_.cb = {called, this};
    EXPECT_EQ(kelo_timer_create(&info_), 0);
    EXPECT_EQ(kelo_timer_start(&info_), 0);
  }

  // Its calls end with the stop, but for one that waits.
  void stop_and_check() {
    EXPECT_TRUE(wait_until([this] { return calls_ >= 1; }));
    EXPECT_EQ(kelo_timer_stop(&info_), 0);
    EXPECT_EQ(early_, 0);
    EXPECT_LE(calls_, (steady_clock::now() - started_) / period_);
    EXPECT_EQ(kelo_timer_delete(&info_), 0);
  }

 private:
  static void called(void* arg) {
    auto* const timer = static_cast<Periodic*>(arg);
    timer->early_ += steady_clock::now() < timer->started_ + ++timer->calls_ * timer->period_;
  }

  kelo_timer_info info_{};
  const nanoseconds period_;
  const steady_clock::time_point started_;
  std::atomic<int> calls_{0};
  std::atomic<int> early_{0};
};

// --- Timers driven by their own callback --------------------------------------------------------------

std::atomic<bool> driving{true};

class SelfDriven {
 public:
  SelfDriven() { renew(); }

  // Its last callback, made once `driving` is false, deletes the timer.
  void check() {
    EXPECT_TRUE(wait_until([this] { return ended_.load(); }));
    EXPECT_EQ(failures_, 0);
    EXPECT_GE(calls_, 5);
    EXPECT_EQ(calls_, starts_);
  }

 private:
  static void called(void* arg) { static_cast<SelfDriven*>(arg)->step(); }

  void expect_done(int result) { failures_ += result != 0; }

  void step() {
    kelo_timer_info* const info = info_.get();
    const int call = ++calls_;
    if (!driving && call >= 5) {
      expect_done(kelo_timer_delete(info));
      info_.reset();
      ended_ = true;
      return;
    }
    switch (call % 5) {
      case 0:
        start();
        break;
      case 1:
        ++starts_;
        expect_done(kelo_timer_settime(info));
        break;
      case 2:
        expect_done(kelo_timer_stop(info));
        start();
        break;
      case 3:
        expect_done(kelo_timer_delete(info));
        expect_done(kelo_timer_create(info));
        start();
        break;
      default:
        expect_done(kelo_timer_delete(info));
        renew();
    }
  }

  void start() {
    ++starts_;
    expect_done(kelo_timer_start(info_.get()));
  }

  // Lets go of the record: the expiry of a new one brings the next callback.
  void renew() {
    info_ = std::make_unique<kelo_timer_info>();
    info_->value = as_span(milliseconds(1) + nanoseconds(starts_ * 7919 % 1000000));
    info_->cb = {called, this};
    expect_done(kelo_timer_create(info_.get()));
    start();
  }

  std::unique_ptr<kelo_timer_info> info_;
  std::atomic<int> starts_{0};
  std::atomic<int> calls_{0};
  std::atomic<int> failures_{0};
  std::atomic<bool> ended_{false};
};

// --- Signals sent to chosen threads -------------------------------------------------------------------

// Sends the signals of some records' expiries to one thread after the other.
class Sender {
 public:
  explicit Sender(std::deque<pid_t> threads) : threads_(std::move(threads)) {
    for (kelo_timer_info& info : infos_) {
      info.cb = {[](void* calls) { ++*static_cast<std::atomic<int>*>(calls); }, &calls_.at(index_of(info))};
      EXPECT_EQ(kelo_timer_create(&info), 0);
    }
    thread_ = std::thread([this] { send(); });
  }

  void stop() {
    stop_ = true;
    thread_.join();
  }

  // Each was called, no more often than it was sent, and would be called again.
  void check() {
    for (kelo_timer_info& info : infos_) {
      const std::atomic<int>& calls = calls_.at(index_of(info));
      const int before = calls;
      EXPECT_GE(before, 1);
      EXPECT_LE(before, sends_.at(index_of(info)));
      kelo::tests::expire(&info);
      EXPECT_TRUE(wait_until([&] { return calls > before; }));
      EXPECT_EQ(kelo_timer_delete(&info), 0);
    }
  }

 private:
  std::size_t index_of(const kelo_timer_info& info) {
    return static_cast<std::size_t>(&info - infos_.data());
  }

  void send() {
    for (std::size_t turn = 0; !stop_; ++turn) {
      const std::size_t index = turn % infos_.size();
      ++sends_.at(index);
      const pid_t thread = threads_[turn / infos_.size() % threads_.size()];
      if (kelo::tests::queue_signal(thread, SIGUSR1, &infos_.at(index)) != 0) {
        --sends_.at(index);  // the machine has no room for one more signal
      }
      if (turn % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }

  std::deque<pid_t> threads_;
  std::array<kelo_timer_info, 3> infos_{};
  std::array<std::atomic<int>, 3> calls_{};
  std::array<std::atomic<int>, 3> sends_{};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

pid_t worker_thread() {
  static pid_t worker = 0;
  static kelo::tests::Calls calls;
  static kelo_timer_info info{};
  info.cb.handler = [](void*) {
    worker = gettid();
    calls.add(0);
  };
  info.value.tv_nsec = 1;
  EXPECT_EQ(kelo_timer_create(&info), 0);
  EXPECT_EQ(kelo_timer_start(&info), 0);
  EXPECT_TRUE(calls.wait_for(1));
  EXPECT_EQ(kelo_timer_delete(&info), 0);
  return worker;
}

TEST(TimerStress, EveryExpiryGetsItsCallback) {
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char*) { lines.fetch_add(1, std::memory_order_relaxed); });
  kelo_timer_init();
  OneShots shots(kTimers);
  const std::string limit = "this machine allows " + std::to_string(shots.count()) + " timers only";
  if (shots.count() < kFewestTimers) GTEST_SKIP() << limit;
  if (shots.count() < kTimers) std::cout << limit << "\n";
  std::deque<pid_t> targets{worker_thread()};
  std::optional<kelo::tests::BackgroundLoggers> background(std::in_place, kLoaders, load);
  targets.insert(targets.end(), loaders.begin(), loaders.end());

  Sender sender(targets);
  std::deque<Periodic> periodics;
  for (int i = 0; i < 16; ++i) periodics.emplace_back(std::chrono::microseconds(1000 + i * 1300));
  std::deque<SelfDriven> self_driven(32);
  const auto end = steady_clock::now() + stress_time();
  do {
    ASSERT_NO_FATAL_FAILURE(shots.run_round());
  } while (steady_clock::now() < end);

  driving = false;
  for (SelfDriven& timer : self_driven) timer.check();
  for (Periodic& timer : periodics) timer.stop_and_check();
  sender.stop();
  background.reset();  // a thread takes the signals that pend for it before it ends
  kelo::tests::pass_worker();
  sender.check();
  shots.check();
  EXPECT_GT(lines, 0);
}

}  // namespace
