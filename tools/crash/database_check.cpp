// SPDX-License-Identifier: MIT
// Looks at database files with SQLite alone: whether they are whole, and whether two hold the same rows.
#include <sqlite3.h>

#include <string>
#include <string_view>

#include "tools/crash/files.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {
namespace {

class Database {
 public:
  explicit Database(const char* path)
      : result_(sqlite3_open_v2(path, &db_, SQLITE_OPEN_READWRITE, nullptr)) {}
  ~Database() { sqlite3_close(db_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // All cells of the answer, or the error.
  std::string ask(const std::string& sql) {
    std::string answer;
    sqlite3_stmt* statement = nullptr;
    if (result_ == SQLITE_OK) result_ = sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr);
    while (result_ == SQLITE_OK || result_ == SQLITE_ROW) {
      result_ = sqlite3_step(statement);
      if (result_ == SQLITE_ROW) append_row(statement, answer);
    }
    if (result_ == SQLITE_DONE) {
      result_ = SQLITE_OK;
    } else {
      answer = "error " + std::to_string(result_) + "\n";
    }
    sqlite3_finalize(statement);
    return answer;
  }

 private:
  static void append_row(sqlite3_stmt* statement, std::string& answer) {
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      const void* const bytes = sqlite3_column_blob(statement, column);
      const auto count = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
      if (count > 0) answer.append(static_cast<const char*>(bytes), count);
      answer += '\n';
    }
  }

  sqlite3* db_ = nullptr;
  int result_;
};

std::string rows_of(const char* path) {
  Database database(path);
  std::string tables = database.ask("select name from sqlite_master where type='table' order by name");
  std::string rows = tables;
  for (std::string_view rest = tables; rest.find('\n') != std::string_view::npos;) {
    const std::string_view table = rest.substr(0, rest.find('\n'));
    rows += database.ask("select * from \"" + std::string(table) + "\" order by rowid");
    rest.remove_prefix(table.size() + 1);
  }
  return rows;
}

}  // namespace

std::string database_fault(const char* path) {
  const std::string answer = Database(path).ask("PRAGMA integrity_check");
  return answer == "ok\n" ? "" : std::string(path) + ": " + answer;
}

std::string difference(const char* path, const char* other) {
  if (read_whole(path) == read_whole(other) || rows_of(path) == rows_of(other)) return {};
  return std::string(path) + " and " + other + " hold different rows";
}

}  // namespace kelo::crash
