// SPDX-License-Identifier: MIT
// Runs a program and writes down every change that it, and what it starts, makes to its files.
#ifndef KELO_TOOLS_CRASH_RECORDER_HPP
#define KELO_TOOLS_CRASH_RECORDER_HPP

#include <functional>

#include "tools/crash/event.hpp"
#include "tools/crash/files.hpp"

namespace kelo::crash {

// Runs `body` in a process of its own on the folders as they are now.
Recording record(const Folders& folders, const std::function<void()>& body);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_RECORDER_HPP
