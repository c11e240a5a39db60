// SPDX-License-Identifier: MIT
// Starts the program twice on the files as they are, in processes of their own, and notes what it finds.
#ifndef KELO_TOOLS_CRASH_RESTART_HPP
#define KELO_TOOLS_CRASH_RESTART_HPP

#include <sys/resource.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "tools/crash/verdict.hpp"

namespace kelo::crash {

// User and system time of a process, or of those that it has waited for.
double processor_seconds(decltype(RUSAGE_SELF) who);

// Descriptors that the process has open.
int open_descriptors();

class Restart {
 public:
  // `history` must outlive this. Construct it early: each process that it starts is a copy of the present process, and
  // starts faster the less memory that has.
  explicit Restart(const History& history);
  ~Restart();
  Restart(const Restart&) = delete;
  Restart& operator=(const Restart&) = delete;

  // The second process depends on the files alone: it is started once for all first processes that end with the
  // same files.
  const Findings& run(const Expected& expected);

  // What the last process found, or what a process finds that calls first_run() itself.
  const Findings& findings() const { return *findings_; }

  // What the started processes have used so far.
  double processor_seconds() const;

  // What the first process does. It sets marks, for a recorder.
  void first_run(const Expected& expected);

 private:
  struct Shared;
  // What a second process found.
  struct SecondStart {
    std::vector<Reading> readings;
    std::string fault;
  };
  [[noreturn]] void serve(int requests, int replies);
  void ask(char request);
  void second_start();
  void second_run();
  int in_process(const Expected* first);
  void read_all(Subject& subject, Readings& readings, bool say) const;

  const History& history_;
  Shared* shared_;
  Findings* findings_;
  int requests_ = -1;
  int replies_ = -1;
  std::unordered_map<std::uint64_t, SecondStart> second_starts_;  // by the hash of the files
};

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_RESTART_HPP
