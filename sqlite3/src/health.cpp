// SPDX-License-Identifier: MIT
// Checks whether database files are damaged, with SQLite's quick check.
#include "sqlite3/src/health.hpp"

#include <cstring>

#include "log/library_log.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kCaller = "check_database_health";

int on_row(void* is_corrupted, int ncols, char** values, char** /*names*/) {
  return apply_check_row(static_cast<int*>(is_corrupted), ncols, values);
}

Health log_refused_open(const OpenResult& opening) {
  const bool corrupt = opening.code == SQLITE_CORRUPT;
  if (corrupt) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Database is corrupted upon opening: %s (Code: %d)\n", opening.text(),
                opening.code);
  } else {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Open failed: %s (Code: %d)\n", opening.text(), opening.code);
  }
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "is_corrupted=%d\n", corrupt ? 1 : 0);
  return corrupt ? Health::corrupt : Health::not_opened;
}

Health log_failed_check(const char* path, const Outcome& check, int is_corrupted) {
  const char* const text = check.error ? check.error.get() : "Unknown error";
  const bool corrupt = check.code == SQLITE_CORRUPT;
  if (corrupt) {
    is_corrupted = 1;
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s corruption detected: %s (Code: %d)\n", path, text, check.code);
  } else {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s Quick check error: %s (Code: %d)\n", path, text, check.code);
  }
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "is_corrupted=%d\n", is_corrupted);
  return corrupt ? Health::corrupt : Health::not_checked;
}

}  // namespace

Health health_of(const char* path) {
  const OpenResult opening = open_for_reading(path);
  if (!opening.ok()) return log_refused_open(opening);
  int is_corrupted = 0;
  const Outcome check = execute(opening.db.get(), sql::kQuickCheck, on_row, &is_corrupted);
  if (!check.ok()) return log_failed_check(path, check, is_corrupted);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "is_corrupted=%d\n", is_corrupted);
  return static_cast<Health>(is_corrupted);
}

bool is_database(const char* path) {
  const OpenResult opening = open_for_reading(path);
  return !opening.ok() || execute(opening.db.get(), sql::kBeginReading).code != SQLITE_NOTADB;
}

int apply_check_row(int* is_corrupted, int ncols, char** values) {
  // Callers rely on it that each row resets the flag, so that it describes the last row.
  *is_corrupted = 0;
  for (int column = 0; column < ncols; ++column) {
    const char* const value = values[column];
    if (value == nullptr || std::strcmp(value, "ok") == 0) continue;
    *is_corrupted = 1;
    KELO_LOG_AS("integrity_check_callback", LOG_LVL_ERR, "[ERROR] Corruption detected: %s\n", value);
  }
  return 0;
}

}  // namespace kelo::store
