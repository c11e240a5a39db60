// SPDX-License-Identifier: MIT
// Begins operations on the configuration databases: locks the store and undoes interrupted copies.
#include "sqlite3/src/operation.hpp"

#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/safe_copy.hpp"

namespace kelo::store {

Operation::Operation(const char* caller, Access access)
    : caller_(caller), lock_(caller, primary_path(), access), ready_(lock_ && undo_interrupted_copies()) {}

bool Operation::make_exclusive() {
  if (exclusive()) return ready_;
  return ready_ = lock_.make_exclusive() && undo_interrupted_copies();
}

bool Operation::undo_interrupted_copies() {
  if (!lock_.locked() || (!copy_was_interrupted(primary_path()) && !copy_was_interrupted(backup_path())))
    return true;
  if (!lock_.make_exclusive()) return false;
  ByteRangeLock copies;
  if (!copies.wait_for_copies(primary_path())) {
    KELO_LOG_AS(caller_, LOG_LVL_ERR, "a cp that was left running works on %s, nothing was done\n",
                backup_path());
    return false;
  }
  undo_interrupted_copy(primary_path());
  undo_interrupted_copy(backup_path());
  return true;
}

}  // namespace kelo::store
