// SPDX-License-Identifier: MIT
// Opens connections to databases and runs statements on them.
#include "sqlite3/src/handles.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <optional>
#include <utility>

#include "base/deadline.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/file_problem.hpp"
#include "sqlite3/src/fork_gate.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

// SQLite calls this when another program holds a lock. The result tells it whether to try again. SQLite's own wait is
// too short when signals interrupt it.
int wait_for_lock(void* /*context*/, int tries) {
  constexpr int kPatienceMilliseconds = 5000;
  constexpr int kPauseMicroseconds = 2000;
  static thread_local base::Deadline deadline;
  if (tries == 0) deadline = base::Deadline(kPatienceMilliseconds);
  return deadline.pause(kPauseMicroseconds) ? 1 : 0;
}

OpenResult opened(int code, sqlite3* raw) {
  if (code == SQLITE_OK) sqlite3_busy_handler(raw, wait_for_lock, nullptr);
  return {code, Connection(raw)};
}

OpenResult open_with(const char* path, int flags) {
  sqlite3* raw = nullptr;
  const int code = sqlite3_open_v2(path, &raw, flags, nullptr);
  return opened(code, raw);
}

}  // namespace

OpenResult open_for_one_thread(const char* path) {
  return open_with(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX);
}

OpenResult open_for_reading(const char* path) {
  struct stat status {};
  // SQLite would wait until another process opens the pipe for writing.
  if (stat(path, &status) == 0 && S_ISFIFO(status.st_mode)) return {SQLITE_CANTOPEN, nullptr};
  return open_with(path, SQLITE_OPEN_READONLY);
}

OpenResult open_for_writing(const char* path) {
  sqlite3* raw = nullptr;
  const int code = sqlite3_open(path, &raw);
  return opened(code, raw);
}

Connection open_database(const char* caller, const char* path) {
  errno = 0;
  OpenResult opening = open_for_writing(path);
  if (opening.ok()) return std::move(opening.db);
  const int error = errno;  // SQLite has left the error of the system
  KELO_LOG_AS(caller, LOG_LVL_ERR, "sqlite3_open failed: %s\n", opening.text());
  if (error != 0) log_file_problem(path, error);
  return {};
}

int close_file(Connection& db) {
  const int code = sqlite3_close(db.get());
  if (code == SQLITE_OK) static_cast<void>(db.release());
  return code;
}

void TextFreer::operator()(char* text) const {
  const SqliteUse use;
  sqlite3_free(text);
}

void TableFreer::operator()(char** cells) const {
  const SqliteUse use;
  sqlite3_free_table(cells);
}

const char* Outcome::text() const { return error ? error.get() : sqlite3_errstr(code); }

Outcome execute(sqlite3* db, const char* sql, int (*row)(void*, int, char**, char**), void* context) {
  char* error = nullptr;
  const int code = sqlite3_exec(db, sql, row, context, &error);
  return {code, ErrorText(error)};
}

Outcome execute_formatted(sqlite3* db, const char* format, ...) {
  SqlText sql;
  va_list arguments;
  va_start(arguments, format);
  sql.vprint(format, arguments);
  va_end(arguments);
  return execute(db, sql.c_str());
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

Rows select_formatted(sqlite3* db, const char* format, ...) {
  SqlText sql;
  va_list arguments;
  va_start(arguments, format);
  sql.vprint(format, arguments);
  va_end(arguments);
  return select_rows(db, sql.c_str());
}

PreparedStatement prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare(db, sql, -1, &statement, nullptr);
  return {code, Statement(statement)};
}

PreparedStatement prepare_formatted(sqlite3* db, const char* format, ...) {
  SqlText sql;
  va_list arguments;
  va_start(arguments, format);
  sql.vprint(format, arguments);
  va_end(arguments);
  return prepare(db, sql.c_str());
}

PreparedStatement prepare_to_read(sqlite3* db, const char* sql) {
  // Another program had the file locked until the wait for it was over, so a second wait would be too long. Every other
  // failure is met again below, or it was the last one.
  if (sqlite3_exec(db, sql::kBeginReading, nullptr, nullptr, nullptr) == SQLITE_BUSY)
    return {SQLITE_BUSY, {}};
  return prepare(db, sql);
}

}  // namespace kelo::store
