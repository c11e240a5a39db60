// The two sinks that have locks of the C library's: standard output and syslog(3).
#ifndef KELO_LOG_SINKS_HPP
#define KELO_LOG_SINKS_HPP

namespace kelo::log {

// Prints a local line on standard output. The caller holds the log lock.
void print_line(const char* line);

// Stands around each call of syslog(3), which is made only when it is usable(): the C library does not free its lock in
// the child of a fork() made during such a call. A cancelled thread ends after the scope.
class [[nodiscard]] SyslogCall {
 public:
  SyslogCall();
  ~SyslogCall();
  SyslogCall(const SyslogCall&) = delete;
  SyslogCall& operator=(const SyslogCall&) = delete;

  [[nodiscard]] static bool usable();

 private:
  int cancel_state_ = 0;
};

// Finds out, in the child of a fork(), which sinks threads of the parent took with them.
void settle_sinks();

}  // namespace kelo::log

#endif  // KELO_LOG_SINKS_HPP
