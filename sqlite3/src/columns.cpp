// SPDX-License-Identifier: MIT
// Adds the columns `id` and `type` to tables of older releases.
#include <cstring>

#include "log/library_log.hpp"
#include "sqlite3/src/row.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kCaller = "alter_table_add_column";

// Returns the statement that adds the column of an error message of SQLite, or null for another error.
const char* statement_for_missing_column(const char* error_text) {
  if (std::strstr(error_text, "no such column: id") != nullptr) return sql::kAddId;
  if (std::strstr(error_text, "no such column: type") != nullptr) return sql::kAddType;
  return nullptr;
}

}  // namespace

bool add_missing_columns(sqlite3* db, const char* table, const char* key) {
  constexpr int kAttempts = 3;  // one select fails for each column, and then one succeeds
  KELO_LOG_AS(kCaller, LOG_LVL_WRN, "alter_table_add_column\n");
  if (db == nullptr || table == nullptr || key == nullptr) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "argv NULL\n");
    return false;
  }
  for (int attempt = 1;; ++attempt) {
    const SqlText select(sql::kSelectIdAndType, table, key);
    KELO_LOG_AS(kCaller, LOG_LVL_WRN, "szSql %s\n", select.c_str());
    const Outcome selected = execute(db, select.c_str());
    if (selected.ok()) return true;

    FixedText<129> error_text;
    error_text.append(selected.text());
    KELO_LOG_AS(kCaller, LOG_LVL_WRN, "%s\n", error_text.c_str());
    if (attempt == kAttempts) {
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "cnt error %d\n", attempt);
      return false;
    }
    const char* const addition = statement_for_missing_column(error_text.c_str());
    if (addition == nullptr) return false;
    const SqlText alter(addition, table);
    KELO_LOG_AS(kCaller, LOG_LVL_WRN, "szSql %s\n", alter.c_str());
    const Outcome altered = execute(db, alter.c_str());
    if (!altered.ok()) {
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "[%d] update error, %s\n", __LINE__, altered.text());
      return false;
    }
  }
}

}  // namespace kelo::store
