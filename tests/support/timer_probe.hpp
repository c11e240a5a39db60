// SPDX-License-Identifier: MIT
// What tests of timers share: records, the calls their callbacks report, expiries sent by hand, and a worker
// that is kept busy.
#ifndef KELO_TESTS_SUPPORT_TIMER_PROBE_HPP
#define KELO_TESTS_SUPPORT_TIMER_PROBE_HPP

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "kelo_utils/timer.h"
#include "tests/support/thread_signal.hpp"

namespace kelo::tests {

// A wait that takes this long has failed, on a machine under any load.
inline constexpr std::chrono::seconds kPatience{60};

inline constexpr kelo_timer_span kInAnHour{3600, 0};
inline constexpr kelo_timer_span milliseconds(int count) {
  return {count / 1000, count % 1000 * 1000 * 1000};
}

inline long long monotonic_now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

inline long long nanoseconds(const kelo_timer_span& span) {
  return span.tv_sec * 1'000'000'000LL + span.tv_nsec;
}

// The names that callbacks gave, in the order of their calls. It waits on a condition variable, at which the
// thread sanitizer lets signal handlers run.
class Calls {
 public:
  void add(int name) {
    const std::scoped_lock lock(mutex_);
    names_.push_back(name);
    times_.push_back(monotonic_now());
    changed_.notify_all();
  }

  // False when there are still fewer calls after all patience.
  [[nodiscard]] bool wait_for(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return names_.size() >= count; });
  }

  [[nodiscard]] std::vector<int> names() {
    const std::scoped_lock lock(mutex_);
    return names_;
  }
  [[nodiscard]] std::vector<long long> times() {
    const std::scoped_lock lock(mutex_);
    return times_;
  }
  [[nodiscard]] std::size_t count() { return names().size(); }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<int> names_;
  std::vector<long long> times_;
};

// Keeps SIGUSR1 out of the calling thread.
class BlockedSignal {
 public:
  BlockedSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
  }
  ~BlockedSignal() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignal(const BlockedSignal&) = delete;
  BlockedSignal& operator=(const BlockedSignal&) = delete;

  // Lets the handler run for one signal that pends for this thread. Inside a blocking call: elsewhere the
  // thread sanitizer puts it off.
  void let_one_in() const {
    sigset_t open = before_;
    sigdelset(&open, SIGUSR1);
    sigsuspend(&open);
  }

 private:
  sigset_t before_;
};

// Sends an expiry of `record` to the calling thread, whose handler has run when this returns.
inline void expire(kelo_timer_info* record) {
  const BlockedSignal blocked;
  ASSERT_EQ(queue_signal(gettid(), SIGUSR1, record), 0);
  blocked.let_one_in();
}

inline std::string bytes_of(const kelo_timer_info& info) {
  return {reinterpret_cast<const char*>(&info), sizeof info};
}

// A record as kelo_timer_create() leaves it, without a timer.
inline kelo_timer_info record_of(void (*handler)(void*), void* argument) {
  kelo_timer_info record{};
  record.cb = {handler, argument};
  record.magic = KELO_TIMER_MAGIC;
  return record;
}

// Returns when the worker is through with everything that reached it before. What it does at one wake-up
// before it calls callbacks, and what was pending then, takes it three rounds at most.
inline void pass_worker() {
  static Calls calls;
  static kelo_timer_info record = record_of([](void*) { calls.add(0); }, nullptr);
  for (int round = 0; round < 3; ++round) {
    const std::size_t before = calls.count();
    expire(&record);
    ASSERT_TRUE(calls.wait_for(before + 1)) << "the worker is stuck";
  }
}

// Keeps the worker in a callback from construction to release().
class HeldWorker {
 public:
  HeldWorker() {
    expire(&record_);
    EXPECT_TRUE(entered_.wait_for(1));
  }
  ~HeldWorker() {
    release();
    pass_worker();
  }
  HeldWorker(const HeldWorker&) = delete;
  HeldWorker& operator=(const HeldWorker&) = delete;

  void release() { released_.add(0); }

 private:
  void hold() {
    entered_.add(0);
    (void)released_.wait_for(1);
  }

  Calls entered_;
  Calls released_;
  kelo_timer_info record_ = record_of([](void* self) { static_cast<HeldWorker*>(self)->hold(); }, this);
};

// A record that adds its name to `calls` whenever it is called, and whose timer ends with it.
class NamedTimer {
 public:
  NamedTimer(Calls& calls, int name, kelo_timer_span value = kInAnHour, kelo_timer_span interval = {})
      : calls_(calls), name_(name) {
    info.value = value;
    info.interval = interval;
    info.cb = {[](void* self) { static_cast<NamedTimer*>(self)->call(); }, this};
  }
  ~NamedTimer() {
    if (info.state == TIMER_STATE_IDLE) return;
    kelo_timer_delete(&info);
    pass_worker();
  }
  NamedTimer(const NamedTimer&) = delete;
  NamedTimer& operator=(const NamedTimer&) = delete;

  kelo_timer_info info{};

  // Whether the system's timer is running.
  [[nodiscard]] bool is_armed() const {
    itimerspec times{};
    EXPECT_EQ(timer_gettime(info.timer_id, &times), 0);
    return times.it_value.tv_sec != 0 || times.it_value.tv_nsec != 0;
  }

 private:
  void call() { calls_.add(name_); }

  Calls& calls_;
  const int name_;
};

// Looks every millisecond; false when `done` does not become true.
template <typename Done>
bool wait_until(Done done) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  static constexpr timespec kMillisecond{0, 1'000'000};
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    nanosleep(&kMillisecond, nullptr);
  }
  return true;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_TIMER_PROBE_HPP
