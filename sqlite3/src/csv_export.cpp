// SPDX-License-Identifier: MIT
// The CSV export: each row of a database is one line of fields.
#include "sqlite3/src/csv_export.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/fatal.hpp"
#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

using base::Stream;

constexpr const char* kRowCaller = "dm_export_by_table";

// Readers of the file expect the NUL as part of the line end.
constexpr std::string_view kLineEnd("\r\n\0", 3);
constexpr std::size_t kLineSize = 512;

// One line without its end. A longer text is cut.
using CsvLine = FixedText<kLineSize - kLineEnd.size() + 1>;

void write_line(const base::TextBuilder& line, std::FILE* out) {
  std::fwrite(line.c_str(), 1, line.size(), out);
  std::fwrite(kLineEnd.data(), 1, kLineEnd.size(), out);
}

// This replaces substr(), which would link the C++ run time.
std::string_view first_bytes(std::string_view text, std::size_t most) {
  return {text.data(), std::min(text.size(), most)};
}

std::string_view column_bytes(sqlite3_stmt* row, int column) {
  const void* const bytes = sqlite3_column_blob(row, column);
  const int length = sqlite3_column_bytes(row, column);
  return bytes == nullptr
             ? std::string_view()
             : std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

// Adds a length or a type to the line and returns it. Returns 0 when its text is too long and is left out.
int add_short_number(CsvLine& line, sqlite3_stmt* row, int column) {
  constexpr int kTooLong = 5;
  sqlite3_column_text(row, column);
  if (sqlite3_column_bytes(row, column) >= kTooLong) return 0;
  const int number = sqlite3_column_int(row, column);
  line.print("%d,", number);
  return number;
}

int leading_number(std::string_view value) {
  std::int32_t number = 0;
  if (!value.empty()) std::memcpy(&number, value.data(), std::min(value.size(), sizeof number));
  return number;
}

void write_row(sqlite3_stmt* row, std::FILE* out) {
  constexpr int kLongestKey = 31;
  CsvLine line;
  int column = 0;
  sqlite3_column_text(row, column);
  if (sqlite3_column_bytes(row, column) <= kLongestKey) line.append(column_bytes(row, column++)).append(",");
  const int len = add_short_number(line, row, column++);
  const int type = add_short_number(line, row, column++);
  const std::string_view value = column_bytes(row, column);
  if (type == KELO_DM_TYPE_STRING) {
    line.append(first_bytes(value, static_cast<std::size_t>(std::max(len, 0)))).append(",");
  } else {
    const int number = leading_number(value);
    KELO_LOG_AS(kRowCaller, LOG_LVL_ERR, "value:%d\n", number);
    line.print("%d,", number);
  }
  write_line(line, out);
}

Stream open_csv() { return Stream(std::fopen(DB_EXPORT_CSV, "a+e")); }

int on_listed_tables(void* db, int count, char** names, char** /*columns*/) {
  export_listed_tables(static_cast<sqlite3*>(db), count, names);
  return 0;
}

}  // namespace

int export_table(sqlite3* db, const char* table, std::FILE* out) {
  const SqlText select(sql::kSelectExport, table);
  sqlite3_stmt* raw = nullptr;
  const int code = sqlite3_prepare_v2(db, select.c_str(), -1, &raw, nullptr);
  const Statement rows(raw);
  if (code != SQLITE_OK) base::fatal(base::kStoreCode);
  while (sqlite3_step(rows.get()) == SQLITE_ROW) write_row(rows.get(), out);
  return code;
}

void export_listed_tables(sqlite3* db, int count, char** names) {
  const Stream csv = open_csv();
  if (!csv) return;
  for (int table = 0; table < count; ++table) {
    if (names[table] == nullptr) {
      log::param_null(kRowCaller);
      continue;
    }
    export_table(db, names[table], csv.get());
  }
}

int export_database(const char* path) {
  constexpr int kCsvNotOpened = 4;
  const Connection db = open_database("dm_read_all_tabs_from_db", path);
  if (!db) return DM_SQLITE_NOT_OPENED;
  if (access(DB_EXPORT_CSV, F_OK) == 0) unlink(DB_EXPORT_CSV);
  {
    const Stream csv = open_csv();
    if (!csv) return kCsvNotOpened;
    CsvLine head;
    write_line(head.append("key,len,type,value,"), csv.get());
  }
  const Outcome exported = execute(db.get(), sql::kSelectTables, on_listed_tables, db.get());
  if (exported.ok()) {
    std::fprintf(stdout, "Operation done successfully\n");
  } else {
    std::fprintf(stderr, "SQL error: %s\n", exported.text());
  }
  return 0;
}

}  // namespace kelo::store
