// Starts the program twice on the files as they are, in processes of their own, and notes what it finds.
#ifndef KELO_TOOLS_CRASH_RESTART_HPP
#define KELO_TOOLS_CRASH_RESTART_HPP

#include <sys/resource.h>

#include "tools/crash/verdict.hpp"

namespace kelo::crash {

// User and system time of a process, or of those that it has waited for.
double processor_seconds(decltype(RUSAGE_SELF) who);

class Restart {
 public:
  // `history` must outlive this. Make it early: each process that it starts is a copy of the maker as it is now,
  // and the less memory that has, the faster they start.
  explicit Restart(const History& history);
  ~Restart();
  Restart(const Restart&) = delete;
  Restart& operator=(const Restart&) = delete;

  const Findings& run(const Expected& expected);

  // What the started processes have used so far.
  double processor_seconds() const;

  // What the first process does, said by marks for a recorder as well.
  void first_run(const Expected& expected);

 private:
  struct Shared;
  [[noreturn]] void serve(int requests, int replies);
  void second_run();
  int in_process(const Expected* first);
  void read_all(Subject& subject, Readings& readings, bool say) const;

  const History& history_;
  Shared* shared_;
  Findings* findings_;
  int requests_ = -1;
  int replies_ = -1;
};

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_RESTART_HPP
