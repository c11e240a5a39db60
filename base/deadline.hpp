// A point in monotonic time until which something is waited for.
#ifndef KELO_BASE_DEADLINE_HPP
#define KELO_BASE_DEADLINE_HPP

#include <time.h>

#include <cerrno>
#include <cstdint>

namespace kelo::base {

class Deadline {
 public:
  explicit Deadline(std::int64_t milliseconds) : end_(now() + milliseconds * kPerMillisecond) {}

  [[nodiscard]] bool over() const { return now() >= end_; }

  // Sleeps for `microseconds`, however many signals arrive meanwhile. False, without a sleep, when the time is
  // over.
  [[nodiscard]] bool pause(std::int64_t microseconds) const {
    constexpr std::int64_t kPerMicrosecond = 1000;
    const std::int64_t start = now();
    if (start >= end_) return false;
    const std::int64_t wake = start + microseconds * kPerMicrosecond;
    const timespec until = {static_cast<time_t>(wake / kPerSecond), static_cast<long>(wake % kPerSecond)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    return true;
  }

 private:
  static constexpr std::int64_t kPerSecond = 1'000'000'000;
  static constexpr std::int64_t kPerMillisecond = 1'000'000;

  static std::int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kPerSecond + time.tv_nsec;
  }

  std::int64_t end_;  // nanoseconds
};

}  // namespace kelo::base

#endif  // KELO_BASE_DEADLINE_HPP
