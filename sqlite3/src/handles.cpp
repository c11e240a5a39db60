#include "sqlite3/src/handles.hpp"

#include <utility>

#include "log/library_log.hpp"
#include "sqlite3/src/copy.hpp"

namespace kelo::store {
namespace {

Opening opened(int code, sqlite3* raw) {
  if (code == SQLITE_OK) wait_while_busy(raw);
  return {code, Database(raw)};
}

}  // namespace

void wait_while_busy(sqlite3* db) {
  constexpr int kBusyMilliseconds = 5000;
  sqlite3_busy_timeout(db, kBusyMilliseconds);
}

Opening open_unlocked(const char* path) {
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  sqlite3* raw = nullptr;
  const int code = sqlite3_open_v2(path, &raw, kFlags, nullptr);
  return opened(code, raw);
}

int close_file(Database& db) {
  const int code = sqlite3_close(db.get());
  if (code == SQLITE_OK) static_cast<void>(db.release());
  return code;
}

Database open_database(const char* caller, const char* path) {
  undo_interrupted_copy(path);
  sqlite3* raw = nullptr;
  const int code = sqlite3_open(path, &raw);
  Opening opening = opened(code, raw);
  if (opening.ok()) return std::move(opening.db);
  KELO_LOG_AS(caller, LOG_LVL_ERR, "sqlite3_open failed: %s\n", opening.text());
  return {};
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
