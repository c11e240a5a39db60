// SPDX-License-Identifier: MIT
// Logs the refusals of the exported functions.
#include "sqlite3/src/face/arguments.hpp"

#include "log/library_log.hpp"

namespace kelo::store {

int refuse_arguments(const char* function) {
  KELO_LOG_AS(function, LOG_LVL_ERR, "%s NULL\n", function);
  return DM_SQLITE_FAILED;
}

}  // namespace kelo::store
