// The end of a process that made a programming error the library cannot answer with a result.
#ifndef KELO_BASE_FATAL_HPP
#define KELO_BASE_FATAL_HPP

#include <cstdio>
#include <cstdlib>

namespace kelo::base {

// Prints "<source path>, line: <line>" on standard output and aborts. `source_path` is the fixed name that
// field engineers search for in crash logs, not the name of the file that holds the call.
[[noreturn]] inline void fatal(const char* source_path, int line) {
  std::printf("%s, line: %d\n", source_path, line);
  std::fflush(stdout);
  std::abort();
}

}  // namespace kelo::base

#endif  // KELO_BASE_FATAL_HPP
