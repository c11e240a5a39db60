// SPDX-License-Identifier: MIT
// What goes wrong while a history runs.
#ifndef KELO_TESTS_FAULTS_FAULT_HPP
#define KELO_TESTS_FAULTS_FAULT_HPP

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/crash/history.hpp"

namespace kelo::faults {

struct Fault {
  std::string name;
  bool may_end_process = false;  // with a message, which some operations print
  bool real_commands = false;    // the shell runs the commands of the library
  std::string leaves;            // a file that is there afterwards
  std::function<void()> begin;   // both are called in the process of the history
  std::function<void()> end;
};

// How often a history makes each call when nothing fails.
struct Calls {
  std::map<std::string, int> storage;
  int allocations = 0;
};

// Faults of one kind: the columns of the table of outcomes.
struct FaultKind {
  const char* name;
  std::vector<Fault> (*faults)(const crash::History& history, const Calls& calls);
};

const std::vector<FaultKind>& fault_kinds();

// The calls that can be made to fail, and a fault that only counts one of them.
std::vector<const char*> failing_calls();
Fault counting(const char* call, int& seen);
Fault counting_allocations(int& seen);

// The `at`-th of these calls fails, and `times` - 1 after it.
Fault failing(const char* call, int error, int at, int times);

// Kinds that need no call to be replaced.
std::vector<Fault> process_faults(const crash::History& history, const Calls& calls);
std::vector<Fault> folder_faults(const crash::History& history, const Calls& calls);
std::vector<Fault> obstacle_faults(const crash::History& history, const Calls& calls);
std::vector<Fault> content_faults(const crash::History& history, const Calls& calls);

}  // namespace kelo::faults

#endif  // KELO_TESTS_FAULTS_FAULT_HPP
