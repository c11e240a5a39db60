// SPDX-License-Identifier: MIT
// Writes many defaults in one transaction. After a power cut all of them are stored or none.
#include "sqlite3/src/defaults_together.hpp"

#include <strings.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/file.hpp"
#include "base/heap.hpp"
#include "kelo_utils/sqlite.h"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

using State = DefaultRow::State;
using SortedRows = std::span<DefaultRow* const>;

// SQLite ignores the case of letters in the names of tables. No statement can hold a longer name.
int compare_tables(const DefaultRow& one, const DefaultRow& other) {
  constexpr std::size_t kLongestName = 512;
  return strncasecmp(one.row.table, other.row.table, kLongestName);
}

int compare_keys(const DefaultRow& one, const DefaultRow& other) {
  return std::strcmp(one.row.key, other.row.key);
}

// Sorts by table, by key and then by the given order, since the last row of a key is the one that is stored.
int compare_for_sort(const void* one, const void* other) {
  const DefaultRow* const left = *static_cast<DefaultRow* const*>(one);
  const DefaultRow* const right = *static_cast<DefaultRow* const*>(other);
  if (const int tables = compare_tables(*left, *right); tables != 0) return tables;
  if (const int keys = compare_keys(*left, *right); keys != 0) return keys;
  return left < right ? -1 : 1;
}

// Other rows are left to the single write, which logs what is wrong with them. It puts keys into its statements,
// where a quote matters.
bool can_be_bound(const Row& row) {
  return row.len >= 0 && row.table != nullptr && row.key != nullptr && row.value != nullptr &&
         std::strchr(row.key, '\'') == nullptr;
}

using Comparison = int (*)(const DefaultRow&, const DefaultRow&);

// `before` counts the sorted rows that are less than a row, `up_to` also those that are equal to it.
enum class Bound { before = -1, up_to = 0 };

std::size_t count_rows(Bound bound, SortedRows rows, const DefaultRow& row, Comparison compare) {
  std::size_t first = 0;
  for (std::size_t count = rows.size(); count > 0;) {
    const std::size_t half = count / 2;
    if (compare(*rows[first + half], row) <= static_cast<int>(bound)) {
      first += half + 1;
      count -= half + 1;
    } else {
      count = half;
    }
  }
  return first;
}

SortedRows rows_of_table(SortedRows rows, const DefaultRow& row) {
  const SortedRows without_later = rows.first(count_rows(Bound::up_to, rows, row, compare_tables));
  return without_later.subspan(count_rows(Bound::before, without_later, row, compare_tables));
}

// Compares the rows of one table with the rows that the database has.
class DefaultsTable {
 public:
  DefaultsTable(sqlite3* db, const char* name, SortedRows rows) : db_(db), name_(name), rows_(rows) {}

  // Sets the state of every row. All rows are left out when the table cannot be made or read.
  void set_states() {
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      const bool replaced = i + 1 < rows_.size() && compare_keys(*rows_[i], *rows_[i + 1]) == 0;
      rows_[i]->state = replaced ? State::stored : State::absent;
    }
    if (compare_stored()) return;
    for (DefaultRow* const row : rows_) row->state = State::left_out;
  }

 private:
  bool compare_stored() {
    if (!execute_formatted(db_, sql::kCreateDefaults, name_).ok()) return false;
    const PreparedStatement all = prepare_formatted(db_, sql::kSelectDefaults, name_);
    int stepped = all.code;
    while (all.ok() && (stepped = sqlite3_step(all.statement.get())) == SQLITE_ROW)
      compare_row(all.statement.get());
    return stepped == SQLITE_DONE;
  }

  // An older release may have stored several rows of one key. When one of them differs, all are updated.
  void compare_row(sqlite3_stmt* stored) {
    DefaultRow wanted{};
    wanted.row.key = reinterpret_cast<const char*>(sqlite3_column_text(stored, 3));
    if (wanted.row.key == nullptr) return;
    const std::size_t count = count_rows(Bound::up_to, rows_, wanted, compare_keys);
    if (count == 0 || compare_keys(*rows_[count - 1], wanted) != 0) return;
    DefaultRow& last = *rows_[count - 1];
    if (last.state != State::different)
      last.state = is_equal(stored, last.row) ? State::stored : State::different;
  }

  static bool is_equal(sqlite3_stmt* stored, const Row& row) {
    return sqlite3_column_int(stored, 0) == row.type && sqlite3_column_int(stored, 1) == row.len &&
           sqlite3_column_type(stored, 2) == SQLITE_BLOB && sqlite3_column_bytes(stored, 2) == row.len &&
           (row.len == 0 ||
            std::memcmp(sqlite3_column_blob(stored, 2), row.value, static_cast<std::size_t>(row.len)) == 0);
  }

  sqlite3* db_;
  const char* name_;  // as the first row writes it, since the table is made with that name
  SortedRows rows_;
};

// Most rows go into the same table as the row before them, so the prepared statement is kept.
class RowWriter {
 public:
  explicit RowWriter(sqlite3* db) : db_(db) {}

  bool write(const DefaultRow& row) {
    if (previous_ == nullptr || previous_->state != row.state || compare_tables(*previous_, row) != 0) {
      const char* const format = row.state == State::absent ? sql::kInsertDefaults : sql::kUpdateDefaults;
      statement_ = prepare_formatted(db_, format, row.row.table).statement;
    }
    previous_ = &row;
    sqlite3_stmt* const statement = statement_.get();
    sqlite3_bind_int(statement, 1, row.row.type);
    sqlite3_bind_int(statement, 2, row.row.len);
    sqlite3_bind_blob(statement, 3, row.row.value, row.row.len, SQLITE_STATIC);
    sqlite3_bind_text(statement, 4, row.row.key, -1, SQLITE_STATIC);
    const bool done = sqlite3_step(statement) == SQLITE_DONE;
    sqlite3_reset(statement);
    return done;
  }

 private:
  sqlite3* db_;
  const DefaultRow* previous_ = nullptr;
  Statement statement_;
};

bool write_rows(sqlite3* db, std::span<DefaultRow> rows, SortedRows sorted) {
  if (!execute(db, "begin immediate").ok()) return false;
  // All tables are made before the first prepared statement, which SQLite would otherwise have to prepare again.
  for (const DefaultRow& row : rows) {
    if (row.state == State::unknown)
      DefaultsTable(db, row.row.table, rows_of_table(sorted, row)).set_states();
  }
  RowWriter writer(db);
  for (DefaultRow& row : rows) {
    if (row.state == State::stored || row.state == State::left_out) continue;
    if (!writer.write(row)) return false;
  }
  if (!execute(db, "commit").ok()) return false;
  for (DefaultRow& row : rows) {
    if (row.state != State::left_out) row.state = State::stored;
  }
  return true;
}

}  // namespace

bool write_defaults_together(std::span<DefaultRow> rows) {
  const auto sorted = base::zeroed_array<DefaultRow*>(rows.size());
  if (!sorted) return false;
  std::size_t count = 0;
  for (DefaultRow& row : rows) {
    row.state = can_be_bound(row.row) ? State::unknown : State::left_out;
    if (row.state == State::unknown) sorted[count++] = &row;
  }
  std::qsort(sorted.get(), count, sizeof(void*), compare_for_sort);
  {
    const OpenResult opening = open_for_writing(defaults_path());
    if (!opening.ok() || !write_rows(opening.db.get(), rows, {sorted.get(), count})) return false;
  }
  // A power cut would roll the rows back until the removal of SQLite's journal is on storage.
  static_cast<void>(base::sync_directory_of(defaults_path()));
  return true;
}

}  // namespace kelo::store
