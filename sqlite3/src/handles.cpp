#include "sqlite3/src/handles.hpp"

#include "log/library_log.hpp"
#include "sqlite3/src/copy.hpp"

namespace kelo::store {

void wait_while_busy(sqlite3* db) {
  constexpr int kBusyMilliseconds = 5000;
  sqlite3_busy_timeout(db, kBusyMilliseconds);
}

Database open_database(const char* caller, const char* path) {
  undo_interrupted_copy(path);
  sqlite3* raw = nullptr;
  const int code = sqlite3_open(path, &raw);
  Database db(raw);
  if (code != SQLITE_OK) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "sqlite3_open failed: %s\n", sqlite3_errmsg(raw));
    return {};
  }
  wait_while_busy(raw);
  return db;
}

Outcome execute(sqlite3* db, const char* sql, int (*row)(void*, int, char**, char**), void* context) {
  char* error = nullptr;
  const int code = sqlite3_exec(db, sql, row, context, &error);
  return {code, ErrorText(error)};
}

Rows select_rows(sqlite3* db, const char* sql) {
  char** cells = nullptr;
  char* error = nullptr;
  Rows result{};
  result.outcome.code = sqlite3_get_table(db, sql, &cells, &result.rows, &result.columns, &error);
  result.outcome.error.reset(error);
  result.cells.reset(cells);
  return result;
}

Preparation prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare(db, sql, -1, &statement, nullptr);
  return {code, Statement(statement)};
}

}  // namespace kelo::store
