// SPDX-License-Identifier: MIT
// Runs supervised commands for the tests of what becomes of them.
#ifndef KELO_TESTS_SUPERVISED_RUN_HPP
#define KELO_TESTS_SUPERVISED_RUN_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "tests/support/leaves_nothing.hpp"

namespace kelo::tests {

// The function name of every line about a running command.
inline constexpr char kSupervisedStage[] = "oem_ds_exec_internal";

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Outcome {
  int result;
  std::string output;
  double seconds;
};

// Runs a command with room for `size` bytes of output, terminator included.
inline Outcome run_supervised(const std::string& command, std::size_t size = 4096) {
  std::vector<char> output(size);
  const auto start = Clock::now();
  const int result =
      kelo_ds_system_call3(command.c_str(), 0, output.data(), static_cast<std::int32_t>(size), 0);
  return {result, output.data(), seconds_since(start)};
}

class SupervisedRun : public LeavesNothing {
 protected:
  // Id of the child that the log names last, as text.
  [[nodiscard]] std::string child() const {
    std::string id;
    for (const auto& line : log.lines()) {
      if (line.text.starts_with("[cpid:")) id = line.text.substr(6, line.text.find(']') - 6);
    }
    return id;
  }
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPERVISED_RUN_HPP
