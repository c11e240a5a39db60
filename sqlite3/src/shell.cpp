// Runs the shell commands of the configuration databases.
#include "sqlite3/src/shell.hpp"

#include <array>
#include <cerrno>
#include <cstring>

#include "base/pipe_stream.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/fork_gate.hpp"

namespace kelo::store {

CommandEnd run_command(const char* command, std::span<char> output, ByteLock* under_way) {
  constexpr const char* kCaller = "dm_sqlite_system_cmd";
  auto pipe = base::PipeStream::reading(command, under_way == nullptr ? -1 : under_way->descriptor());
  if (!pipe) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "system command failed: (%d) %s\n", errno, std::strerror(errno));
    return {false, -1};
  }
  if (under_way != nullptr) under_way->leave_to_command();
  // A child that was forked while the pipe was made would keep it open, and the end of the output would not come
  // before its own: from here on a fork() need not wait.
  const SqlitePause pause;
  if (output.data() != nullptr) {
    const std::size_t count = pipe.read(output);
    KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read_len=%d\n", static_cast<int>(count));
  }
  return {true, pipe.close()};
}

bool run_copy_command(const char* command, ByteLock& under_way) {
  std::array<char, 511> output{};
  const CommandEnd end = run_command(command, output, &under_way);
  return end.started && (end.status == 0 || end.status == -1);
}

}  // namespace kelo::store
