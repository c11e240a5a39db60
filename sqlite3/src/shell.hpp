// SPDX-License-Identifier: MIT
// The shell commands of the configuration databases.
#ifndef KELO_SQLITE3_SHELL_HPP
#define KELO_SQLITE3_SHELL_HPP

#include <span>

#include "sqlite3/src/store_lock.hpp"

namespace kelo::store {

struct CommandResult {
  bool started;
  int status;  // wait status; -1 when it is unknown, as in a program that ignores SIGCHLD
};

// Runs a command and reads as much of its standard output as `output` can hold. A command that cannot be started is
// logged. The command inherits `copy_lock`, and this process closes its own descriptor of the lock.
CommandResult run_command(const char* command, std::span<char> output, ByteRangeLock* copy_lock = nullptr);

// Runs the `cp` of a safe copy. Its type is RunCommand.
[[gnu::visibility("hidden")]] bool run_copy_command(const char* command, ByteRangeLock& copy_lock);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_SHELL_HPP
