// SPDX-License-Identifier: MIT
// Writes items. After a power cut, on a full disk or after a failed copy, the old or the new value is there.
#include "sqlite3/src/item_write.hpp"

#include <cerrno>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/file_problem.hpp"
#include "sqlite3/src/health.hpp"
#include "sqlite3/src/journal.hpp"
#include "sqlite3/src/mend.hpp"
#include "sqlite3/src/repair.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kCaller = "dm_pal_write";
constexpr const char* kRowCaller = "dm_write_db";

// After a failed copy only this row is missing in the backup. When there is no backup, none is made: a backup with a
// single row would hide every other item.
void carry_row_to_backup(const Row& row) {
  if (size_of(backup_path()) == 0) return;
  const int written = write_row(backup_path(), row, OnCorruption::fail);
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "only the row of %s %s was written to %s: %d\n", row.table, row.key,
              backup_path(), written);
}

// Replaces a corrupt primary by the backup and writes the new row into it, so that the next write can copy the
// primary again.
void repair_corrupt_primary(const Row& row) {
  if (!take_primary_from_backup(kCaller)) return;
  write_row(primary_path(), row, OnCorruption::fail);
  static_cast<void>(base::sync_directory_of(primary_path()));
}

}  // namespace

int write_item(std::uint32_t id, const Row& row) {
  const JournalItem item = {row.table, id, row.key, static_cast<std::uint32_t>(row.type), row.len};
  // The item is written even when the journal cannot be.
  if (!record_in_journal(item, WS_READY)) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_write_state_db  WS_READY failed: %d\n", DM_SQLITE_FAILED);
  }
  mend_primary(kCaller);
  // SQLite has no result for a row that did not fit, but it leaves the error of the system.
  errno = 0;
  const int written = write_row(primary_path(), row, OnCorruption::repair);
  if (errno == ENOSPC) log_file_problem(primary_path(), ENOSPC);
  if (written < 0) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_update_db: \n");
    return DM_SQLITE_FAILED;
  }
  // After a power cut the row must not be only in the backup. The copy syncs the backup's directory before it begins,
  // so the directory of the primary needs a sync only when it is another one.
  if (!same_directory(primary_path(), backup_path()))
    static_cast<void>(base::sync_directory_of(primary_path()));
  // Only a healthy primary may replace the backup, since a corrupt primary is repaired from the backup.
  const Health health = health_of(primary_path());
  if (health == Health::healthy && !copy_primary_over_backup(kCaller)) carry_row_to_backup(row);
  if (!same_directory(backup_path(), journal_path()))
    static_cast<void>(base::sync_directory_of(backup_path()));
  // The state is recorded after the copy. When a crash leaves the journal like this, start-up completes the backup.
  // SQLite syncs the journal's directory, in which the other databases usually are as well.
  if (!record_in_journal(item, WS_WRITE_DONE)) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_write_state_db  WS_WRITE_DONE failed: %d\n", DM_SQLITE_FAILED);
    static_cast<void>(base::sync_directory_of(journal_path()));
  }
  if (!record_in_journal(item, WS_BACKUP_DONE)) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_write_state_db  WS_BACKUP_DONE failed: %d\n", DM_SQLITE_FAILED);
  }
  if (health == Health::corrupt) repair_corrupt_primary(row);
  return 0;
}

int write_row(const char* path, const Row& row, OnCorruption on_corruption) {
  if (is_primary(path) && !fill_empty_primary(kRowCaller)) return DM_SQLITE_FAILED;
  const SqlText create(sql::kCreateItems, row.table);
  for (bool repaired = false;; repaired = true) {
    Connection db = open_database(kRowCaller, path);
    if (!db) return DM_SQLITE_NOT_OPENED;
    const Outcome created = execute(db.get(), create.c_str());
    if (created.ok()) {
      store_item(db.get(), row);
      return 0;
    }
    KELO_LOG_AS(kRowCaller, LOG_LVL_ERR, "[%d] create table error rc=%d, %s, szSql: %s\n", __LINE__,
                created.code, created.text(), create.c_str());
    if (created.code == SQLITE_NOTADB) log_file_problem(path, created.code);
    db.reset();
    if (on_corruption == OnCorruption::fail) return DM_SQLITE_FAILED;
    if (created.code != SQLITE_CORRUPT || repaired) {
      if (is_backup(path)) refresh_backup(kRowCaller);
      return DM_SQLITE_FAILED;
    }
    repair_primary(kRowCaller, kWriteRepair, path);
  }
}

}  // namespace kelo::store
