// SPDX-License-Identifier: MIT
// The log level, the log switch, and the delivery of messages.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "base/file.hpp"
#include "log/library_log.hpp"
#include "log/local_line.hpp"
#include "log/log_lock.hpp"
#include "log/sinks.hpp"

namespace {

using kelo::log::LogLock;

std::atomic<int> current_level{LOG_LVL_INFO};
std::atomic<int> log_tool_enable{1};
// Set when the diagnostic channel has been started, or when it will never be started in this process.
std::atomic<bool> log_diag_ready{false};
std::atomic<kelo_print_fn> log_print_fn{nullptr};

constexpr char kSwitchFile[] = "/data/log_enable";

// Starts the channel if the switch is 1. Any other switch means that this process never starts the channel. After a
// failed start the next message tries again.
void start_diag_channel(int enable) {
  if (log_diag_ready.load(std::memory_order_acquire)) return;
  const kelo::base::ErrnoKeeper keep;  // the message that is being logged may print errno
  if (enable != 1 || Diag_LSM_Init(nullptr) != 0) log_diag_ready.store(true, std::memory_order_release);
}

// The setters call this outside a message, so it takes the lock itself. The lock is held by this thread only when the
// channel calls a setter while it is being started. Then there is nothing to do.
void start_diag_channel_locked(int enable) {
  if (log_diag_ready.load(std::memory_order_acquire)) return;
  const LogLock lock;
  if (lock.acquired()) start_diag_channel(enable);
}

enum class Delivery { dropped, printed, hand_to_channel };

Delivery deliver(int level, char* buf, const char* func, int line, const char* fmt, va_list arguments) {
  const LogLock lock;
  if (!lock.acquired())
    return Delivery::dropped;  // the print callback or the start of the channel has logged
  const int enable = log_tool_enable.load(std::memory_order_relaxed);
  start_diag_channel(enable);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has called va_start, which the analyzer misses
  std::vsnprintf(buf, KELO_LOG_BUFFER_SIZE, fmt, arguments);
  if (enable != 0) return Delivery::hand_to_channel;
  const char* const text = kelo::log::compose_local_line({lock.process(), level, func, line, buf});
  if (const kelo_print_fn print = log_print_fn.load(std::memory_order_acquire)) {
    print(text);
  } else {
    kelo::log::print_line(text);
  }
  return Delivery::printed;
}

void send(kelo::log::Site site, int level, const char* func, const char* fmt, va_list arguments) {
  if (!kelo::log::passes(level)) return;
  const kelo::base::ErrnoKeeper keep;
  std::array<char, KELO_LOG_BUFFER_SIZE> text;
  if (deliver(level, text.data(), func, site.line(), fmt, arguments) != Delivery::hand_to_channel) return;
  const kelo::log::SourcePath path = kelo::log::source_path(site.file());
  const LogDiagDescriptor descriptor = {site.line(), KELO_LOG_DIAG_SUBSYSTEM, level >= 0 ? 1U << level : 0U,
                                        KELO_LOG_DIAG_FORMAT, path.c_str()};
  msg_sprintf(&descriptor, static_cast<int>(getpid()), func, text.data());
}

void write_switch_file(int enable) {
  kelo::base::Descriptor file = kelo::base::open_file(kSwitchFile, O_RDWR | O_CREAT | O_TRUNC, 0666);
  if (!file) return;
  // The file tells whether local printing is on, so it contains the inverse of the switch.
  const char* const local_printing = enable == 0 ? "1" : "0";
  (void)kelo::base::retry_interrupted([&] { return ::write(file.get(), local_printing, 1); });
  file.reset();
  sync();  // the setting must survive a power cut
}

}  // namespace

bool kelo::log::passes(int level) {
  return level == -1 || current_level.load(std::memory_order_relaxed) <= level;
}

void kelo::log::emit(Site site, const char* func, int level, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  send(site, level, func, fmt, arguments);
  va_end(arguments);
}

void kelo::log::emit_error(Site site, const char* func, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  send(site, LOG_LVL_ERR, func, fmt, arguments);
  va_end(arguments);
}

void kelo::log::emit_debug(Site site, const char* func, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  send(site, LOG_LVL_DBUG, func, fmt, arguments);
  va_end(arguments);
}

int kelo::log::param_null(const char* function) {
  KELO_LOG_AS(function, LOG_LVL_ERR, "%s param NULL\n", function);
  return -1;
}

int kelo_log_printf(int level, char* buf, const char* func, int line, const char* fmt, ...) {
  if (buf == nullptr || !kelo::log::passes(level)) return 0;
  const kelo::base::ErrnoKeeper keep;
  va_list arguments;
  va_start(arguments, fmt);
  const Delivery delivery = deliver(level, buf, func, line, fmt, arguments);
  va_end(arguments);
  return delivery == Delivery::hand_to_channel ? 1 : 0;
}

void kelo_set_log_level(int level) {
  start_diag_channel_locked(log_tool_enable.load(std::memory_order_relaxed));
  const bool settable = level >= LOG_LVL_INFO && level <= LOG_LVL_CRT;
  current_level.store(settable ? level : LOG_LVL_DBUG, std::memory_order_relaxed);
}

int kelo_get_log_level() { return current_level.load(std::memory_order_relaxed); }

void kelo_set_log_tool_enable(int enable) {
  log_tool_enable.store(enable, std::memory_order_relaxed);
  start_diag_channel_locked(enable);
  write_switch_file(enable);
}

int kelo_get_log_tool_enable() { return log_tool_enable.load(std::memory_order_relaxed); }

int get_tid() { return static_cast<int>(syscall(SYS_gettid)); }

void set_print_interface(kelo_print_fn fn) { log_print_fn.store(fn, std::memory_order_release); }
