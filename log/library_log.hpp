// How the library itself logs: KELO_LOG with one shared, out-of-line hand-off instead of one per call site.
#ifndef KELO_LOG_LIBRARY_LOG_HPP
#define KELO_LOG_LIBRARY_LOG_HPP

#include "kelo_utils/log.h"

namespace kelo::log {

// Whether a message of `level` passes the threshold now.
bool passes(int level);

// Formats one message, if the level of its site passes the threshold, and sends it to the diagnostic channel or
// prints it locally, shown under the function name `func`. Never allocates and preserves errno.
void emit(const LogDiagDescriptor& site, const char* func, const char* fmt, ...) KELO_PRINTF(3, 4);

// Logs "<function> param NULL" at level 3, shown under that function's name: the line for an argument that must not
// be null. All of them are one call site, so they share its source line and its path.
void param_null(const char* function);

}  // namespace kelo::log

// Logs under a given function name: for a step shared by several operations, whose lines carry their names.
// The arguments are evaluated even when the message does not pass: the test for it stands in the hand-off too,
// which keeps some hundred call sites small.
#define KELO_LOG_AS(func, level, ...)                                               \
  do {                                                                              \
    static constexpr LogDiagDescriptor kelo_log_site_ = KELO_LOG_DESCRIPTOR(level); \
    ::kelo::log::emit(kelo_log_site_, (func), __VA_ARGS__);                         \
  } while (0)

#undef KELO_LOG
#define KELO_LOG(level, ...) KELO_LOG_AS(__func__, level, __VA_ARGS__)

#endif  // KELO_LOG_LIBRARY_LOG_HPP
