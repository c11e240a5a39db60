// SPDX-License-Identifier: MIT
// The exported functions for whole parameter databases: any statement, the cached connection, the factory settings.
#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/parameters/statements.hpp"

using namespace kelo::params;

int kelo_db_exec_cmd(const char* sql, kelo_db_row_fn callback, void* arg, int which) {
  constexpr int kFactory = 1;
  if (sql == nullptr) return kelo::log::param_null(__func__);
  KELO_LOG(LOG_LVL_DBUG, "executeCommand sql_cmd:%s!!\n", sql);
  const Database database = which == kFactory ? Database::factory : Database::user;
  const ConnectionLease connection(database);
  if (!connection) {
    KELO_LOG(LOG_LVL_ERR, "Error, db:%s open_sqlite_db return faild.\n", path_of(database));
    return KELO_DB_FAILED;
  }
  const kelo::store::Outcome outcome = kelo::store::execute(connection.get(), sql, callback, arg);
  if (outcome.ok()) {
    sync_database(database);
    return 0;
  }
  KELO_LOG(LOG_LVL_ERR, "Error, sql_cmd err info:[%s].\n", outcome.text());
  return KELO_DB_FAILED;
}

int kelo_db_close_sqlite() {
  const kelo::base::LockGuard lock(parameter_mutex);
  return close_user_connection();
}

int kelo_db_restore_factory() { return copy_factory_to_user() ? 1 : 0; }
