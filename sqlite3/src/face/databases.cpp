// SPDX-License-Identifier: MIT
// The exported functions for checks, the journal, the clean, the export and shell commands.
#include <unistd.h>

#include <span>

#include "base/lock.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/clean.hpp"
#include "sqlite3/src/csv_export.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/face/arguments.hpp"
#include "sqlite3/src/health.hpp"
#include "sqlite3/src/journal.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/operation.hpp"
#include "sqlite3/src/row.hpp"
#include "sqlite3/src/shell.hpp"

using namespace kelo::store;

int dm_pal_check_db_exist() {
  // The operation restores a file that a crash has left under the name "-previous", so that it is found.
  const Operation operation(__func__, Access::shared);
  if (!operation || access(primary_path(), F_OK) != 0 || access(backup_path(), F_OK) != 0)
    return DM_SQLITE_FAILED;
  KELO_LOG(LOG_LVL_WRN, "config && configbak all exist\n");
  return 0;
}

int check_database_health(const char* path) {
  if (path == nullptr) {
    kelo::log::param_null(__func__);
    return static_cast<int>(Health::not_opened);
  }
  const Operation operation(__func__, Access::shared);
  return static_cast<int>(operation ? health_of(path) : Health::not_opened);
}

int integrity_check_callback(int* is_corrupted, int ncols, char** values, char** /*names*/) {
  return apply_check_row(is_corrupted, ncols, values);
}

int dm_record_exist(sqlite3* db, const char* table, const char* key) {
  if (db == nullptr || table == nullptr || key == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  return look_for_row(db, table, key) == Presence::present ? 1 : 0;
}

int alter_table_add_column(sqlite3* db, const char* table, const char* key) {
  return add_missing_columns(db, table, key) ? 0 : DM_SQLITE_FAILED;
}

int dm_write_state_db(const char* table, uint32_t id, const char* key, uint32_t type, int len, int state) {
  if (table == nullptr || key == nullptr) return refuse_arguments(__func__);
  const Operation operation(__func__, Access::exclusive);
  return operation && record_in_journal({table, id, key, type, len}, state) ? 0 : DM_SQLITE_FAILED;
}

int dm_sqlite_system_cmd(const char* command, char* out, unsigned int out_size) {
  if (command == nullptr) return refuse_arguments(__func__);
  const std::span<char> output = out == nullptr ? std::span<char>() : std::span<char>(out, out_size);
  return run_command(command, output).started ? 0 : DM_SQLITE_FAILED;
}

int dm_sqlite_clean(const char* backup) {
  int kept_copies = 0;
  if (!count_kept_copies(kept_copies)) return DM_SQLITE_FAILED;
  const kelo::base::LockGuard lock(sqlite_mutex);
  const Operation operation(__func__, Access::exclusive);
  return operation && clean_databases(backup != nullptr, kept_copies) ? 0 : DM_SQLITE_FAILED;
}

int dm_read_all_tabs_from_db(const char* db_path) {
  if (db_path == nullptr) return refuse_arguments(__func__);
  const Operation operation(__func__, Access::shared);
  return operation ? export_database(db_path) : DM_SQLITE_NOT_OPENED;
}

int dm_sqlite_db2csv_cb(void* db, int ncols, char** values, char** /*names*/) {
  export_listed_tables(static_cast<sqlite3*>(db), ncols, values);
  return 0;
}

int dm_export_by_table(sqlite3* db, const char* table, FILE* out) {
  constexpr int kBadArgument = 3;
  if (table == nullptr || out == nullptr) {
    kelo::log::param_null(__func__);
    return kBadArgument;
  }
  return export_table(db, table, out);
}
