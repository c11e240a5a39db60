// SPDX-License-Identifier: MIT
// Runs the shell commands of the configuration databases.
#include "sqlite3/src/shell.hpp"

#include <array>
#include <cerrno>
#include <cstring>

#include "base/pipe_stream.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/fork_gate.hpp"

namespace kelo::store {

CommandResult run_command(const char* command, std::span<char> output, ByteRangeLock* copy_lock) {
  constexpr const char* kCaller = "dm_sqlite_system_cmd";
  auto pipe = base::PipeStream::reading(command, copy_lock == nullptr ? -1 : copy_lock->descriptor());
  if (!pipe) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "system command failed: (%d) %s\n", errno, std::strerror(errno));
    return {false, -1};
  }
  if (copy_lock != nullptr) copy_lock->leave_to_command();
  // A child that was forked while the pipe was made would keep the pipe open, and the output would end only with that
  // child. The pipe is made now, so a fork() no longer needs to wait.
  const SqlitePause pause;
  if (output.data() != nullptr) {
    const std::size_t count = pipe.read(output);
    KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read_len=%d\n", static_cast<int>(count));
  }
  return {true, pipe.close()};
}

bool run_copy_command(const char* command, ByteRangeLock& copy_lock) {
  std::array<char, 511> output{};
  const CommandResult end = run_command(command, output, &copy_lock);
  return end.started && (end.status == 0 || end.status == -1);
}

}  // namespace kelo::store
