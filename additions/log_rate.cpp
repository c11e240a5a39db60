// SPDX-License-Identifier: MIT
// A limit for lines that repeat: so many in each interval. The others are counted.
#include "kelo_utils/log_rate.h"

#include <time.h>

#include <cstdint>

#include "base/file.hpp"
#include "base/process_lock.hpp"

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;

// Begins an interval at `now` unless one is still running.
void begin_if_over(kelo_log_rate& rate, const timespec& now) {
  const auto seconds = static_cast<std::uint32_t>(now.tv_sec);
  const auto nanoseconds = static_cast<std::uint32_t>(now.tv_nsec);
  // The clock never runs for 2^32 seconds, and their nanoseconds have place in 64 bits.
  const std::int64_t elapsed = (seconds - rate.started_s) * kNanosecondsPerSecond +
                               (static_cast<std::int64_t>(nanoseconds) - rate.started_ns);
  if (rate.passed != 0 && elapsed < rate.interval_ms * kNanosecondsPerMillisecond) return;
  rate.started_s = seconds;
  rate.started_ns = nanoseconds;
  rate.passed = 0;
}

}  // namespace

std::int32_t kelo_log_rate_allows(kelo_log_rate* rate, std::uint32_t* left_out) {
  if (left_out != nullptr) *left_out = 0;
  if (rate == nullptr) return 1;
  const kelo::base::ErrnoKeeper keep;
  const kelo::base::ProcessLock lock(rate->holder);
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  begin_if_over(*rate, now);
  if (rate->passed >= rate->burst) {
    if (rate->left_out != UINT32_MAX) ++rate->left_out;
    return 0;
  }
  ++rate->passed;
  if (left_out != nullptr) {
    *left_out = rate->left_out;
    rate->left_out = 0;
  }
  return 1;
}
