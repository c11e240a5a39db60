// Starts the program twice on the files as they are, in processes of their own, and notes what it finds.
#ifndef KELO_TOOLS_CRASH_RESTART_HPP
#define KELO_TOOLS_CRASH_RESTART_HPP

#include "tools/crash/verdict.hpp"

namespace kelo::crash {

class Restart {
 public:
  // `history` must outlive this.
  explicit Restart(const History& history);
  ~Restart();
  Restart(const Restart&) = delete;
  Restart& operator=(const Restart&) = delete;

  const Findings& run(const Expected& expected);

  // What the first process does, said by marks for a recorder as well.
  void first_run(const Expected& expected);

 private:
  void second_run();
  int in_process(void (Restart::*body)(const Expected&), const Expected& expected);
  void second_run_only(const Expected&) { second_run(); }
  void read_all(Subject& subject, Readings& readings, bool say) const;

  const History& history_;
  Findings* findings_;
};

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_RESTART_HPP
