// SPDX-License-Identifier: MIT
// Standard output and syslog(3) as sinks of messages. They also work in a child that was forked while another thread
// of the parent was using them.
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

// Whether the lock of the stream, or of syslog(3), is held forever by a thread that exists only in the parent.
std::atomic<bool> stdout_lost{false};
std::atomic<bool> syslog_lost{false};
std::atomic<int> syslog_calls{0};  // calls that are running in this process

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
  adopt_log_state(getpid());
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
  ++syslog_calls;
}

SyslogCall::~SyslogCall() {
  --syslog_calls;
  pthread_setcancelstate(cancel_state_, nullptr);
}

bool SyslogCall::allowed() { return !syslog_lost.load(std::memory_order_relaxed); }

// Not every C library frees the locks of its streams in a child.
void detect_lost_sinks() {
  if (syslog_calls.exchange(0) > 0) syslog_lost = true;
  const bool free = ftrylockfile(stdout) == 0;
  if (free) funlockfile(stdout);
  stdout_lost = !free;
}

}  // namespace kelo::log
