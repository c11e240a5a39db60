// Fatal programming errors of this room, and memory without which it does not go on.
#ifndef KELO_APP_COMMON_FATAL_HPP
#define KELO_APP_COMMON_FATAL_HPP

#include <cstddef>

#include "base/fatal.hpp"
#include "base/heap.hpp"

namespace kelo::common {

// Ends the process under the name by which the room's errors are found in crash logs.
[[noreturn]] inline void fatal(int line = __builtin_LINE()) {
  base::fatal("kelo-app-common/src/kelo_common_def.c", line);
}

// `size` zero-filled bytes. Memory that runs out is fatal.
inline base::HeapPtr<char[]> zeroed_or_fatal(std::size_t size, int line = __builtin_LINE()) {
  base::HeapPtr<char[]> block = base::zeroed_array<char>(size);
  if (!block) fatal(line);
  return block;
}

}  // namespace kelo::common

#endif  // KELO_APP_COMMON_FATAL_HPP
