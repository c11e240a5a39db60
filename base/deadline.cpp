// SPDX-License-Identifier: MIT
// Adds and compares times as seconds and nanoseconds, which needs no 64-bit division.
#include "base/deadline.hpp"

#include <cerrno>

namespace kelo::base {
namespace {

constexpr long kNanosecondsPerSecond = 1'000'000'000;
constexpr long kNanosecondsPerMillisecond = 1'000'000;
constexpr unsigned kMicrosecondsPerSecond = 1'000'000;

timespec now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time;
}

timespec later(timespec time, unsigned microseconds) {
  time.tv_sec += static_cast<time_t>(microseconds / kMicrosecondsPerSecond);
  time.tv_nsec += static_cast<long>(microseconds % kMicrosecondsPerSecond * 1000);
  if (time.tv_nsec < kNanosecondsPerSecond) return time;
  return {time.tv_sec + 1, time.tv_nsec - kNanosecondsPerSecond};
}

bool before(const timespec& time, const timespec& other) {
  return time.tv_sec < other.tv_sec || (time.tv_sec == other.tv_sec && time.tv_nsec < other.tv_nsec);
}

}  // namespace

Deadline::Deadline(unsigned milliseconds) : end_(later(now(), milliseconds * 1000)) {}

bool Deadline::pause(unsigned microseconds) const {
  const timespec start = now();
  if (!before(start, end_)) return false;
  const timespec until = later(start, microseconds);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
  return true;
}

int Deadline::milliseconds_left() const {
  const timespec time = now();
  if (!before(time, end_)) return 0;
  const auto seconds = static_cast<int>(end_.tv_sec - time.tv_sec);
  const long rest = end_.tv_nsec - time.tv_nsec + kNanosecondsPerSecond + kNanosecondsPerMillisecond - 1;
  return (seconds - 1) * 1000 + static_cast<int>(rest / kNanosecondsPerMillisecond);
}

}  // namespace kelo::base
