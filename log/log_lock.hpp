// The lock around each log line.
#ifndef KELO_LOG_LOG_LOCK_HPP
#define KELO_LOG_LOG_LOCK_HPP

#include <sys/types.h>

namespace kelo::log {

// Holds the log lock for its scope, unless the calling thread holds it already: code that runs under the lock
// (the print callback) and calls back into the log facility must neither deadlock nor release it early.
//
// No fork() waits for the lock. A child finds it free, whichever thread of the parent held it; only a thread that forked
// while it held the lock itself (from the print callback) holds it in the child, too. Fork handlers of the program may
// log. A cancelled thread ends after the scope, not in it, so that it takes no lock with it.
class [[nodiscard]] LogLock {
 public:
  LogLock();
  ~LogLock();
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

  [[nodiscard]] bool acquired() const { return acquired_; }
  // The number of the calling process.
  [[nodiscard]] static int process();

 private:
  bool acquired_ = false;
  int cancel_state_ = 0;
};

// Makes the lock and the sinks those of the calling process: in a child of fork(), frees what threads that the child
// does not have held. A LogLock does this itself.
void settle_in(pid_t this_process);

}  // namespace kelo::log

#endif  // KELO_LOG_LOG_LOCK_HPP
