// SPDX-License-Identifier: MIT
// KELO_LOG for the library's own sources: all call sites share out-of-line functions, which keeps each of them small.
#ifndef KELO_LOG_LIBRARY_LOG_HPP
#define KELO_LOG_LIBRARY_LOG_HPP

#include <cstdint>

#include "base/text_builder.hpp"
#include "kelo_utils/log.h"

// The build numbers the sources of the library. A source that a test compiles itself has the number of the first one.
#ifndef KELO_SOURCE_NUMBER
#define KELO_SOURCE_NUMBER 0
#endif

namespace kelo::log {

// Whether a message of `level` passes the current threshold.
bool passes(int level);

// The source line and the source file of a message, packed into a number that one instruction can load. Constant
// descriptors at the call sites would take 12 KiB on the device, because their pointers need relocations.
struct Site {
  static constexpr unsigned kLines = 512;
  static constexpr unsigned kFiles = 128;

  constexpr Site(unsigned line, unsigned file) : packed(static_cast<std::uint16_t>(line + kLines * file)) {
    if (line >= kLines || file >= kFiles) too_large();
  }

  [[nodiscard]] std::uint16_t line() const { return packed % kLines; }
  [[nodiscard]] unsigned file() const { return packed / kLines; }

  std::uint16_t packed;

 private:
  static void too_large() {}  // it is not a constant expression, so the compiler rejects the site
};

// If the level passes the threshold, formats one message and sends it to the diagnostic channel or prints it locally.
// The message carries the function name `func`. The functions never allocate, and they preserve errno. Most messages
// have one of two levels; their own functions save an argument at the call sites.
void emit(Site site, const char* func, int level, const char* fmt, ...) KELO_PRINTF(4, 5);
void emit_error(Site site, const char* func, const char* fmt, ...) KELO_PRINTF(3, 4);
void emit_debug(Site site, const char* func, const char* fmt, ...) KELO_PRINTF(3, 4);

// Returns the path of a source of the library. `file` is the number that the build has given it. Most short texts have
// buffers of this size: each size takes code of its own.
using SourcePath = base::FixedText<128>;
SourcePath source_path(unsigned file);

// Logs "<function> param NULL" at level 3 under that function's name. The library logs this message for an argument
// that must not be null. All these messages come from one call site, so they share its source line and path. Returns -1,
// the result of most functions for such an argument.
int param_null(const char* function);

}  // namespace kelo::log

// Logs under a given function name. Several operations may share a step, and the messages of that step then carry the
// name of the operation. The arguments are evaluated even when the message does not pass the threshold: the test is
// in the shared functions, which keeps hundreds of call sites small.
#define KELO_LOG_AS(func, level, ...)                                         \
  do {                                                                        \
    constexpr ::kelo::log::Site kelo_log_site_(__LINE__, KELO_SOURCE_NUMBER); \
    if constexpr ((level) == LOG_LVL_ERR)                                     \
      ::kelo::log::emit_error(kelo_log_site_, (func), __VA_ARGS__);           \
    else if constexpr ((level) == LOG_LVL_DBUG)                               \
      ::kelo::log::emit_debug(kelo_log_site_, (func), __VA_ARGS__);           \
    else                                                                      \
      ::kelo::log::emit(kelo_log_site_, (func), (level), __VA_ARGS__);        \
  } while (0)

#undef KELO_LOG
#define KELO_LOG(level, ...) KELO_LOG_AS(__func__, level, __VA_ARGS__)

#endif  // KELO_LOG_LIBRARY_LOG_HPP
