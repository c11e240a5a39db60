// SPDX-License-Identifier: MIT
// How a recorded program reports its progress.
#ifndef KELO_TOOLS_CRASH_MARKS_HPP
#define KELO_TOOLS_CRASH_MARKS_HPP

#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>

#include "tools/crash/event.hpp"

namespace kelo::crash {

// No descriptor has this number: the write fails, but the recorder sees it, in order with all other calls.
constexpr int kMarkDescriptor = 0x4D41524B;

inline void mark(Progress progress, std::size_t item, std::size_t version) {
  const Mark said = {progress, static_cast<std::int32_t>(item), static_cast<std::int32_t>(version)};
  syscall(SYS_write, kMarkDescriptor, &said, sizeof said);
}

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_MARKS_HPP
