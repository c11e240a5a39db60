// SPDX-License-Identifier: MIT
// The diagnostic channel for systems without the platform's library: it sends each record to syslog(3), and copies it to
// standard error when this was asked for or nobody else would see it. Both functions are weak, and this file contains no other function that the library calls. A program that defines one of
// them therefore receives its calls, with the shared library and with the archive.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/file.hpp"
#include "base/heap.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/log.h"
#include "log/library_log.hpp"
#include "log/sinks.hpp"

namespace {

// The address of the system's log. A whole sockaddr_un would be ten times as large.
constexpr struct {
  sa_family_t family;
  char path[sizeof "/dev/log"];
} kDaemon = {AF_UNIX, "/dev/log"};

int syslog_priority(std::uint32_t mask) {
  switch (mask) {
    case 1u << LOG_LVL_DBUG:
      return LOG_DEBUG;
    case 1u << LOG_LVL_INFO:
      return LOG_INFO;
    case 1u << LOG_LVL_WRN:
      return LOG_WARNING;
    case 1u << LOG_LVL_ERR:
      return LOG_ERR;
    case 1u << LOG_LVL_CRT:
      return LOG_CRIT;
    case 1u << LOG_LVL_EMR:
      return LOG_EMERG;
    default:
      return LOG_NOTICE;
  }
}

// Records of this priority and of more urgent ones, which have smaller numbers, are copied to standard error.
constexpr int kNoPriority = -1;
constexpr int kNotReadYet = 8;
std::atomic<int> copied_priority{kNotReadYet};

constexpr char kVariable[] = "KELO_LOG_STDERR";
constexpr int kUnknownLevel = 6;

// The first three letters of a name count, or one digit.
int level_of(const char* text) {
  constexpr std::size_t kLetters = 3;
  int level = 0;
  for (const char* name = "DBUINFWRNERRCRTEMR"; level < kUnknownLevel; ++level, name += kLetters) {
    if (*text == '0' + level || strncasecmp(text, name, kLetters) == 0) break;
  }
  return level;
}

bool only_the_terminal_listens() {
  winsize size;
  return access(kDaemon.path, F_OK) != 0 && ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0;
}

// Several threads may do this at the same time. All of them find the same.
int read_copied_priority() {
  const char* const asked = secure_getenv(kVariable);
  int level = LOG_LVL_DBUG;
  if (asked != nullptr) level = level_of(asked);
  int priority = syslog_priority(1U << level);
  if (asked == nullptr && !only_the_terminal_listens()) priority = kNoPriority;
  // The message comes back to this channel, so the priority is stored before.
  if (copied_priority.exchange(priority, std::memory_order_relaxed) == kNotReadYet && level == kUnknownLevel)
    KELO_LOG_AS(kVariable, LOG_LVL_ERR, "%s is no level\n", asked);
  return priority;
}

enum class Target { standard_error, daemon };

// Sends one record as syslog(3) does, for a process that must not call syslog(3), or writes it to standard error. The
// daemon adds the time.
void send_record(Target target, int priority, const char* format, va_list arguments) {
  static constexpr std::size_t kSize = KELO_LOG_BUFFER_SIZE + 512;
  const auto record = kelo::base::zeroed_array<char>(kSize);
  if (!record) return;
  kelo::base::TextBuilder text({record.get(), kSize});
  text.print("<%d>%s: ", LOG_USER | priority, program_invocation_short_name);
  text.vprint(format, arguments);
  if (target == Target::standard_error) {
    if (text.view().back() != '\n') text.put('\n');
    kelo::base::write_all_unsignalled(STDERR_FILENO, text.view());
    return;
  }
  const kelo::base::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  (void)kelo::base::retry_interrupted([&] {
    return ::sendto(socket.get(), text.c_str(), text.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&kDaemon), sizeof kDaemon);
  });
}

}  // namespace

extern "C" {

__attribute__((weak)) int Diag_LSM_Init(char* /*environment*/) { return 1; }

__attribute__((weak)) void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  const kelo::base::ErrnoKeeper keep;
  const kelo::log::SyslogCall call;
  va_list arguments;
  va_start(arguments, descriptor);
  const int priority = syslog_priority(descriptor->mask);
  int copied = copied_priority.load(std::memory_order_relaxed);
  if (copied == kNotReadYet) copied = read_copied_priority();
  if (priority <= copied) {
    va_list copy;
    va_copy(copy, arguments);
    send_record(Target::standard_error, priority, descriptor->format, copy);
    va_end(copy);
  }
  if (kelo::log::SyslogCall::allowed())
    vsyslog(priority, descriptor->format, arguments);
  else
    send_record(Target::daemon, priority, descriptor->format, arguments);
  va_end(arguments);
}

}  // extern "C"
