// SPDX-License-Identifier: MIT
// Runs a piece of a test in a process of its own, for what a process can do only once: abort, or start up.
#ifndef KELO_TESTS_CHILD_PROCESS_HPP
#define KELO_TESTS_CHILD_PROCESS_HPP

#include <functional>
#include <string>

namespace kelo::tests {

struct ChildResult {
  int exit_status;  // -1 when a signal ended it
  int signal;       // 0 when it exited
  std::string standard_output;
  std::string standard_error;
};

// Runs `body` in a forked child and collects what it printed. The child exits with 0, or with 1 when an
// expectation failed in it. To be called while the process has one thread.
ChildResult run_in_child(const std::function<void()>& body);

}  // namespace kelo::tests

#endif  // KELO_TESTS_CHILD_PROCESS_HPP
