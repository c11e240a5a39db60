// SPDX-License-Identifier: MIT
// Looks at database files, and changes them, without the library: plain SQLite and plain file calls.
// Whatever a helper cannot do is a failure of the running test.
#ifndef KELO_TESTS_DATABASE_HPP
#define KELO_TESTS_DATABASE_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kelo::tests {

// Runs statements on a database file, which is made when it is missing.
void execute_sql(const std::string& path, const std::string& statements);

// The rows that a query yields from an existing file, opened read-only; SQL's NULL reads as "NULL".
using TextRow = std::vector<std::string>;
std::vector<TextRow> query(const std::string& path, const std::string& sql);

// The same rows, the cells of each joined by '|'.
std::vector<std::string> query_lines(const std::string& path, const std::string& sql);

// The first cell of a query's first row; "no row" when there is none.
std::string scalar(const std::string& path, const std::string& sql);

// The text with which a table was created, as SQLite keeps it ("CREATE TABLE net (...)"); "no row" without
// it.
std::string table_schema(const std::string& path, const std::string& table);

// A row of an item table. `crc` is what an unaltered 32-bit reader sees.
struct ItemRow {
  std::int64_t id;
  std::string key;
  std::int64_t type;
  std::int64_t len;
  std::int64_t crc;
  std::string value;
  std::string value_type = "blob";  // SQLite's storage class of the value

  bool operator==(const ItemRow&) const = default;
};
std::ostream& operator<<(std::ostream& out, const ItemRow& row);

// All rows of an item table in the order of their insertion.
std::vector<ItemRow> item_rows(const std::string& path, const std::string& table);

// The row of the write journal. A second row is a failure of the test.
struct JournalRow {
  std::string key;
  std::string item_table;
  std::int64_t id;
  std::string item_key;
  std::int64_t type;
  std::int64_t len;
  std::int64_t state;

  bool operator==(const JournalRow&) const = default;
};
std::ostream& operator<<(std::ostream& out, const JournalRow& row);
std::optional<JournalRow> journal_row(const std::string& path);

// Its state alone; -1 without a file, a table or a row.
int journal_state(const std::string& path);

bool file_exists(const std::string& path);
std::string read_file(const std::string& path);
void write_file(const std::string& path, std::string_view bytes);
// Changes bytes inside an existing file.
void overwrite_file(const std::string& path, std::size_t offset, std::string_view bytes);

// Makes a file that SQLite opens but calls corrupt (code 11) as soon as its schema is read: the header
// is good, the first page after it is not.
void corrupt_schema(const std::string& path);
// Makes a file that SQLite calls "not a database" (code 26).
void make_no_database(const std::string& path);

}  // namespace kelo::tests

#endif  // KELO_TESTS_DATABASE_HPP
