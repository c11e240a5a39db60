#include <cerrno>
#include <cstring>

#include "base/pipe_stream.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"

int dm_sqlite_system_cmd(const char* command, char* out, unsigned int out_size) {
  if (command == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return -1;
  }
  const auto pipe = kelo::base::PipeStream::reading(command);
  if (!pipe) {
    KELO_LOG(LOG_LVL_ERR, "system command failed: (%d) %s\n", errno, std::strerror(errno));
    return -1;
  }
  if (out != nullptr) {
    const std::size_t count = pipe.read({out, out_size});
    KELO_LOG(LOG_LVL_DBUG, "read_len=%d\n", static_cast<int>(count));
  }
  return 0;
}
