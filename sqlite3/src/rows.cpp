#include "sqlite3/src/rows.hpp"

#include <algorithm>
#include <cstring>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

Statement prepare_adding_columns(const RowStep& step, sqlite3* db, const Row& row, const char* sql) {
  Preparation first = prepare(db, sql);
  if (first.ok()) return std::move(first.statement);
  KELO_LOG_AS(step.function, LOG_LVL_ERR, "[%d] sqlite3_prepare error, %s%d\n", __LINE__, step.code_label,
              first.code);
  if (alter_table_add_column(db, row.table, row.key) != 0) {
    KELO_LOG_AS(step.function, LOG_LVL_ERR, "alter_table_add_column failed\n");
    return {};
  }
  Preparation second = prepare(db, sql);
  if (second.ok()) return std::move(second.statement);
  KELO_LOG_AS(step.function, LOG_LVL_ERR, "[%d] sqlite3_prepare error, %s%d\n", __LINE__, step.code_label,
              second.code);
  return {};
}

}  // namespace

std::int32_t value_crc(const void* value, int len) {
  constexpr unsigned kCountedBits = 0xFFFF;
  return kelo_dm_Crc32Calc(value, static_cast<std::uint16_t>(static_cast<unsigned>(len) & kCountedBits), 0);
}

void store_row(const RowStep& step, sqlite3* db, const Row& row, const char* statement) {
  const Statement stored = prepare_adding_columns(step, db, row, statement);
  if (!stored) return;
  const int bound = sqlite3_bind_blob(stored.get(), 1, row.value, row.len, SQLITE_STATIC);
  if (bound != SQLITE_OK) {
    KELO_LOG_AS(step.function, LOG_LVL_ERR, "[%d] bind_blob error, %s%d\n", __LINE__, step.code_label, bound);
    return;
  }
  const int stepped = sqlite3_step(stored.get());
  if (stepped != SQLITE_DONE) {
    KELO_LOG_AS(step.function, LOG_LVL_ERR, "%d step failed rc: %d\n", __LINE__, stepped);
  }
}

int fetch_value(const char* caller, sqlite3_stmt* select, void* buf, int size, std::uint32_t* second) {
  const int stepped = sqlite3_step(select);
  if (stepped != SQLITE_ROW) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "sqlite3_step error %d\n", stepped);
    return DM_SQLITE_FAILED;
  }
  const void* const value = sqlite3_column_blob(select, 0);
  const int length = sqlite3_column_bytes(select, 0);
  if (length == 0 || value == nullptr) return DM_SQLITE_FAILED;
  const int copied = std::min(size, length);
  std::memcpy(buf, value, static_cast<std::size_t>(copied));
  if (second != nullptr) *second = static_cast<std::uint32_t>(sqlite3_column_int(select, 1));
  return copied;
}

}  // namespace kelo::store

int dm_record_exist(sqlite3* db, const char* table, const char* key) {
  using namespace kelo::store;
  if (db == nullptr || table == nullptr || key == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return 0;
  }
  const SqlText select(sql::kSelectExistence, table, key);
  const Rows found = select_rows(db, select.c_str());
  if (!found.outcome.ok()) {
    KELO_LOG(LOG_LVL_ERR, "[%d] get table existence error: %s\n", __LINE__,
             sqlite3_errstr(found.outcome.code));
    return 0;
  }
  return found.rows >= 1 ? 1 : 0;
}
