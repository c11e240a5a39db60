#include <cstring>

#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/copy.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

enum Health { kHealthy = 0, kCorrupt = 1, kNotOpened = -1, kNotChecked = -2 };

int on_quick_check_row(void* is_corrupted, int ncols, char** values, char** names) {
  return integrity_check_callback(static_cast<int*>(is_corrupted), ncols, values, names);
}

Health refused_open(const char* caller, sqlite3* db, int code) {
  const bool corrupt = code == SQLITE_CORRUPT;
  if (corrupt) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Database is corrupted upon opening: %s (Code: %d)\n",
                sqlite3_errmsg(db), code);
  } else {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Open failed: %s (Code: %d)\n", sqlite3_errmsg(db), code);
  }
  KELO_LOG_AS(caller, LOG_LVL_ERR, "is_corrupted=%d\n", corrupt ? 1 : 0);
  return corrupt ? kCorrupt : kNotOpened;
}

Health failed_check(const char* caller, const char* path, const Outcome& check, int is_corrupted) {
  const char* const text = check.error ? check.error.get() : "Unknown error";
  const bool corrupt = check.code == SQLITE_CORRUPT;
  if (corrupt) {
    is_corrupted = 1;
    KELO_LOG_AS(caller, LOG_LVL_ERR, "%s corruption detected: %s (Code: %d)\n", path, text, check.code);
  } else {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "%s Quick check error: %s (Code: %d)\n", path, text, check.code);
  }
  KELO_LOG_AS(caller, LOG_LVL_ERR, "is_corrupted=%d\n", is_corrupted);
  return corrupt ? kCorrupt : kNotChecked;
}

}  // namespace

int check_database_health(const char* path) {
  if (path == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return kNotOpened;
  }
  undo_interrupted_copy(path);
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open_v2(path, &raw, SQLITE_OPEN_READONLY, nullptr);
  const Database db(raw);
  if (opened != SQLITE_OK) return refused_open(__func__, raw, opened);
  wait_while_busy(raw);

  int is_corrupted = 0;
  const Outcome check = execute(raw, sql::kQuickCheck, on_quick_check_row, &is_corrupted);
  if (!check.ok()) return failed_check(__func__, path, check, is_corrupted);
  KELO_LOG(LOG_LVL_DBUG, "is_corrupted=%d\n", is_corrupted);
  return is_corrupted;
}

int integrity_check_callback(int* is_corrupted, int ncols, char** values, char** /*names*/) {
  // The reset per row is kept: callers' flag speaks of the last row that the check delivered.
  *is_corrupted = 0;
  for (int column = 0; column < ncols; ++column) {
    const char* const value = values[column];
    if (value == nullptr || std::strcmp(value, "ok") == 0) continue;
    *is_corrupted = 1;
    KELO_LOG(LOG_LVL_ERR, "[ERROR] Corruption detected: %s\n", value);
  }
  return 0;
}
