#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/fatal.hpp"
#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/fatal_path.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;
using kelo::base::Stream;

// Readers of the file expect the NUL as part of the line end.
constexpr std::string_view kLineEnd("\r\n\0", 3);
constexpr std::size_t kLineSize = 512;

// What substr() would give; that one brings in the C++ run time.
std::string_view first_bytes(std::string_view text, std::size_t most) {
  return {text.data(), std::min(text.size(), most)};
}

// One line of the file; what does not fit before the line end is cut.
class CsvLine {
 public:
  void add(std::string_view field) {
    append(field);
    append(",");
  }
  void add(int number) {
    const FixedText<12> digits("%d", number);
    add(digits.c_str());
  }
  void write_to(std::FILE* out) {
    std::copy(kLineEnd.begin(), kLineEnd.end(), line_.begin() + static_cast<std::ptrdiff_t>(length_));
    std::fwrite(line_.data(), 1, length_ + kLineEnd.size(), out);
  }

 private:
  void append(std::string_view text) {
    text = first_bytes(text, kLineSize - kLineEnd.size() - length_);
    std::copy(text.begin(), text.end(), line_.begin() + static_cast<std::ptrdiff_t>(length_));
    length_ += text.size();
  }

  std::array<char, kLineSize> line_;
  std::size_t length_ = 0;
};

std::string_view column_bytes(sqlite3_stmt* row, int column) {
  const void* const bytes = sqlite3_column_blob(row, column);
  const int length = sqlite3_column_bytes(row, column);
  return bytes == nullptr
             ? std::string_view()
             : std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

// Adds a length or a type unless its text is too long for one, and returns it; 0 when it was left out.
int add_short_number(CsvLine& line, sqlite3_stmt* row, int column) {
  constexpr int kTooLong = 5;
  sqlite3_column_text(row, column);
  if (sqlite3_column_bytes(row, column) >= kTooLong) return 0;
  const int number = sqlite3_column_int(row, column);
  line.add(number);
  return number;
}

int leading_number(std::string_view value) {
  std::int32_t number = 0;
  if (!value.empty()) std::memcpy(&number, value.data(), std::min(value.size(), sizeof number));
  return number;
}

CsvLine csv_line(const char* caller, sqlite3_stmt* row) {
  constexpr int kLongestKey = 31;
  CsvLine line;
  int column = 0;
  sqlite3_column_text(row, column);
  if (sqlite3_column_bytes(row, column) <= kLongestKey) line.add(column_bytes(row, column++));
  const int len = add_short_number(line, row, column++);
  const int type = add_short_number(line, row, column++);
  const std::string_view value = column_bytes(row, column);
  if (type == KELO_DM_TYPE_STRING) {
    line.add(first_bytes(value, static_cast<std::size_t>(std::max(len, 0))));
  } else {
    const int number = leading_number(value);
    KELO_LOG_AS(caller, LOG_LVL_ERR, "value:%d\n", number);
    line.add(number);
  }
  return line;
}

Stream open_csv() { return Stream(std::fopen(DB_EXPORT_CSV, "a+e")); }

}  // namespace

int dm_export_by_table(sqlite3* db, const char* table, FILE* out) {
  constexpr int kBadArgument = 3;
  if (table == nullptr || out == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return kBadArgument;
  }
  const SqlText select(sql::kSelectExport, table);
  sqlite3_stmt* raw = nullptr;
  const int code = sqlite3_prepare_v2(db, select.c_str(), -1, &raw, nullptr);
  const Statement rows(raw);
  if (code != SQLITE_OK) kelo::base::fatal(kFatalPath, __LINE__);
  while (sqlite3_step(rows.get()) == SQLITE_ROW) csv_line(__func__, rows.get()).write_to(out);
  return code;
}

int dm_sqlite_db2csv_cb(void* db, int ncols, char** values, char** /*names*/) {
  const Stream csv = open_csv();
  if (!csv) return 0;
  for (int column = 0; column < ncols; ++column) {
    dm_export_by_table(static_cast<sqlite3*>(db), values[column], csv.get());
  }
  return 0;
}

int dm_read_all_tabs_from_db(const char* db_path) {
  constexpr int kCsvNotOpened = 4;
  if (db_path == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const Database db = open_database(__func__, db_path);
  if (!db) return DM_SQLITE_NOT_OPENED;
  if (access(DB_EXPORT_CSV, F_OK) == 0) unlink(DB_EXPORT_CSV);
  {
    const Stream csv = open_csv();
    if (!csv) return kCsvNotOpened;
    CsvLine header;
    for (const char* const name : {"key", "len", "type", "value"}) header.add(std::string_view(name));
    header.write_to(csv.get());
  }
  const Outcome exported = execute(db.get(), sql::kSelectTables, dm_sqlite_db2csv_cb, db.get());
  if (exported.ok()) {
    std::printf("Operation done successfully\n");
  } else {
    std::fprintf(stderr, "SQL error: %s\n", exported.text());
  }
  return 0;
}
