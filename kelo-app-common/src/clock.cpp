// SPDX-License-Identifier: MIT
// Reads the monotonic clock, the wall clock and the time since boot.
#include <sys/sysinfo.h>
#include <time.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "base/file.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

constexpr std::int32_t kMicrosecondsPerSecond = 1000000;
constexpr std::int32_t kNanosecondsPerMicrosecond = 1000;

void store(const timespec& reading, kelo_clk_time* out) {
  out->seconds = static_cast<std::int32_t>(reading.tv_sec);
  out->microseconds = static_cast<std::int32_t>(reading.tv_nsec / kNanosecondsPerMicrosecond);
}

}  // namespace

kelo_clk_time* kelo_clk_GetRelativeTime(kelo_clk_time* out) {
  if (out == nullptr) {
    kelo::log::param_null(__func__);
    return nullptr;
  }
  timespec reading{};
  if (clock_gettime(CLOCK_MONOTONIC, &reading) != 0) {
    const kelo::base::ErrnoKeeper errno_keeper;
    std::fprintf(stdout, "clock_gettime() failed. errno = %d (%m)\n", errno);
  }
  store(reading, out);
  return out;
}

kelo_clk_time* kelo_clk_GetAbsoluteTime(kelo_clk_time* out) {
  if (out == nullptr) {
    kelo::log::param_null(__func__);
    return nullptr;
  }
  timespec reading{};
  if (clock_gettime(CLOCK_REALTIME, &reading) != 0)
    KELO_LOG(LOG_LVL_CRT, "CLOCK_REALTIME is not supported for Absolute time\n");
  store(reading, out);
  return out;
}

kelo_clk_time* kelo_clk_Add(kelo_clk_time* out, kelo_clk_time a, kelo_clk_time b) {
  if (out == nullptr) {
    kelo::log::param_null(__func__);
    return nullptr;
  }
  std::int64_t seconds = std::int64_t{a.seconds} + b.seconds;
  std::int64_t microseconds = std::int64_t{a.microseconds} + b.microseconds;
  if (microseconds >= kMicrosecondsPerSecond) {
    ++seconds;
    microseconds -= kMicrosecondsPerSecond;
  }
  out->seconds = static_cast<std::int32_t>(seconds);
  out->microseconds = static_cast<std::int32_t>(microseconds);
  return out;
}

std::int32_t get_linuxuptime() {
  struct sysinfo info {};
  sysinfo(&info);
  KELO_LOG(LOG_LVL_INFO, "info.uptime is %ld\n", info.uptime);
  return static_cast<std::int32_t>(info.uptime);
}
