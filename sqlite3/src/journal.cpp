#include <cstdlib>
#include <cstring>

#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

constexpr char kCaller[] = "dm_write_state_db";

// Another process's lock says nothing about the file: such a journal is left to the next write.
bool held_by_another(int code) { return code == SQLITE_BUSY || code == SQLITE_LOCKED; }

void recreate_journal() {
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "ret_pos is NULL, other error occured\n");
  const CommandText remove("rm -f %s", DB_STATE);
  [[maybe_unused]] const int removed = std::system(remove.c_str());  // the open below shows how it went
  sqlite3* raw = nullptr;
  const int code = sqlite3_open(DB_STATE, &raw);
  const Database created(raw);
  if (code != SQLITE_OK)
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Can't create database: %s\n", sqlite3_errmsg(raw));
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "Create database %s successfully\n", DB_STATE);
}

int update_row(Database db, const char* update) {
  Outcome updated = execute(db.get(), update);
  if (updated.ok()) return 0;
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "szSql: %s, rc: %d, szErrMsg: %s\n", update, updated.code,
              updated.text());

  if (std::strstr(updated.text(), "no such column") != nullptr) {
    if (alter_table_add_column(db.get(), sql::kJournalTable, sql::kJournalKey) != 0) {
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "alter_table_add_column failed\n");
    } else {
      updated = execute(db.get(), update);
      if (updated.ok()) return 0;
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "[%d] update error, %s\n", __LINE__, updated.text());
    }
  } else if (!held_by_another(updated.code)) {
    db.reset();
    recreate_journal();
  }
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "error when szSql: %s, rc: %d\n", update, updated.code);
  return DM_SQLITE_FAILED;
}

int insert_row(const Database& db, const char* insert) {
  const Outcome inserted = execute(db.get(), insert);
  if (inserted.ok()) return 0;
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "[%d] insert error, %s\n", __LINE__, inserted.text());
  return DM_SQLITE_FAILED;
}

}  // namespace

int dm_write_state_db(const char* table, uint32_t id, const char* key, uint32_t type, int len, int state) {
  if (table == nullptr || key == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  Database db = open_database(__func__, DB_STATE);
  if (!db) return DM_SQLITE_FAILED;
  const SqlText create(sql::kCreateJournal, sql::kJournalTable);
  const Outcome created = execute(db.get(), create.c_str());
  if (!created.ok()) {
    KELO_LOG(LOG_LVL_ERR, "[%d] create table error, %s\n", __LINE__, created.text());
    return DM_SQLITE_FAILED;
  }
  const auto stored_id = static_cast<std::int32_t>(id);
  const auto stored_type = static_cast<std::int32_t>(type);
  if (dm_record_exist(db.get(), sql::kJournalTable, sql::kJournalKey) != 0) {
    const SqlText update(sql::kUpdateJournal, sql::kJournalTable, table, stored_id, key, stored_type, len,
                         state, sql::kJournalKey);
    return update_row(std::move(db), update.c_str());
  }
  const SqlText insert(sql::kInsertJournal, sql::kJournalTable, sql::kJournalKey, table, stored_id, key,
                       stored_type, len, state);
  return insert_row(db, insert.c_str());
}
