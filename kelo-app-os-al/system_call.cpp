// SPDX-License-Identifier: MIT
// Runs shell commands and returns their exit status.
#include "kelo-app-os-al/system_call.hpp"

#include <sys/wait.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/child.hpp"
#include "base/pipe_stream.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

// It is not __func__ in the function itself, which would be a second text.
constexpr char kSystemCall[] = "kelo_system_call";

}  // namespace

namespace kelo::os {

int run_logged(const char* command, int inherited) {
  KELO_LOG_AS(kSystemCall, LOG_LVL_DBUG, "System call: %s\n", command);
  const int status = base::run_shell(command, inherited);
  if (status == -1) {
    KELO_LOG_AS(kSystemCall, LOG_LVL_ERR, "system error!\n");
  } else if (!WIFEXITED(status)) {
    KELO_LOG_AS(kSystemCall, LOG_LVL_ERR, "result=%d, exit status = [%d]\n", status, WEXITSTATUS(status));
  } else if (WEXITSTATUS(status) != 0) {
    KELO_LOG_AS(kSystemCall, LOG_LVL_ERR, "run shell script fail=%d, script exit code: %d\n", status,
                WEXITSTATUS(status));
  } else {
    KELO_LOG_AS(kSystemCall, LOG_LVL_DBUG, "run shell script successfully result=%d.\n", status);
  }
  return status;
}

}  // namespace kelo::os

int kelo_system_call(const char* command, std::uint32_t length) {
  if (command == nullptr) return kelo::log::param_null(kSystemCall);
  if (const std::size_t measured = std::strlen(command); measured != length) {
    KELO_LOG_AS(kSystemCall, LOG_LVL_ERR, "System call length mismatch: %d != %d\n", static_cast<int>(length),
                static_cast<int>(measured));
    return -1;
  }
  return kelo::os::run_logged(command);
}

int kelo_system_call_var_arg(char* buffer, std::int32_t size, const char* format, ...) {
  // Without room in the buffer its old content would be run, and after a failed formatting an incomplete command.
  // Neither must happen.
  if (buffer == nullptr || format == nullptr || size <= 0) return kelo::log::param_null(__func__);
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(buffer, static_cast<std::size_t>(size), format, arguments);
  va_end(arguments);
  if (length < 0) {
    KELO_LOG(LOG_LVL_ERR, "system error!\n");
    return -1;
  }
  return kelo_system_call(buffer, static_cast<std::uint32_t>(std::strlen(buffer)));
}

int kelo_system_call_ex(const char* command, std::uint32_t length) {
  if (command == nullptr) return kelo::log::param_null(__func__);
  if (const std::size_t measured = std::strlen(command); measured != length) {
    KELO_LOG(LOG_LVL_ERR, "system call length mismatch: %d != %d\n", static_cast<int>(length),
             static_cast<int>(measured));
    return -1;
  }
  KELO_LOG(LOG_LVL_DBUG, "system call: %s\n", command);
  int result = -1;
  auto pipe = kelo::base::PipeStream::writing(command);
  if (pipe) {
    const int status = pipe.close();
    result = WIFEXITED(status) ? WEXITSTATUS(status) : status;
  } else {
    KELO_LOG(LOG_LVL_ERR, "system command failed\n");
  }
  if (result != 0) KELO_LOG(LOG_LVL_ERR, "system command failed, rc=%d errno: %d\n", result, errno);
  return result;
}
