// Writes items so that a power cut, a full disk or a failing copy leaves the old value or the new one.
#include "sqlite3/src/item_write.hpp"

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
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

// After a copy that failed the backup has all but this row, unless there is no backup at all: one of a single row
// would hide every other item.
void carry_row_to_backup(const Row& row) {
  if (size_of(DB_CONFIGBAK) == 0) return;
  const int written = write_row(DB_CONFIGBAK, row, OnCorruption::fail);
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "only the row of %s %s was written to %s: %d\n", row.table, row.key,
              DB_CONFIGBAK, written);
}

// The backup of before is in the primary's place afterwards, with the new row, so that the next write copies a
// whole primary again.
void heal_primary(const Row& row) {
  if (!take_primary_from_backup(kCaller)) return;
  write_row(DB_CONFIG, row, OnCorruption::fail);
  static_cast<void>(base::sync_directory_of(DB_CONFIG));
}

}  // namespace

int write_item(std::uint32_t id, const Row& row) {
  const JournalItem item = {row.table, id, row.key, static_cast<std::uint32_t>(row.type), row.len};
  // A journal that cannot be written never stops the write itself.
  if (!record_in_journal(item, WS_READY)) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_write_state_db  WS_READY failed: %d\n", DM_SQLITE_FAILED);
  }
  mend_primary(kCaller);
  if (write_row(DB_CONFIG, row, OnCorruption::repair) < 0) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_update_db: \n");
    return DM_SQLITE_FAILED;
  }
  // The copy syncs the directory of the backup before it begins: the row must not be in the backup alone after a
  // power cut.
  if (!same_directory(DB_CONFIG, DB_CONFIGBAK)) static_cast<void>(base::sync_directory_of(DB_CONFIG));
  // Only a healthy primary may replace the backup: the backup is what a corrupt primary is repaired from.
  const Health health = health_of(DB_CONFIG);
  if (health == Health::healthy && !copy_primary_over_backup(kCaller)) carry_row_to_backup(row);
  if (!same_directory(DB_CONFIGBAK, DB_STATE)) static_cast<void>(base::sync_directory_of(DB_CONFIGBAK));
  // Recorded after the copy, so that a journal left here tells start-up to complete the backup. SQLite syncs the
  // journal's directory on the way, where the other databases usually are as well.
  if (!record_in_journal(item, WS_WRITE_DONE)) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_write_state_db  WS_WRITE_DONE failed: %d\n", DM_SQLITE_FAILED);
    static_cast<void>(base::sync_directory_of(DB_STATE));
  }
  if (!record_in_journal(item, WS_BACKUP_DONE)) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "dm_write_state_db  WS_BACKUP_DONE failed: %d\n", DM_SQLITE_FAILED);
  }
  if (health == Health::corrupt) heal_primary(row);
  return 0;
}

int write_row(const char* path, const Row& row, OnCorruption on_corruption) {
  if (is_primary(path) && !fill_empty_primary(kRowCaller)) return DM_SQLITE_FAILED;
  const SqlText create(sql::kCreateItems, row.table);
  for (bool repaired = false;; repaired = true) {
    Database db = open_database(kRowCaller, path);
    if (!db) return DM_SQLITE_NOT_OPENED;
    const Outcome created = execute(db.get(), create.c_str());
    if (created.ok()) {
      store_item(db.get(), row);
      return 0;
    }
    KELO_LOG_AS(kRowCaller, LOG_LVL_ERR, "[%d] create table error rc=%d, %s, szSql: %s\n", __LINE__,
                created.code, created.text(), create.c_str());
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
