// SPDX-License-Identifier: MIT
// The exported functions for the registration of the back-end, its start-up and its versions.
#include <atomic>

#include "base/atomic_ref.hpp"
#include "base/lock.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/defaults.hpp"
#include "sqlite3/src/face/default_access.hpp"
#include "sqlite3/src/item_write.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/repair.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/start_up.hpp"
#include "sqlite3/src/version.hpp"

pthread_mutex_t kelo::store::sqlite_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

using kelo::base::LockGuard;
using namespace kelo::store;

// The clean flag is cleared also after a clean that failed. Otherwise the data manager would not use the store until
// the next boot.
int clean_and_clear_flag(const char* backup, int /*one*/, std::int32_t* clean_flag) {
  const int result = dm_sqlite_clean(backup);
  if (clean_flag != nullptr) kelo::base::AtomicRef(*clean_flag).store(0, std::memory_order_release);
  return result;
}

constexpr kelo_dm_operations kOperations = {dm_sqlite_write,
                                            dm_sqlite_read,
                                            clean_and_clear_flag,
                                            dm_sqlite_def_db_const,
                                            dm_sqlite_def_db_read,
                                            dm_sqlite_read_CfgDB_version,
                                            dm_sqlite_read_DefItemsDB_version};

constexpr kelo::dm::ManyDefaults kManyDefaults = {kOperations.def_db_const, write_many_defaults};

// The same text is in the log of the repair, and the linker merges the two.
constexpr const char* kRegistration = "sqlite_reg";

bool registered;  // guarded by sqlite_mutex

enum class VersionMatch { same, database_is_newer, database_is_older };

VersionMatch compare_with_library(std::uint32_t stored) {
  const auto library = static_cast<std::int32_t>(kVersion);
  const auto database = static_cast<std::int32_t>(stored);
  if (library == database) return VersionMatch::same;
  return library < database ? VersionMatch::database_is_newer : VersionMatch::database_is_older;
}

void log_match(const char* caller, VersionMatch match, std::uint32_t stored) {
  switch (match) {
    case VersionMatch::same:
      KELO_LOG_AS(caller, LOG_LVL_DBUG, "sqlite_ver & database_ver is same\n");
      return;
    case VersionMatch::database_is_newer:
      KELO_LOG_AS(caller, LOG_LVL_DBUG, "sqlite_ver rollback to old,database is new\n");
      return;
    case VersionMatch::database_is_older:
      KELO_LOG_AS(caller, LOG_LVL_DBUG, "sqlite_ver update to new,database is old\n");
      if (stored == 0) KELO_LOG_AS(caller, LOG_LVL_DBUG, "database no update_cb ,clean db\n");
  }
}

void store_first_version(const char* caller) {
  KELO_LOG_AS(caller, LOG_LVL_DBUG, "database no ver_num\n");
  if (write_item(SQL_VER_ID, kVersionRow) != 0)
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "database wr ver_num fail\n");
}

void log_unreadable_version(const char* caller, int result) {
  if (result == DM_SQLITE_BAD_CRC || result == DM_SQLITE_NOT_OPENED) {
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "database bad err,clean db\n");
  } else {
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "database other err\n");
  }
}

// Repairs what reads and writes do not repair: a primary that is not a database, and several rows of one key, which
// an older release may have made.
void repair_at_start_up(const char* caller) {
  replace_invalid_primary(caller);
  for (const char* const path : {primary_path(), backup_path(), journal_path()}) remove_duplicate_rows(path);
}

// Does the work of the first registration in a process. Returns false when the store could not be locked: the next
// registration repeats the work then.
bool start_up(const char* caller) {
  Operation operation(caller, Access::exclusive);
  if (operation) {
    for (const char* const path : {primary_path(), backup_path()}) remove_unused_copy(path);
  }
  std::uint32_t stored = 0;
  const int result = operation ? read_stored_version(operation, &stored) : DM_SQLITE_NOT_OPENED;
  if (result >= 1) {
    const VersionMatch match = compare_with_library(stored);
    log_match(caller, match, stored);
    if (match == VersionMatch::same) complete_interrupted_write(operation);
    repair_at_start_up(caller);
  } else if (result == DM_SQLITE_NOT_PREPARED) {
    store_first_version(caller);
  } else {
    log_unreadable_version(caller, result);
  }
  return static_cast<bool>(operation);
}

}  // namespace

void sqlite_reg(kelo_dm_operations* ops) {
  KELO_LOG_AS(kRegistration, LOG_LVL_DBUG, "sqlite_reg\n");
  if (ops == nullptr) {
    kelo::log::param_null(kRegistration);
    return;
  }
  *ops = kOperations;
  kelo::dm::many_defaults.store(&kManyDefaults, std::memory_order_relaxed);
  const LockGuard lock(sqlite_mutex);
  if (registered) {
    KELO_LOG_AS(kRegistration, LOG_LVL_DBUG, "sqlite_already reg\n");
    return;
  }
  registered = start_up(kRegistration);
}

int dm_sqlite_check_database() {
  Operation operation(__func__, Access::exclusive);
  return operation ? complete_interrupted_write(operation) : DM_SQLITE_FAILED;
}

int dm_sqlite_read_CfgDB_version(uint32_t* ver) {
  if (ver == nullptr) return kelo::log::param_null(__func__);
  const LockGuard lock(sqlite_mutex);
  Operation operation(__func__, Access::shared);
  return operation ? read_stored_version(operation, ver) : DM_SQLITE_NOT_OPENED;
}

int dm_sqlite_read_DefItemsDB_version(uint32_t* ver) {
  if (ver == nullptr) return kelo::log::param_null(__func__);
  const LockGuard lock(sqlite_mutex);
  const Operation operation(__func__, Access::shared);
  return operation ? read_defaults_version(ver) : DM_SQLITE_NOT_OPENED;
}

void sqlite_chk_db_ver_match(int* matched) {
  if (matched == nullptr) return;
  const LockGuard lock(sqlite_mutex);
  Operation operation(__func__, Access::shared);
  std::uint32_t cfg_ver = 0;
  if (!operation || read_stored_version(operation, &cfg_ver) < 0) {
    KELO_LOG(LOG_LVL_ERR, "tmp_sqlite_ver read fail\n");
    return;
  }
  KELO_LOG(LOG_LVL_DBUG, "tmp_sqlite_ver %x\n", cfg_ver);
  std::uint32_t def_ver = 0;
  if (read_defaults_version(&def_ver) < 0) {
    KELO_LOG(LOG_LVL_ERR, "tmp_DefItems_db_ver read fail\n");
    return;
  }
  KELO_LOG(LOG_LVL_DBUG, "tmp_DefItems_db_ver %x\n", def_ver);
  *matched = def_ver == kVersion && cfg_ver == def_ver ? 1 : 0;
  if (*matched == 0) {
    KELO_LOG(LOG_LVL_ERR, " sqlite_chk_db_ver_not_matched \n");
  } else {
    KELO_LOG(LOG_LVL_ERR, " sqlite_chk_db_ver_matched \n");
  }
}
