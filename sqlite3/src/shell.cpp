#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"

namespace {

struct PipeCloser {
  void operator()(std::FILE* pipe) const { pclose(pipe); }
};

// Daemons get signals whose handlers do not restart a read: what the command wrote must not be lost to one.
std::size_t read_through_signals(std::FILE* pipe, char* out, std::size_t size) {
  std::size_t count = 0;
  while (count < size) {
    count += std::fread(out + count, 1, size - count, pipe);
    if (std::ferror(pipe) == 0 || errno != EINTR) break;
    std::clearerr(pipe);
  }
  return count;
}

}  // namespace

int dm_sqlite_system_cmd(const char* command, char* out, unsigned int out_size) {
  if (command == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return -1;
  }
  const std::unique_ptr<std::FILE, PipeCloser> pipe(popen(command, "re"));
  if (!pipe) {
    KELO_LOG(LOG_LVL_ERR, "system command failed: (%d) %s\n", errno, std::strerror(errno));
    return -1;
  }
  if (out != nullptr) {
    const std::size_t count = read_through_signals(pipe.get(), out, out_size);
    KELO_LOG(LOG_LVL_DBUG, "read_len=%d\n", static_cast<int>(count));
  }
  return 0;
}
