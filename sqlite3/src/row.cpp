// SPDX-License-Identifier: MIT
// Single rows of items and defaults: finds, stores and reads them.
#include "sqlite3/src/row.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "data_manager/checksum.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

// A row to be stored, the formats of its two statements, and the words with which the steps are logged.
struct StoredRow {
  sqlite3* db;
  const Row& row;
  std::int32_t crc;
  const char* function;
  const char* update_label;  // is before the result code of an update: "rc: " or empty
  const char* update;
  const char* insert;
};

Statement prepare_adding_columns(const StoredRow& stored, const char* code_label, const char* sql) {
  for (bool added = false;; added = true) {
    PreparedStatement prepared = prepare(stored.db, sql);
    if (prepared.ok()) return std::move(prepared.statement);
    KELO_LOG_AS(stored.function, LOG_LVL_ERR, "[%d] sqlite3_prepare error, %s%d\n", __LINE__, code_label,
                prepared.code);
    if (added) return {};
    if (!add_missing_columns(stored.db, stored.row.table, stored.row.key)) {
      KELO_LOG_AS(stored.function, LOG_LVL_ERR, "alter_table_add_column failed\n");
      return {};
    }
  }
}

// Runs a statement with the row's value. Columns that the table lacks are added. Returns whether the statement
// succeeded.
bool run_statement(const StoredRow& stored, const char* code_label, const char* format) {
  const Row& row = stored.row;
  const SqlText sql(format, row.table, row.key, row.type, row.len, row.id, stored.crc);
  const Statement statement = prepare_adding_columns(stored, code_label, sql.c_str());
  if (!statement) return false;
  const int bound = sqlite3_bind_blob(statement.get(), 1, row.value, row.len, SQLITE_STATIC);
  if (bound != SQLITE_OK) {
    KELO_LOG_AS(stored.function, LOG_LVL_ERR, "[%d] bind_blob error, %s%d\n", __LINE__, code_label, bound);
    return false;
  }
  const int stepped = sqlite3_step(statement.get());
  if (stepped != SQLITE_DONE) {
    KELO_LOG_AS(stored.function, LOG_LVL_ERR, "%d step failed rc: %d\n", __LINE__, stepped);
  }
  return stepped == SQLITE_DONE;
}

// When it is unknown whether the row exists, an insert could make a second one. So the row is updated first, and it
// is inserted only when the update has changed no row.
void update_or_insert(const StoredRow& stored) {
  const Presence presence = look_for_row(stored.db, stored.row.table, stored.row.key);
  if (presence != Presence::absent) {
    const bool updated = run_statement(stored, stored.update_label, stored.update);
    if (!updated || presence == Presence::present || sqlite3_changes(stored.db) > 0) return;
  }
  run_statement(stored, "", stored.insert);
}

}  // namespace

std::int32_t value_crc(const void* value, int len) {
  constexpr unsigned kCountedBits = 0xFFFF;
  return dm::checksum(value, static_cast<std::uint16_t>(static_cast<unsigned>(len) & kCountedBits), 0);
}

Presence look_for_row(sqlite3* db, const char* table, const char* key) {
  const Rows found = select_formatted(db, sql::kSelectExistence, table, key);
  if (found.outcome.ok()) return found.rows >= 1 ? Presence::present : Presence::absent;
  KELO_LOG_AS("dm_record_exist", LOG_LVL_ERR, "[%d] get table existence error: %s\n", __LINE__,
              sqlite3_errstr(found.outcome.code));
  return Presence::unknown;
}

void store_item(sqlite3* db, const Row& row) {
  constexpr const char* kCaller = "dm_update_record";
  const std::int32_t crc = value_crc(row.value, row.len);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "wr crc: 0x%x\n", static_cast<unsigned>(crc));
  update_or_insert({db, row, crc, kCaller, "rc: ", sql::kUpdateItem, sql::kInsertItem});
}

void store_default(sqlite3* db, const Row& row) {
  update_or_insert({db, row, 0, "dm_update_def_record", "", sql::kUpdateDefault, sql::kInsertDefault});
}

int fetch_value(const char* caller, sqlite3_stmt* select, void* buf, int size, std::uint32_t* second) {
  const int stepped = sqlite3_step(select);
  if (stepped != SQLITE_ROW) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "sqlite3_step error %d\n", stepped);
    return DM_SQLITE_FAILED;
  }
  const void* const value = sqlite3_column_blob(select, 0);
  const int length = sqlite3_column_bytes(select, 0);
  if (length == 0 || value == nullptr) return DM_SQLITE_FAILED;
  const int copied = std::min(size, length);
  std::memcpy(buf, value, static_cast<std::size_t>(copied));
  if (second != nullptr) *second = static_cast<std::uint32_t>(sqlite3_column_int(select, 1));
  return copied;
}

void remove_duplicate_rows(const char* path) {
  const OpenResult opening = open_for_writing(path);
  if (!opening.ok()) return;
  const Rows tables = select_rows(opening.db.get(), sql::kSelectTables);
  for (int table = 0; tables.outcome.ok() && table < tables.rows; ++table) {
    const char* const name = tables.cell(table, 0);
    const Rows duplicate = select_formatted(opening.db.get(), sql::kSelectDuplicate, name);
    if (!duplicate.outcome.ok() || duplicate.rows == 0) continue;
    const Outcome removed = execute_formatted(opening.db.get(), sql::kDeleteDuplicates, name, name);
    KELO_LOG_AS("sqlite_reg", LOG_LVL_WRN, "%s: older rows of one key in %s removed: %d\n", path, name,
                removed.code);
  }
}

}  // namespace kelo::store
