// Owning types for what SQLite hands out; its raw release calls appear only here.
#ifndef KELO_SQLITE3_HANDLES_HPP
#define KELO_SQLITE3_HANDLES_HPP

#include <sqlite3.h>

#include <memory>

namespace kelo::store {

struct DatabaseCloser {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

// What a statement gave may outlive the operation: a fork() waits for its release, too, in which SQLite holds a lock.
struct TextFreer {
  void operator()(char* text) const;
};
using ErrorText = std::unique_ptr<char, TextFreer>;

struct TableFreer {
  void operator()(char** cells) const;
};
using ResultCells = std::unique_ptr<char*, TableFreer>;

// A connection that was asked for. A failed one may have a handle too: it knows SQLite's words for the failure.
struct [[nodiscard]] Opening {
  int code;
  Database db;

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
  [[nodiscard]] const char* text() const { return sqlite3_errmsg(db.get()); }
};

// Opens a file for reading and writing, creating it when it is missing. A file that another program holds is
// waited for, five seconds at most, whatever signals arrive.
Opening open_for_writing(const char* path);

// The same with a connection that has no lock of its own: only one thread at a time may use it.
Opening open_for_one_thread(const char* path);

// Opens a file that is there for reading alone.
Opening open_for_reading(const char* path);

// open_for_writing() whose failure is logged under `caller`. Empty then.
Database open_database(const char* caller, const char* path);

// Closes a connection and returns SQLite's code; one that SQLite refuses to close stays open and owned.
int close_file(Database& db);

struct [[nodiscard]] Outcome {
  int code;
  ErrorText error;

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
  // SQLite's own words for the failure.
  [[nodiscard]] const char* text() const;
};

Outcome execute(sqlite3* db, const char* sql, int (*row)(void*, int, char**, char**) = nullptr,
                void* context = nullptr);

struct [[nodiscard]] Rows {
  Outcome outcome;
  ResultCells cells;  // column names first, then row by row
  int rows = 0;
  int columns = 0;

  // A cell's text; null for SQL's NULL.
  [[nodiscard]] const char* cell(int row, int column) const {
    return cells.get()[(row + 1) * columns + column];
  }
};

Rows select_rows(sqlite3* db, const char* sql);

struct [[nodiscard]] Preparation {
  int code;
  Statement statement;

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
};

Preparation prepare(sqlite3* db, const char* sql);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_HANDLES_HPP
