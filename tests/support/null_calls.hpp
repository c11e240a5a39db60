// SPDX-License-Identifier: MIT
// Calls with a null argument that do nothing, silently.
#ifndef KELO_TESTS_NULL_CALLS_HPP
#define KELO_TESTS_NULL_CALLS_HPP

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "tests/support/log_capture.hpp"
#include "tests/support/stdout_capture.hpp"

namespace kelo::tests {

struct NullCall {
  const char* name;
  std::function<bool()> is_neutral;  // makes the call and tells whether the result is the neutral one
};

// Each call has a neutral result, prints and logs nothing, preserves errno, and leaves no lock shut.
inline void expect_neutral(const std::vector<NullCall>& calls, const std::function<bool()>& a_lock_is_shut) {
  const LogCapture log;
  for (const NullCall& call : calls) {
    StdoutCapture output;
    errno = EXDEV;
    const bool neutral = call.is_neutral();
    EXPECT_EQ(errno, EXDEV) << call.name;
    EXPECT_EQ(output.take(), "") << call.name;
    EXPECT_TRUE(neutral) << call.name;
    EXPECT_FALSE(a_lock_is_shut()) << call.name;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_NULL_CALLS_HPP
