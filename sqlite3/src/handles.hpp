// SPDX-License-Identifier: MIT
// Owning types for the objects of SQLite. Its release functions are called only here.
#ifndef KELO_SQLITE3_HANDLES_HPP
#define KELO_SQLITE3_HANDLES_HPP

#include <sqlite3.h>

#include <memory>

#include "kelo_utils/base.h"

namespace kelo::store {

struct ConnectionCloser {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Connection = std::unique_ptr<sqlite3, ConnectionCloser>;

struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

// SQLite holds a lock while it frees these. They may outlive the operation, so each release is a use of SQLite of its
// own.
struct TextFreer {
  void operator()(char* text) const;
};
using ErrorText = std::unique_ptr<char, TextFreer>;

struct TableFreer {
  void operator()(char** cells) const;
};
using ResultCells = std::unique_ptr<char*, TableFreer>;

// The result of opening a database. After a failure there may be a handle, which has SQLite's error message.
struct [[nodiscard]] OpenResult {
  int code;
  Connection db;

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
  [[nodiscard]] const char* text() const { return sqlite3_errmsg(db.get()); }
};

// Opens a file for reading and writing and makes it when it is missing. Statements wait for a file that another
// program has locked, for five seconds at most, also when signals arrive.
OpenResult open_for_writing(const char* path);

// Does the same with a connection that has no mutex, so that only one thread at a time may use it.
OpenResult open_for_one_thread(const char* path);

// Opens an existing file only for reading.
OpenResult open_for_reading(const char* path);

// Calls open_for_writing(). A failure is logged under `caller`, and the result is empty.
Connection open_database(const char* caller, const char* path);

// Closes a connection and returns SQLite's code. When SQLite refuses, the connection stays open and in `db`.
int close_file(Connection& db);

struct [[nodiscard]] Outcome {
  int code;
  ErrorText error;

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
  // Returns SQLite's error message.
  [[nodiscard]] const char* text() const;
};

Outcome execute(sqlite3* db, const char* sql, int (*row)(void*, int, char**, char**) = nullptr,
                void* context = nullptr);

// This and the other functions of this kind format the statement as printf() does and cut it after 511 bytes. With a
// buffer of its own each caller would take 100 bytes more on the device, also for the guard of its stack.
Outcome execute_formatted(sqlite3* db, const char* format, ...) KELO_PRINTF(2, 3);

struct [[nodiscard]] Rows {
  Outcome outcome;
  ResultCells cells;  // column names first, then row by row
  int rows = 0;
  int columns = 0;

  // Returns the text of a cell, or null for SQL's NULL.
  [[nodiscard]] const char* cell(int row, int column) const {
    return cells.get()[(row + 1) * columns + column];
  }
};

Rows select_rows(sqlite3* db, const char* sql);
Rows select_formatted(sqlite3* db, const char* format, ...) KELO_PRINTF(2, 3);

struct [[nodiscard]] PreparedStatement {
  int code;
  Statement statement;

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
};

PreparedStatement prepare(sqlite3* db, const char* sql);
PreparedStatement prepare_formatted(sqlite3* db, const char* format, ...) KELO_PRINTF(2, 3);

// Does the same and keeps the lock for reading until the connection is closed. Otherwise SQLite would lock the file and
// look for an interrupted transaction once for the schema and once more for the rows.
PreparedStatement prepare_to_read(sqlite3* db, const char* sql);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_HANDLES_HPP
