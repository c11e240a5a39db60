// SPDX-License-Identifier: MIT
// The write journal: stores and reads its one row.
#include "sqlite3/src/journal.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/child.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/row.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kWriteCaller = "dm_write_state_db";
constexpr const char* kReadCaller = "dm_sqlite_check_database";

bool lacks_column(const Outcome& failed) { return std::strstr(failed.text(), "no such column") != nullptr; }

// A lock of another program does not mean that the file is damaged, so the journal is not deleted then.
bool is_locked_by_another(int code) { return code == SQLITE_BUSY || code == SQLITE_LOCKED; }

bool add_columns(const char* caller, sqlite3* db) {
  if (add_missing_columns(db, sql::kJournalTable, sql::kJournalKey)) return true;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "alter_table_add_column failed\n");
  return false;
}

void recreate_journal() {
  KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "ret_pos is NULL, other error occured\n");
  const CommandText remove("rm -f %s", journal_path());
  [[maybe_unused]] const int removed =
      base::run_shell(remove.c_str());  // open_for_writing() shows whether it worked
  const OpenResult created = open_for_writing(journal_path());
  if (!created.ok()) KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "Can't create database: %s\n", created.text());
  KELO_LOG_AS(kWriteCaller, LOG_LVL_DBUG, "Create database %s successfully\n", journal_path());
}

bool update_row(Connection& db, const char* update) {
  Outcome updated = execute(db.get(), update);
  if (updated.ok()) return true;
  KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "szSql: %s, rc: %d, szErrMsg: %s\n", update, updated.code,
              updated.text());

  if (lacks_column(updated)) {
    if (add_columns(kWriteCaller, db.get())) {
      updated = execute(db.get(), update);
      if (updated.ok()) return true;
      KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "[%d] update error, %s\n", __LINE__, updated.text());
    }
  } else if (!is_locked_by_another(updated.code)) {
    db.reset();
    recreate_journal();
  }
  KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "error when szSql: %s, rc: %d\n", update, updated.code);
  return false;
}

bool insert_row(sqlite3* db, const JournalItem& item, int state) {
  const Outcome inserted =
      execute_formatted(db, sql::kInsertJournal, item.table, static_cast<std::int32_t>(item.id), item.key,
                        static_cast<std::int32_t>(item.type), item.len, state);
  if (!inserted.ok())
    KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "[%d] insert error, %s\n", __LINE__, inserted.text());
  return inserted.ok();
}

Rows select_row(sqlite3* db) {
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "szSql %s\n", sql::kSelectJournal);
  Rows found = select_rows(db, sql::kSelectJournal);
  if (found.outcome.ok()) return found;
  KELO_LOG_AS(kReadCaller, LOG_LVL_WRN, "errmsg %s\n", found.outcome.text());
  if (!lacks_column(found.outcome) || !add_columns(kReadCaller, db)) return found;
  found = select_rows(db, sql::kSelectJournal);
  if (found.outcome.ok()) {
    KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "szSql select success, nRow, %d, nColumn: %d\n", found.rows,
                found.columns);
  }
  return found;
}

JournalledName name_of(const char* text) {
  JournalledName name{};
  const std::size_t length = std::strlen(text);
  if (length < name.size()) std::memcpy(name.data(), text, length);
  return name;
}

int number_of(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

void log_row(const JournalRow& row) {
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "read item_table %s\n", row.table.data());
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "read item_key %s\n", row.key.data());
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "read id %d\n", static_cast<int>(row.id));
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "read type %d\n", static_cast<int>(row.type));
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "read len %d\n", row.len);
  KELO_LOG_AS(kReadCaller, LOG_LVL_DBUG, "read state %d\n", row.state);
}

}  // namespace

bool record_in_journal(const JournalItem& item, int state) {
  Connection db = open_database(kWriteCaller, journal_path());
  if (!db) return false;
  const Outcome created = execute(db.get(), sql::kCreateJournal);
  if (!created.ok()) {
    KELO_LOG_AS(kWriteCaller, LOG_LVL_ERR, "[%d] create table error, %s\n", __LINE__, created.text());
    return false;
  }
  const auto id = static_cast<std::int32_t>(item.id);
  const auto type = static_cast<std::int32_t>(item.type);
  const Presence presence = look_for_row(db.get(), sql::kJournalTable, sql::kJournalKey);
  if (presence != Presence::absent) {
    const SqlText update(sql::kUpdateJournal, item.table, id, item.key, type, item.len, state);
    if (!update_row(db, update.c_str())) return false;
    if (presence == Presence::present || sqlite3_changes(db.get()) > 0) return true;
  }
  return insert_row(db.get(), item, state);
}

std::optional<JournalRow> read_journal() {
  constexpr int kColumns = 6;
  const Connection db = open_database(kReadCaller, journal_path());
  if (!db) return {};
  const Rows found = select_row(db.get());
  if (!found.outcome.ok() || found.rows < 1 || found.columns < kColumns) return {};
  for (int column = 0; column < kColumns; ++column) {
    if (found.cell(0, column) == nullptr) return {};  // a column that was added is NULL
  }
  const JournalRow row = {name_of(found.cell(0, 0)),
                          name_of(found.cell(0, 1)),
                          static_cast<std::uint32_t>(number_of(found.cell(0, 2))),
                          static_cast<std::uint32_t>(number_of(found.cell(0, 3))),
                          number_of(found.cell(0, 4)),
                          number_of(found.cell(0, 5))};
  log_row(row);
  return row;
}

}  // namespace kelo::store
