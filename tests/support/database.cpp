// SPDX-License-Identifier: MIT
// Reads and changes databases beside the library.
#include "tests/support/database.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace kelo::tests {
namespace {

struct Closer {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct Finalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Connection = std::unique_ptr<sqlite3, Closer>;
using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

Connection open(const std::string& path, int flags) {
  sqlite3* raw = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &raw, flags, nullptr);
  Connection db(raw);
  if (code != SQLITE_OK) {
    ADD_FAILURE() << path << ": " << sqlite3_errmsg(raw);
    return {};
  }
  sqlite3_busy_timeout(raw, 5000);
  return db;
}

std::string cell(sqlite3_stmt* statement, int column) {
  const void* const bytes = sqlite3_column_blob(statement, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  if (sqlite3_column_type(statement, column) == SQLITE_NULL) return "NULL";
  return {static_cast<const char*>(bytes), bytes == nullptr ? 0 : size};
}

std::int64_t number(const std::string& text) {
  return text == "NULL" ? 0 : static_cast<std::int64_t>(std::stoll(text));
}

}  // namespace

void execute_sql(const std::string& path, const std::string& statements) {
  const Connection db = open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  if (!db) return;
  const int code = sqlite3_exec(db.get(), statements.c_str(), nullptr, nullptr, nullptr);
  EXPECT_EQ(code, SQLITE_OK) << path << ": " << statements << ": " << sqlite3_errmsg(db.get());
}

std::vector<TextRow> query(const std::string& path, const std::string& sql) {
  const Connection db = open(path, SQLITE_OPEN_READONLY);
  if (!db) return {};
  sqlite3_stmt* raw = nullptr;
  if (sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &raw, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << path << ": " << sql << ": " << sqlite3_errmsg(db.get());
    return {};
  }
  const Statement statement(raw);
  std::vector<TextRow> rows;
  int code = SQLITE_OK;
  while ((code = sqlite3_step(raw)) == SQLITE_ROW) {
    TextRow& row = rows.emplace_back();
    for (int column = 0; column < sqlite3_column_count(raw); ++column) row.push_back(cell(raw, column));
  }
  EXPECT_EQ(code, SQLITE_DONE) << path << ": " << sql << ": " << sqlite3_errmsg(db.get());
  return rows;
}

std::vector<std::string> query_lines(const std::string& path, const std::string& sql) {
  std::vector<std::string> lines;
  for (const TextRow& row : query(path, sql)) {
    std::string& line = lines.emplace_back();
    for (const std::string& text : row) line += (&text == &row.front() ? "" : "|") + text;
  }
  return lines;
}

std::string scalar(const std::string& path, const std::string& sql) {
  const std::vector<TextRow> rows = query(path, sql);
  return rows.empty() || rows[0].empty() ? "no row" : rows[0][0];
}

std::string table_schema(const std::string& path, const std::string& table) {
  return scalar(path, "select sql from sqlite_master where type='table' and name='" + table + "'");
}

std::ostream& operator<<(std::ostream& out, const ItemRow& row) {
  out << "id " << row.id << ", key '" << row.key << "', type " << row.type << ", len " << row.len << ", crc "
      << row.crc << ", " << row.value_type << " of " << row.value.size() << " bytes";
  if (row.value.size() <= 64) out << " \"" << row.value << '"';
  return out;
}

std::vector<ItemRow> item_rows(const std::string& path, const std::string& table) {
  std::vector<ItemRow> items;
  const std::string sql = "select id,key,type,len,crc,value,typeof(value) from " + table + " order by rowid";
  for (const TextRow& row : query(path, sql)) {
    items.push_back({number(row[0]), row[1], number(row[2]), number(row[3]), number(row[4]), row[5], row[6]});
  }
  return items;
}

std::ostream& operator<<(std::ostream& out, const JournalRow& row) {
  return out << "key '" << row.key << "', table '" << row.item_table << "', id " << row.id << ", item key '"
             << row.item_key << "', type " << row.type << ", len " << row.len << ", state " << row.state;
}

std::optional<JournalRow> journal_row(const std::string& path) {
  const std::vector<TextRow> rows =
      query(path, "select key,item_table,id,item_key,type,len,state from state order by rowid");
  EXPECT_LE(rows.size(), 1U) << "the journal holds more than one row";
  if (rows.empty()) return {};
  const TextRow& row = rows[0];
  return JournalRow{row[0], row[1], number(row[2]), row[3], number(row[4]), number(row[5]), number(row[6])};
}

int journal_state(const std::string& path) {
  if (!file_exists(path) || table_schema(path, "state") == "no row") return -1;
  const std::optional<JournalRow> row = journal_row(path);
  return row ? static_cast<int>(row->state) : -1;
}

bool file_exists(const std::string& path) { return std::filesystem::exists(path); }

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.is_open()) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(in), {}};
}

void write_file(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  EXPECT_TRUE(out.good()) << "cannot write " << path;
}

void overwrite_file(const std::string& path, std::size_t offset, std::string_view bytes) {
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  EXPECT_TRUE(file.good()) << "cannot change " << path;
}

void corrupt_schema(const std::string& path) {
  constexpr std::size_t kHeaderSize = 100;  // the page's b-tree head follows it
  constexpr std::size_t kDamage = 64;
  overwrite_file(path, kHeaderSize, std::string(kDamage, '\xA5'));
}

void make_no_database(const std::string& path) {
  constexpr std::size_t kSize = 4096;
  write_file(path, std::string(kSize, 'x'));
}

}  // namespace kelo::tests
