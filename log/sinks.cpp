// Standard output and syslog(3) as sinks of messages, also in a child forked while another thread used them.
#include "log/sinks.hpp"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/file.hpp"
#include "log/log_lock.hpp"

namespace kelo::log {
namespace {

// Whether a thread that this process does not have holds the lock of the stream, or of syslog(3), for good.
std::atomic<bool> stdout_lost{false};
std::atomic<bool> syslog_lost{false};
std::atomic<int> syslog_calls{0};  // under way in this process

void write_line(std::string_view line) {
  while (!line.empty()) {
    const ssize_t count =
        base::retry_interrupted([&] { return ::write(STDOUT_FILENO, line.data(), line.size()); });
    if (count <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

void print_line(const char* line) {
  if (stdout_lost.load(std::memory_order_relaxed))
    write_line(line);
  else
    std::fputs(line, stdout);
}

SyslogCall::SyslogCall() {
  settle_in(getpid());
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
  ++syslog_calls;
}

SyslogCall::~SyslogCall() {
  --syslog_calls;
  pthread_setcancelstate(cancel_state_, nullptr);
}

bool SyslogCall::usable() { return !syslog_lost.load(std::memory_order_relaxed); }

// Not every C library frees the locks of its streams in a child.
void settle_sinks() {
  if (syslog_calls.exchange(0) > 0) syslog_lost = true;
  const bool free = ftrylockfile(stdout) == 0;
  if (free) funlockfile(stdout);
  stdout_lost = !free;
}

}  // namespace kelo::log
