// How the library itself logs: KELO_LOG with one shared, out-of-line hand-off instead of one per call site.
#ifndef KELO_LOG_LIBRARY_LOG_HPP
#define KELO_LOG_LIBRARY_LOG_HPP

#include <cstdint>

#include "base/text_builder.hpp"
#include "kelo_utils/log.h"

// The build numbers the sources of the library. A source that a test compiles for itself has the first one's number.
#ifndef KELO_SOURCE_NUMBER
#define KELO_SOURCE_NUMBER 0
#endif

namespace kelo::log {

// Whether a message of `level` passes the threshold now.
bool passes(int level);

// The source line and the source file of a message in one number that fits into one instruction. Descriptors as
// constants of the call sites would take 12 KiB on the device, with the relocations that their pointers need.
struct Site {
  static constexpr unsigned kLines = 512;
  static constexpr unsigned kFiles = 128;

  consteval Site(unsigned line, unsigned file) : packed(static_cast<std::uint16_t>(line + kLines * file)) {
    if (line >= kLines || file >= kFiles) too_large();
  }

  [[nodiscard]] std::uint16_t line() const { return packed % kLines; }
  [[nodiscard]] unsigned file() const { return packed / kLines; }

  std::uint16_t packed;

 private:
  static void too_large() {}  // not a constant expression, so that the compiler refuses the site
};

// Formats one message, if its level passes the threshold, and sends it to the diagnostic channel or prints it
// locally, shown under the function name `func`. Never allocates and preserves errno. Most messages are of the two
// levels that have functions of their own, which saves their call sites an argument.
void emit(Site site, const char* func, int level, const char* fmt, ...) KELO_PRINTF(4, 5);
void emit_error(Site site, const char* func, const char* fmt, ...) KELO_PRINTF(3, 4);
void emit_debug(Site site, const char* func, const char* fmt, ...) KELO_PRINTF(3, 4);

// The path of a source of the library by the number that the build gives it.
using SourcePath = base::FixedText<64>;
SourcePath source_path(unsigned file);

// Logs "<function> param NULL" at level 3, shown under that function's name: the line for an argument that must not
// be null. All of them are one call site, so they share its source line and its path.
void param_null(const char* function);

}  // namespace kelo::log

// Logs under a given function name: for a step shared by several operations, whose lines carry their names.
// The arguments are evaluated even when the message does not pass: the test for it stands in the hand-off too,
// which keeps some hundred call sites small.
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
