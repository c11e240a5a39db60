// SPDX-License-Identifier: MIT
// Runs the statements that read and write parameters, and quotes their texts.
#include "sqlite3/src/parameters/statements.hpp"

#include <string_view>

#include "log/library_log.hpp"

pthread_mutex_t kelo::params::parameter_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace kelo::params {
namespace {

using store::Outcome;
using store::Rows;

// SQLite treats a text in double quotes as a column when a column has that name, and would store that column's value.
// While this guard exists, SQLite refuses such a statement with SQLITE_AUTH.
class ColumnReadGuard {
 public:
  explicit ColumnReadGuard(sqlite3* db) : db_(db) { sqlite3_set_authorizer(db_, refuse_columns, nullptr); }
  ~ColumnReadGuard() { sqlite3_set_authorizer(db_, nullptr, nullptr); }
  ColumnReadGuard(const ColumnReadGuard&) = delete;
  ColumnReadGuard& operator=(const ColumnReadGuard&) = delete;

 private:
  // A trigger on the table may read columns, since its text is not part of the statement.
  static int refuse_columns(void* /*context*/, int action, const char* /*table*/, const char* /*column*/,
                            const char* /*schema*/, const char* trigger) {
    return action == SQLITE_READ && trigger == nullptr ? SQLITE_DENY : SQLITE_OK;
  }

  sqlite3* db_;
};

// Writes the same statement with its text in single quotes. The text has no double quotes. Returns false when it has
// a single quote, which would end it.
bool write_in_single_quotes(StatementText& quoted, const char* update) {
  const std::string_view all = update;
  const std::size_t end = all.rfind('"');
  if (end == 0 || end == std::string_view::npos) return false;
  const std::size_t begin = all.rfind('"', end - 1);
  if (begin == std::string_view::npos) return false;
  const std::string_view text(update + begin + 1, end - begin - 1);
  if (text.find('\'') != std::string_view::npos) return false;
  quoted.print("%.*s'%.*s'%s", static_cast<int>(begin), update, static_cast<int>(text.size()), text.data(),
               update + end + 1);
  return true;
}

Outcome run_update(sqlite3* db, const char* update) {
  Outcome outcome = [&] {
    const ColumnReadGuard guard(db);
    return store::execute(db, update);
  }();
  if (outcome.code == SQLITE_AUTH) {
    StatementText quoted;
    if (write_in_single_quotes(quoted, update)) return store::execute(db, quoted.c_str());
  }
  return outcome;
}

Rows failed_search(int code) {
  Rows rows{};
  rows.outcome.code = code;
  return rows;
}

void end_statement(ConnectionLease& connection, Database database) {
  if (database == Database::user) connection.close();
}

}  // namespace

Rows search_by_table(Database database, const StatementText& select) {
  ConnectionLease connection(database);
  if (!connection) {
    KELO_LOG(LOG_LVL_ERR, "Error, open_sqlite_db return faild.\n");
    return failed_search(SQLITE_CANTOPEN);
  }
  Rows found =
      select.cut() ? failed_search(SQLITE_TOOBIG) : store::select_rows(connection.get(), select.c_str());
  if (found.outcome.ok()) {
    end_statement(connection, database);
  } else {
    KELO_LOG(LOG_LVL_ERR, "Error, sqlite3_get_table run faild, sql_cmd:[%s], db err:[%s].\n", select.c_str(),
             found.outcome.text());
  }
  return found;
}

bool update_item_to_db(const StatementText& update) {
  ConnectionLease connection(Database::user);
  if (!connection) {
    KELO_LOG(LOG_LVL_ERR, "Error, db:%s open_sqlite_db return faild.\n", path_of(Database::user));
    return false;
  }
  KELO_LOG(LOG_LVL_DBUG, "sqlite3_exec sql_cmd:[%s].\n", update.c_str());
  const Outcome outcome = run_update(connection.get(), update.c_str());
  if (!outcome.ok()) {
    KELO_LOG(LOG_LVL_ERR, "Error, sql_cmd err info:[%s].\n", outcome.text());
    return false;
  }
  end_statement(connection, Database::user);
  sync_database(Database::user);
  return true;
}

bool store_variable(const char* caller, UpdateSpacing spacing, Column column, std::uint32_t type,
                    const void* variable, std::uint32_t size) {
  StatementText update;
  return write_update_of_variable(update, caller, spacing, column, type, variable, size) &&
         store_column(caller, column, update);
}

bool store_column(const char* caller, Column column, const StatementText& update) {
  if (update_item_to_db(update)) return true;
  log_failed_update(caller, column);
  return false;
}

}  // namespace kelo::params
