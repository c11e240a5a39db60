// SPDX-License-Identifier: MIT
// The lock around each log line.
#ifndef KELO_LOG_LOG_LOCK_HPP
#define KELO_LOG_LOG_LOCK_HPP

#include <sys/types.h>

namespace kelo::log {

// Holds the log lock for its scope. If the calling thread already holds the lock, acquired() is false: the print
// callback runs under the lock and may log, which must neither deadlock nor release the lock early.
//
// A fork() does not wait for the lock. The lock is free in the child, except when the print callback itself has called
// fork(): then the forking thread holds it in the child, too. Fork handlers of the program may log. A thread that is
// cancelled within the scope ends after it, so the lock is always released.
class [[nodiscard]] LogLock {
 public:
  LogLock();
  ~LogLock();
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

  [[nodiscard]] bool acquired() const { return acquired_; }
  // Returns the id of the calling process.
  [[nodiscard]] static int process();

 private:
  bool acquired_ = false;
  int cancel_state_ = 0;
};

// Makes the lock and the sinks belong to the calling process. In a forked child it frees what other threads of the
// parent have held. LogLock calls it itself.
void adopt_log_state(pid_t this_process);

}  // namespace kelo::log

#endif  // KELO_LOG_LOG_LOCK_HPP
