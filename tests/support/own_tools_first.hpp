// SPDX-License-Identifier: MIT
// For tests of functions that start programs by name: the test's own are found first.
#ifndef KELO_TESTS_OWN_TOOLS_FIRST_HPP
#define KELO_TESTS_OWN_TOOLS_FIRST_HPP

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/leaves_nothing.hpp"
#include "tests/support/own_tools.hpp"

namespace kelo::tests {

// Puts the folder of make_tool() in front of the path. No log line is left unexpected at the end.
class OwnToolsFirst : public LeavesNothing {
 protected:
  void SetUp() override { setenv("PATH", ("/tmp/t/bin:" + system_path_).c_str(), 1); }

  void TearDown() override {
    setenv("PATH", system_path_.c_str(), 1);
    std::filesystem::remove_all("/tmp/t");
    EXPECT_TRUE(log.lines().empty()) << log.dump();
    LeavesNothing::TearDown();
  }

 private:
  const std::string system_path_ = std::getenv("PATH");
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_OWN_TOOLS_FIRST_HPP
