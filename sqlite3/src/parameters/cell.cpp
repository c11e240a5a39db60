// SPDX-License-Identifier: MIT
// The exported functions that read and write a single cell of the user database.
#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/parameters/statements.hpp"

using kelo::base::LockGuard;
using namespace kelo::params;
using kelo::store::Rows;

int kelo_db_get_value(const char* table, const char* name, void* out, uint32_t type, uint32_t size) {
  if (table == nullptr || name == nullptr || out == nullptr) return kelo::log::param_null(__func__);
  const LockGuard lock(parameter_mutex);
  const Rows found = search_by_table(Database::user, StatementText("select %s from %s ;", name, table));
  if (!found.outcome.ok()) return KELO_DB_FAILED;
  if (found.rows == 0) {
    KELO_LOG(LOG_LVL_ERR, "Error, db:%s search_by_table return failed.\n", path_of(Database::user));
    return KELO_DB_FAILED;
  }
  return read_variable(__func__, type, out, size, found.cell(0, 0)) ? 0 : KELO_DB_FAILED;
}

int kelo_db_update_value(const char* table, const char* name, const void* value, uint32_t type) {
  if (table == nullptr || name == nullptr || value == nullptr) return kelo::log::param_null(__func__);
  const LockGuard lock(parameter_mutex);
  const Column column = {table, name};
  // The size of the value is unknown. A text longer than a statement cannot be stored, so no more of it is read.
  const bool stored = store_variable(__func__, UpdateSpacing::cell, column, type, value, kStatementSize);
  return stored ? 0 : KELO_DB_FAILED;
}
