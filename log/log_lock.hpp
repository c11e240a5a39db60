// The lock around each log line.
#ifndef KELO_LOG_LOG_LOCK_HPP
#define KELO_LOG_LOG_LOCK_HPP

namespace kelo::log {

// Holds the log lock for its scope, unless the calling thread holds it already: code that runs under the lock
// (the print callback) and calls back into the log facility must neither deadlock nor release it early.
//
// A fork() waits for the line being written, so that the child never inherits the lock from a thread it does
// not have. Fork handlers of the program may log, whether they run outside the lock's own or inside them. A
// cancelled thread ends behind the scope, not in it, so that it takes no lock with it.
class [[nodiscard]] LogLock {
 public:
  LogLock();
  ~LogLock();
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

  [[nodiscard]] bool acquired() const { return acquired_; }
  [[nodiscard]] int process() const { return process_; }

 private:
  int process_;
  bool acquired_ = false;
  int cancel_state_ = 0;
};

}  // namespace kelo::log

#endif  // KELO_LOG_LOG_LOCK_HPP
