// SPDX-License-Identifier: MIT
// Logs why a file of the store cannot be used, and what to do.
#include "sqlite3/src/file_problem.hpp"

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "log/library_log.hpp"

namespace kelo::store {

void log_file_problem(const char* path, int error) {
  static std::atomic<unsigned> logged{0};  // a bit for each reason, modulo 32
  const unsigned bit = 1U << (static_cast<unsigned>(error) % 32);
  // The bit is set before the line is logged: what receives the line may use the store.
  const unsigned before = logged.fetch_or(bit, std::memory_order_relaxed);
  // A file that is missing is often the consequence of a reason that was logged before.
  if ((before & bit) != 0 || (error == ENOENT && before != 0)) return;
  // No operation of the store gets the system's error that has this number.
  const char* const reason = error == SQLITE_NOTADB ? sqlite3_errstr(error) : std::strerror(error);
  KELO_LOG_AS("sqlite", LOG_LVL_ERR, "%s: %s. Check its folder, its mode and the space, or move it away\n",
              path, reason);
}

}  // namespace kelo::store
