// SPDX-License-Identifier: MIT
// The two sinks that use locks of the C library: standard output and syslog(3).
#ifndef KELO_LOG_SINKS_HPP
#define KELO_LOG_SINKS_HPP

namespace kelo::log {

// Prints a local line on standard output. The caller must hold the log lock.
void print_line(const char* line);

// Registers a call of syslog(3) for its scope. The call must be made only when allowed() is true: if a fork() happens
// during the call of another thread, the C library's lock stays held in the child. A thread that is cancelled within
// the scope ends after it.
class [[nodiscard]] SyslogCall {
 public:
  SyslogCall();
  ~SyslogCall();
  SyslogCall(const SyslogCall&) = delete;
  SyslogCall& operator=(const SyslogCall&) = delete;

  [[nodiscard]] static bool allowed();

 private:
  int cancel_state_ = 0;
};

// Finds out, in a forked child, which sinks are locked by threads that exist only in the parent.
void detect_lost_sinks();

}  // namespace kelo::log

#endif  // KELO_LOG_SINKS_HPP
