// SPDX-License-Identifier: MIT
// Formats every message of the library, of any level, and drops it: a target does not fill the machine's log, but the
// arguments of its messages are read. Include it in the one source of a target.
#ifndef KELO_FUZZ_LOG_SINK_HPP
#define KELO_FUZZ_LOG_SINK_HPP

#include "kelo_utils/log.h"

// NOLINTBEGIN(misc-definitions-in-headers): these take the place of the library's own channel
int Diag_LSM_Init(char* /*environment*/) { return 1; }
void msg_sprintf(const LogDiagDescriptor* /*descriptor*/, ...) {}
// NOLINTEND(misc-definitions-in-headers)

namespace kelo::fuzz {

struct LogSink {
  LogSink() { kelo_set_log_level(LOG_LVL_DBUG); }
};

inline const LogSink log_sink;

}  // namespace kelo::fuzz

#endif  // KELO_FUZZ_LOG_SINK_HPP
