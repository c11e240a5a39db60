// SPDX-License-Identifier: MIT
// Runs a history with a fault, takes the fault away and judges what the history left.
#ifndef KELO_TESTS_FAULTS_EXPERIMENT_HPP
#define KELO_TESTS_FAULTS_EXPERIMENT_HPP

#include <set>
#include <string>
#include <vector>

#include "tests/faults/fault.hpp"
#include "tools/crash/restart.hpp"

namespace kelo::faults {

// What one fault came to.
struct Outcome {
  bool refused = false;  // the history says of a change that it was not made
  bool ended = false;    // the process ended with the stated message
  std::set<std::string> troubles =
      {};                  // the names of the crash explorer, and "leak", "crash", "hang", "gone"
  std::string story = {};  // of the troubles, for people
};

class Experiment {
 public:
  // The folders belong to the process alone. `history` must outlive this.
  explicit Experiment(const crash::History& history);

  Calls count_calls();
  Outcome run(const Fault& fault);

 private:
  struct Process;
  Process start(const Fault& fault);
  [[noreturn]] void be_daemon(const Fault& fault, int arrived, int go_on);
  void end(Process& process, const Fault& fault, Outcome& outcome);
  void judge_findings(const char* when, const crash::Expected& expected, const crash::Findings& findings,
                      const std::string& leaves, Outcome& outcome);
  std::vector<std::string> left_over() const;

  const crash::History& history_;
  crash::Restart restart_;
  crash::Image prepared_;
  std::vector<std::string> usual_names_;
};

}  // namespace kelo::faults

#endif  // KELO_TESTS_FAULTS_EXPERIMENT_HPP
