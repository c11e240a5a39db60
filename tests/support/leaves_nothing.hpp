// SPDX-License-Identifier: MIT
// For tests of functions that start programs: they leave no process and no descriptor.
#ifndef KELO_TESTS_LEAVES_NOTHING_HPP
#define KELO_TESTS_LEAVES_NOTHING_HPP

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <set>
#include <string>

#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

// Each test ends with the descriptors that it began with and without a child, running or not reaped.
class LeavesNothing : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_before_);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  }

  LogCapture log;

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_LEAVES_NOTHING_HPP
