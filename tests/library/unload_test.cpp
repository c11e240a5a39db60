// SPDX-License-Identifier: MIT
// A program that unloads the library does not stop its timers.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/support/emulation.hpp"

namespace {

// The worker and the handler outlive what the program thinks of as the library's end.
TEST(Unload, LeavesTheTimersRunning) {
  const std::string program = kelo::tests::shell_command(KELO_BINARY_DIR "/tests/unload_program");
  const int status = std::system((program + " '" KELO_BINARY_DIR "/libkelo_utils.so.0'").c_str());
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the line of the claim";
}

}  // namespace
