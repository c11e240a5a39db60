#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/copy.hpp"
#include "sqlite3/src/files.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/rows.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

void dm_update_record(sqlite3* db, const Row& row) {
  const std::int32_t crc = value_crc(row.value, row.len);
  KELO_LOG(LOG_LVL_DBUG, "wr crc: 0x%x\n", static_cast<unsigned>(crc));
  if (dm_record_exist(db, row.table, row.key) != 0) {
    const SqlText update(sql::kUpdateItem, row.table, row.id, row.type, row.len, crc, row.key);
    store_row({__func__, "rc: "}, db, row, update.c_str());
  } else {
    const SqlText insert(sql::kInsertItem, row.table, row.id, row.key, row.type, row.len, crc);
    store_row({__func__, ""}, db, row, insert.c_str());
  }
}

// While the connection lives, other processes' writes to the file wait, so that a copy shows one moment of
// it.
Database hold_steady(const char* path) {
  Database db = open_database("dm_pal_write", path);
  if (db) static_cast<void>(execute(db.get(), sql::kHoldSteady));
  return db;
}

// The journal row that the steps of one write share.
struct JournalledItem {
  const char* table;
  std::uint32_t id;
  const char* key;
  std::uint32_t type;
  int len;

  [[nodiscard]] int record(dm_write_state state) const {
    return dm_write_state_db(table, id, key, type, len, state);
  }
};

}  // namespace

int dm_sqlite_write(uint32_t id, kelo_dm_item_desc* item, const void* value, int len) {
  if (item == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const kelo::base::LockGuard lock(sqlite_mutex);
  KELO_LOG(LOG_LVL_DBUG, "tab:%s, key:%s \n", item->item_table, item->item_key);
  return dm_pal_write(item->item_table, id, item->item_key, static_cast<std::uint32_t>(item->type), value,
                      len);
}

int dm_pal_write(const char* table, uint32_t id, const char* key, uint32_t type, const void* value, int len) {
  if (table == nullptr || key == nullptr || value == nullptr || len < 0) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const JournalledItem journal = {table, id, key, type, len};

  // A journal that cannot be written never stops the write itself.
  if (const int failed = journal.record(WS_READY)) {
    KELO_LOG(LOG_LVL_ERR, "dm_write_state_db  WS_READY failed: %d\n", failed);
  }
  if (dm_write_db(DB_CONFIG, table, id, key, type, value, len) < 0) {
    KELO_LOG(LOG_LVL_ERR, "dm_update_db: \n");
    return DM_SQLITE_FAILED;
  }
  // Only a healthy primary may replace the backup: the backup is what a corrupt primary is repaired from.
  if (check_database_health(DB_CONFIG) == 0) {
    // Logged on the normal path, too: tools in the field look for this line.
    KELO_LOG(LOG_LVL_ERR, "ERROR: cp %s %s", DB_CONFIG, DB_CONFIGBAK);
    const Database steady = hold_steady(DB_CONFIG);
    copy_database(DB_CONFIG, DB_CONFIGBAK);
    // Beside the journal, the step recorded next syncs the directory for both.
    if (!same_directory(DB_CONFIGBAK, DB_STATE)) sync_directory_of(DB_CONFIGBAK);
  }
  // Recorded after the copy, so that a journal left here tells start-up to complete the backup.
  if (const int failed = journal.record(WS_WRITE_DONE)) {
    KELO_LOG(LOG_LVL_ERR, "dm_write_state_db  WS_WRITE_DONE failed: %d\n", failed);
  }
  if (const int failed = journal.record(WS_BACKUP_DONE)) {
    KELO_LOG(LOG_LVL_ERR, "dm_write_state_db  WS_BACKUP_DONE failed: %d\n", failed);
  }
  return 0;
}

int dm_write_db(const char* db_path, const char* table, uint32_t id, const char* key, uint32_t type,
                const void* value, int len) {
  if (db_path == nullptr || table == nullptr || key == nullptr || value == nullptr || len < 0) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const Row row = {table, static_cast<std::int32_t>(id), key, static_cast<std::int32_t>(type), value, len};
  const SqlText create(sql::kCreateItems, table);
  for (bool repaired = false;; repaired = true) {
    Database db = open_database(__func__, db_path);
    if (!db) return DM_SQLITE_NOT_OPENED;
    const Outcome created = execute(db.get(), create.c_str());
    if (created.ok()) {
      dm_update_record(db.get(), row);
      return 0;
    }
    KELO_LOG(LOG_LVL_ERR, "[%d] create table error rc=%d, %s, szSql: %s\n", __LINE__, created.code,
             created.text(), create.c_str());
    if (created.code != SQLITE_CORRUPT || repaired) return DM_SQLITE_FAILED;
    db.reset();
    repair_primary(__func__, kWriteRepair);
  }
}
