// SPDX-License-Identifier: MIT
// The exported functions that load, store and reload whole tables of parameters.
#include <cstddef>

#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/parameters/statements.hpp"

static_assert(sizeof(void*) != 4 ||
              (sizeof(kelo_db_param) == 20 && offsetof(kelo_db_param, name) == 4 &&
               offsetof(kelo_db_param, type) == 8 && offsetof(kelo_db_param, size) == 12 &&
               offsetof(kelo_db_param, param_id) == 16));
static_assert(sizeof(void*) != 4 ||
              (sizeof(kelo_db_query) == 8 && offsetof(kelo_db_query, param_table) == 4));

namespace {

using kelo::base::LockGuard;
using namespace kelo::params;
using kelo::store::Rows;

constexpr int kEveryParameter = -1;

bool check_query(const char* caller, const kelo_db_query* query) {
  if (query == nullptr) {
    kelo::log::param_null(caller);
    return false;
  }
  if (query->tbl_name == nullptr || query->param_table == nullptr) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, tbl_name is null. \n");
    return false;
  }
  return true;
}

bool has_variable(const char* caller, const kelo_db_param& param) {
  if (param.value == nullptr) kelo::log::param_null(caller);
  return param.value != nullptr;
}

bool load(const char* caller, const char* table, const kelo_db_param& param) {
  if (!has_variable(caller, param)) return false;
  const StatementText select("select %s from %s", param.name, table);
  const Rows found = search_by_table(Database::user, select);
  KELO_LOG_AS(caller, LOG_LVL_DBUG, "rc:%d, search_by_table sql_cmd:%s\n", found.outcome.code,
              select.c_str());
  KELO_LOG_AS(caller, LOG_LVL_DBUG, "rc:%d,  search_by_table azResult:%p, nrow:%d\n", found.outcome.code,
              static_cast<void*>(found.cells.get()), found.rows);
  if (!found.outcome.ok()) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, db:%s search_by_table return failed. sql_cmd:%s\n",
                path_of(Database::user), select.c_str());
    return false;
  }
  return found.rows == 0 || read_variable(caller, param.type, param.value, param.size, found.cell(0, 0));
}

bool write_back(const char* caller, const char* table, const kelo_db_param& param) {
  if (!has_variable(caller, param)) return false;
  const Column column = {table, param.name};
  return store_variable(caller, UpdateSpacing::table, column, param.type, param.value, param.size);
}

bool reload(const char* caller, const char* table, const kelo_db_param& param) {
  if (!has_variable(caller, param)) return false;
  const StatementText select("select %s from %s;", param.name, table);
  const Rows found = search_by_table(Database::factory, select);
  if (!found.outcome.ok() || found.rows == 0) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, db:%s search_by_table return failed.\n",
                path_of(Database::factory));
    return false;
  }
  KELO_LOG_AS(caller, LOG_LVL_DBUG, "tbl_name = %s,key = %s\n", table, param.name);
  const Column column = {table, param.name};
  StatementText update;
  if (!write_update_of_factory_text(update, caller, column, found.cell(0, 0))) return false;
  if (!read_variable(caller, param.type, param.value, param.size, found.cell(0, 0))) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, PARAM TYPE SETING ERROR.\n");
    return false;
  }
  return store_column(caller, column, update);
}

}  // namespace

int kelo_db_query_db_init_struct(const kelo_db_query* query) {
  if (!check_query(__func__, query)) return KELO_DB_FAILED;
  const LockGuard lock(parameter_mutex);
  int result = 0;
  for (const kelo_db_param* param = query->param_table; param->name != nullptr; ++param)
    if (!load(__func__, query->tbl_name, *param)) result = KELO_DB_FAILED;
  return result;
}

int kelo_db_update_db_from_struct(const kelo_db_query* query, int param_id) {
  if (!check_query(__func__, query)) return KELO_DB_FAILED;
  const LockGuard lock(parameter_mutex);
  bool found = param_id == kEveryParameter;
  bool written = true;
  for (const kelo_db_param* param = query->param_table; param->name != nullptr; ++param) {
    if (param_id != kEveryParameter && param->param_id != param_id) continue;
    found = true;
    if (!write_back(__func__, query->tbl_name, *param)) written = false;
  }
  return found && written ? 0 : KELO_DB_FAILED;
}

int kelo_db_reload_value(const kelo_db_query* query, int param_id) {
  if (!check_query(__func__, query)) return KELO_DB_FAILED;
  const LockGuard lock(parameter_mutex);
  bool found = false;
  bool reloaded = true;
  for (int i = 0; query->param_table[i].name != nullptr; ++i) {
    const kelo_db_param& param = query->param_table[i];
    KELO_LOG(LOG_LVL_DBUG, "id = %d,i = %d,param_table[i].param_id= %d\n", param_id, i, param.param_id);
    if (param.param_id != param_id) continue;
    found = true;
    if (!reload(__func__, query->tbl_name, param)) reloaded = false;
  }
  return found && reloaded ? 0 : KELO_DB_FAILED;
}
