// SPDX-License-Identifier: MIT
// Restores rows that the primary has lost. They are taken from the backup.
#include "sqlite3/src/mend.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/repair.hpp"
#include "sqlite3/src/row.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

bool same_bytes(const char* path, const char* other) {
  const base::Descriptor one = base::open_file(path, O_RDONLY);
  const base::Descriptor two = base::open_file(other, O_RDONLY);
  std::array<char, 1024> left;
  std::array<char, 1024> right;
  std::size_t size = 0;
  do {
    size = base::read_all(one.get(), left);
    if (base::read_all(two.get(), right) != size || std::memcmp(left.data(), right.data(), size) != 0)
      return false;
  } while (size == left.size());
  return true;
}

// Returns whether the value in column 0 matches the checksum in column 1. SQLite returns no address for an empty
// value.
bool matches_checksum(sqlite3_stmt* row) {
  const void* const value = sqlite3_column_blob(row, 0);
  const int len = sqlite3_column_bytes(row, 0);
  return value_crc(value == nullptr ? "" : value, len) == sqlite3_column_int(row, 1);
}

bool has_undamaged(sqlite3* db, const char* table, const char* key) {
  const PreparedStatement selected = prepare_formatted(db, sql::kSelectItem, table, key);
  return selected.ok() && sqlite3_step(selected.statement.get()) == SQLITE_ROW &&
         matches_checksum(selected.statement.get());
}

// A row that does not exist was deleted by another program. A row with another key is damaged.
bool has_row(sqlite3* db, const char* table, int row) {
  return select_formatted(db, sql::kSelectRow, table, row).rows > 0;
}

void mend_table(const char* caller, sqlite3* primary, const char* table, sqlite3_stmt* rows) {
  while (sqlite3_step(rows) == SQLITE_ROW) {
    const auto* const key = reinterpret_cast<const char*>(sqlite3_column_text(rows, 2));
    if (key == nullptr || !matches_checksum(rows) || has_undamaged(primary, table, key) ||
        !has_row(primary, table, sqlite3_column_int(rows, 5)))
      continue;
    KELO_LOG_AS(caller, LOG_LVL_ERR, "%s lost %s %s, it is taken from %s\n", primary_path(), table, key,
                backup_path());
    store_item(primary, {table, sqlite3_column_int(rows, 3), key, sqlite3_column_int(rows, 4),
                         sqlite3_column_blob(rows, 0), sqlite3_column_bytes(rows, 0)});
  }
}

// The table has lost a column, or damage in the file makes SQLite treat it as read-only.
bool needs_replacement(int code) {
  return code == SQLITE_ERROR || (code == SQLITE_READONLY && access(primary_path(), W_OK) == 0);
}

// Returns false when rows of a table cannot be written into the primary.
bool mend_rows(const char* caller) {
  const OpenResult primary = open_for_writing(primary_path());
  const OpenResult backup = open_for_reading(backup_path());
  if (!primary.ok() || !backup.ok()) return true;
  const Rows tables = select_rows(backup.db.get(), sql::kSelectTables);
  bool writable = true;
  for (int table = 0; tables.outcome.ok() && table < tables.rows; ++table) {
    const char* const name = tables.cell(table, 0);
    const PreparedStatement rows = prepare_formatted(backup.db.get(), sql::kSelectRows, name);
    if (!rows.ok()) continue;
    const int code = execute_formatted(primary.db.get(), sql::kTryUpdate, name).code;
    if (code == SQLITE_OK) {
      mend_table(caller, primary.db.get(), name, rows.statement.get());
    } else if (needs_replacement(code)) {
      writable = false;
    }
  }
  return writable;
}

}  // namespace

void mend_primary(const char* caller) {
  if (size_of(primary_path()) == 0 || size_of(backup_path()) == 0 ||
      same_bytes(primary_path(), backup_path()))
    return;
  if (!mend_rows(caller)) take_primary_from_backup(caller);
}

}  // namespace kelo::store
