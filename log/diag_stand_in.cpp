// SPDX-License-Identifier: MIT
// The diagnostic channel for systems without the platform's library: it sends each record to syslog(3). Both
// functions are weak, and this file contains no other function that the library calls. A program that defines one of
// them therefore receives its calls, with the shared library and with the archive.
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/file.hpp"
#include "base/heap.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/log.h"
#include "log/sinks.hpp"

namespace {

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

void send_to_daemon(std::string_view record) {
  const kelo::base::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  constexpr std::string_view kPath = "/dev/log";
  sockaddr_un daemon{};
  daemon.sun_family = AF_UNIX;
  // copy() would link the C++ run time in a build without optimisation.
  std::memcpy(daemon.sun_path, kPath.data(), kPath.size());
  (void)kelo::base::retry_interrupted([&] {
    return ::sendto(socket.get(), record.data(), record.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&daemon), sizeof daemon);
  });
}

// Sends one record as syslog(3) does, for a process that must not call syslog(3). The daemon adds the time.
void send_record(int priority, const char* format, va_list arguments) {
  static constexpr std::size_t kSize = KELO_LOG_BUFFER_SIZE + 512;
  const auto record = kelo::base::zeroed_array<char>(kSize);
  if (!record) return;
  kelo::base::TextBuilder text({record.get(), kSize});
  text.print("<%d>%s: ", LOG_USER | priority, program_invocation_short_name);
  text.vprint(format, arguments);
  send_to_daemon(text.view());
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
  if (kelo::log::SyslogCall::allowed())
    vsyslog(priority, descriptor->format, arguments);
  else
    send_record(priority, descriptor->format, arguments);
  va_end(arguments);
}

}  // extern "C"
