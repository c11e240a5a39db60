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

// The words with which the steps of a write are logged.
struct StepLabels {
  const char* function;
  const char* code_label;  // is before the result code: "rc: " or empty
};

Statement prepare_adding_columns(const StepLabels& labels, sqlite3* db, const Row& row, const char* sql) {
  for (bool added = false;; added = true) {
    PreparedStatement prepared = prepare(db, sql);
    if (prepared.ok()) return std::move(prepared.statement);
    KELO_LOG_AS(labels.function, LOG_LVL_ERR, "[%d] sqlite3_prepare error, %s%d\n", __LINE__,
                labels.code_label, prepared.code);
    if (added) return {};
    if (!add_missing_columns(db, row.table, row.key)) {
      KELO_LOG_AS(labels.function, LOG_LVL_ERR, "alter_table_add_column failed\n");
      return {};
    }
  }
}

// Runs `sql` with the row's value. Columns that the table lacks are added. Returns whether the statement succeeded.
bool run_statement(const StepLabels& labels, sqlite3* db, const Row& row, const char* sql) {
  const Statement statement = prepare_adding_columns(labels, db, row, sql);
  if (!statement) return false;
  const int bound = sqlite3_bind_blob(statement.get(), 1, row.value, row.len, SQLITE_STATIC);
  if (bound != SQLITE_OK) {
    KELO_LOG_AS(labels.function, LOG_LVL_ERR, "[%d] bind_blob error, %s%d\n", __LINE__, labels.code_label,
                bound);
    return false;
  }
  const int stepped = sqlite3_step(statement.get());
  if (stepped != SQLITE_DONE) {
    KELO_LOG_AS(labels.function, LOG_LVL_ERR, "%d step failed rc: %d\n", __LINE__, stepped);
  }
  return stepped == SQLITE_DONE;
}

// The two statements that can store a row, and the words for their log lines.
struct RowStatements {
  StepLabels update_labels;
  const SqlText& update;
  StepLabels insert_labels;
  const SqlText& insert;
};

// When it is unknown whether the row exists, an insert could make a second one. So the row is updated first, and it
// is inserted only when the update has changed no row.
void update_or_insert(sqlite3* db, const Row& row, const RowStatements& statements) {
  const Presence presence = look_for_row(db, row.table, row.key);
  if (presence != Presence::absent) {
    const bool updated = run_statement(statements.update_labels, db, row, statements.update.c_str());
    if (!updated || presence == Presence::present || sqlite3_changes(db) > 0) return;
  }
  run_statement(statements.insert_labels, db, row, statements.insert.c_str());
}

}  // namespace

std::int32_t value_crc(const void* value, int len) {
  constexpr unsigned kCountedBits = 0xFFFF;
  return dm::checksum(value, static_cast<std::uint16_t>(static_cast<unsigned>(len) & kCountedBits), 0);
}

Presence look_for_row(sqlite3* db, const char* table, const char* key) {
  const SqlText select(sql::kSelectExistence, table, key);
  const Rows found = select_rows(db, select.c_str());
  if (found.outcome.ok()) return found.rows >= 1 ? Presence::present : Presence::absent;
  KELO_LOG_AS("dm_record_exist", LOG_LVL_ERR, "[%d] get table existence error: %s\n", __LINE__,
              sqlite3_errstr(found.outcome.code));
  return Presence::unknown;
}

void store_item(sqlite3* db, const Row& row) {
  constexpr const char* kCaller = "dm_update_record";
  const std::int32_t crc = value_crc(row.value, row.len);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "wr crc: 0x%x\n", static_cast<unsigned>(crc));
  const SqlText update(sql::kUpdateItem, row.table, row.id, row.type, row.len, crc, row.key);
  const SqlText insert(sql::kInsertItem, row.table, row.id, row.key, row.type, row.len, crc);
  update_or_insert(db, row, {{kCaller, "rc: "}, update, {kCaller, ""}, insert});
}

void store_default(sqlite3* db, const Row& row) {
  constexpr StepLabels kLabels = {"dm_update_def_record", ""};
  const SqlText update(sql::kUpdateDefault, row.table, row.type, row.len, row.key);
  const SqlText insert(sql::kInsertDefault, row.table, row.key, row.type, row.len);
  update_or_insert(db, row, {kLabels, update, kLabels, insert});
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
    const Rows duplicate = select_rows(opening.db.get(), SqlText(sql::kSelectDuplicate, name).c_str());
    if (!duplicate.outcome.ok() || duplicate.rows == 0) continue;
    const Outcome removed = execute(opening.db.get(), SqlText(sql::kDeleteDuplicates, name, name).c_str());
    KELO_LOG_AS("sqlite_reg", LOG_LVL_WRN, "%s: older rows of one key in %s removed: %d\n", path, name,
                removed.code);
  }
}

}  // namespace kelo::store
