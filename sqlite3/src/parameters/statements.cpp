// Runs the statements that read and write parameters.
#include "sqlite3/src/parameters/statements.hpp"

#include <string_view>

#include "log/library_log.hpp"

pthread_mutex_t kelo::params::parameter_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace kelo::params {
namespace {

using store::Outcome;
using store::Rows;

// SQLite takes a text in double quotes for a column where one has that name, and would store that column's
// value. While this guard lives it refuses to, with SQLITE_AUTH.
class TextsAreNoColumns {
 public:
  explicit TextsAreNoColumns(sqlite3* db) : db_(db) { sqlite3_set_authorizer(db_, refuse_columns, nullptr); }
  ~TextsAreNoColumns() { sqlite3_set_authorizer(db_, nullptr, nullptr); }
  TextsAreNoColumns(const TextsAreNoColumns&) = delete;
  TextsAreNoColumns& operator=(const TextsAreNoColumns&) = delete;

 private:
  // Triggers on the table are none of the statement's own text.
  static int refuse_columns(void* /*context*/, int action, const char* /*table*/, const char* /*column*/,
                            const char* /*schema*/, const char* trigger) {
    return action == SQLITE_READ && trigger == nullptr ? SQLITE_DENY : SQLITE_OK;
  }

  sqlite3* db_;
};

// Writes the same statement with its text, which holds no double quote of its own, in single quotes. False where the
// text would end those.
bool write_in_single_quotes(StatementText& plain, const char* update) {
  const std::string_view all = update;
  const std::size_t end = all.rfind('"');
  if (end == 0 || end == std::string_view::npos) return false;
  const std::size_t begin = all.rfind('"', end - 1);
  if (begin == std::string_view::npos) return false;
  const std::string_view text(update + begin + 1, end - begin - 1);
  if (text.find('\'') != std::string_view::npos) return false;
  plain.print("%.*s'%.*s'%s", static_cast<int>(begin), update, static_cast<int>(text.size()), text.data(),
              update + end + 1);
  return true;
}

Outcome run_update(sqlite3* db, const char* update) {
  Outcome outcome = [&] {
    const TextsAreNoColumns guard(db);
    return store::execute(db, update);
  }();
  if (outcome.code == SQLITE_AUTH) {
    StatementText plain;
    if (write_in_single_quotes(plain, update)) return store::execute(db, plain.c_str());
  }
  return outcome;
}

Rows failed_search(int code) {
  Rows rows{};
  rows.outcome.code = code;
  return rows;
}

void end_statement(Lease& connection, Database which) {
  if (which == Database::user) connection.close();
}

}  // namespace

Rows search_by_table(Database which, const StatementText& select) {
  Lease connection(which);
  if (!connection) {
    KELO_LOG(LOG_LVL_ERR, "Error, open_sqlite_db return faild.\n");
    return failed_search(SQLITE_CANTOPEN);
  }
  Rows found =
      select.cut() ? failed_search(SQLITE_TOOBIG) : store::select_rows(connection.get(), select.c_str());
  if (found.outcome.ok()) {
    end_statement(connection, which);
  } else {
    KELO_LOG(LOG_LVL_ERR, "Error, sqlite3_get_table run faild, sql_cmd:[%s], db err:[%s].\n", select.c_str(),
             found.outcome.text());
  }
  return found;
}

bool update_item_to_db(const StatementText& update) {
  Lease connection(Database::user);
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

bool store_variable(const char* caller, UpdateSpacing form, Column column, std::uint32_t type,
                    const void* variable, std::uint32_t size) {
  StatementText update;
  return write_update_of_variable(update, caller, form, column, type, variable, size) &&
         store_column(caller, column, update);
}

bool store_column(const char* caller, Column column, const StatementText& update) {
  if (update_item_to_db(update)) return true;
  log_failed_update(caller, column);
  return false;
}

}  // namespace kelo::params
