// SPDX-License-Identifier: MIT
// Looks at the files of a store without changing them: the store's lock, shared, and connections that only read.
//
// The library's own reads repair what they find damaged, and make the lock file. A look does neither.
#ifndef KELO_TOOLS_KELOCTL_LOOK_HPP
#define KELO_TOOLS_KELOCTL_LOOK_HPP

#include <sqlite3.h>

#include <memory>

#include "base/file.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/output.hpp"

namespace kelo::ctl {

using Path = base::FixedText<96>;

// Holds the lock of a store, shared, when there is a lock file that this user may open. Without one there is no
// writer, or the user may only read, as the library's reads do then.
class [[nodiscard]] Look {
 public:
  Look() = default;
  ~Look();
  Look(const Look&) = delete;
  Look& operator=(const Look&) = delete;

  // Takes the lock of the store with this database, and waits for it for five seconds. When that was in vain, it tells who holds the lock, and the result is an Exit.
  int begin(Output& out, const char* database = DB_CONFIG);
  // Releases the lock. No connection may be open any more.
  void end();

  [[nodiscard]] bool locked() const { return static_cast<bool>(file_); }

 private:
  base::Descriptor file_;
};

// The file that the next operation of a daemon will find under this name: the old content while a copy is interrupted.
Path effective(const char* path);

struct ConnectionCloser {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Connection = std::unique_ptr<sqlite3, ConnectionCloser>;
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

enum class Health { healthy, missing, empty, damaged, cut_off, unreadable };
const char* words_of(Health health);

struct Database {
  Health health;
  int code = 0;  // SQLite's, when the file cannot be read
  Connection db;

  [[nodiscard]] const char* text() const { return db ? sqlite3_errmsg(db.get()) : sqlite3_errstr(code); }
};

// Opens a file for reading, and reads its schema. There is a connection when it is healthy as far as that shows.
Database open_for_look(const char* path);

// Turns a code of SQLite into what is wrong with the file.
Health health_of(int code);

// Prepares a statement whose one "%w" is the name of a table.
Statement prepare(sqlite3* db, const char* sql, const char* table = "");

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_LOOK_HPP
