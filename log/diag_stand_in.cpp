// The diagnostic channel of a system without the platform's own: each record becomes one syslog(3) record.
// Both functions are weak and alone in this file, so a program that defines either of them receives the
// calls, with the shared library and with the archive.
#include <syslog.h>

#include <cstdarg>
#include <cstdint>

#include "base/file.hpp"
#include "kelo_utils/log.h"
#include "log/log_lock.hpp"

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

}  // namespace

extern "C" {

__attribute__((weak)) int Diag_LSM_Init(char* /*environment*/) { return 1; }

__attribute__((weak)) void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  const kelo::base::ErrnoKeeper keep;
  // syslog(3) has a lock of its own that no fork() waits for: this one keeps a child from inheriting it held.
  const kelo::log::LogLock lock;
  va_list arguments;
  va_start(arguments, descriptor);
  vsyslog(syslog_priority(descriptor->mask), descriptor->format, arguments);
  va_end(arguments);
}

}  // extern "C"
