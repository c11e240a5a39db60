// The shell commands of the configuration databases.
#ifndef KELO_SQLITE3_SHELL_HPP
#define KELO_SQLITE3_SHELL_HPP

#include <span>

#include "sqlite3/src/store_lock.hpp"

namespace kelo::store {

// Runs a command and reads its standard output, as far as it fits. Returns the wait status (-1 when it cannot be
// told, as in a program that ignores SIGCHLD); empty `started` when it could not be started, which is logged.
struct CommandEnd {
  bool started;
  int status;
};
// The command inherits `under_way`, which is left to it as soon as it has started.
CommandEnd run_command(const char* command, std::span<char> output, ByteLock* under_way = nullptr);

// As a copy wants it: see RunCommand.
bool run_copy_command(const char* command, ByteLock& under_way);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_SHELL_HPP
