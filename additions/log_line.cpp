// SPDX-License-Identifier: MIT
// One message as a plain text, for languages that cannot use the logging macro.
#include <unistd.h>

#include <array>
#include <cstdint>

#include "base/file.hpp"
#include "kelo_utils/log.h"
#include "kelo_utils/log_line.h"

namespace {

constexpr const char* text_or_null(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

void kelo_log_line(int level, const char* function, int line, const char* text) {
  const kelo::base::ErrnoKeeper keep;
  std::array<char, KELO_LOG_BUFFER_SIZE> message;
  function = text_or_null(function);
  if (kelo_log_printf(level, message.data(), function, line, "%s", text_or_null(text)) == 0) return;
  const LogDiagDescriptor descriptor = {static_cast<std::uint16_t>(line), KELO_LOG_DIAG_SUBSYSTEM,
                                        level >= LOG_LVL_DBUG && level <= LOG_LVL_EMR ? 1U << level : 0U,
                                        KELO_LOG_DIAG_FORMAT, ""};
  msg_sprintf(&descriptor, static_cast<int>(getpid()), function, message.data());
}
