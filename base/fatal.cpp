// SPDX-License-Identifier: MIT
// Ends a process after a programming error.
#include "base/fatal.hpp"

#include <cstdio>
#include <cstdlib>

namespace kelo::base {

void fatal(const char* source_path, int line) {
  std::fprintf(stdout, "%s, line: %d\n", source_path, line);
  std::fflush(stdout);
  std::abort();
}

HeapPtr<char[]> zeroed_or_fatal(std::size_t size, const char* source_path, int line) {
  HeapPtr<char[]> block = zeroed_array<char>(size);
  if (!block) fatal(source_path, line);
  return block;
}

}  // namespace kelo::base
