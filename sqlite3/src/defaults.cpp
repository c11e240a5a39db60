// SPDX-License-Identifier: MIT
// The defaults database: writes and reads single defaults.
#include "sqlite3/src/defaults.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

// `value` may point to the default inside its descriptor. A length that goes past the end of the descriptor is
// reduced.
int scalar_length(const kelo_dm_item_desc& item, const void* value, int len) {
  constexpr int kFieldSize = sizeof item - offsetof(kelo_dm_item_desc, def_value);
  return value == &item.def_value ? std::min(len, kFieldSize) : len;
}

}  // namespace

Row default_row(const kelo_dm_item_desc& item, const void* value, int len) {
  const std::int32_t type = item.type;
  Row row = {item.item_table, 0, item.item_key, type, value, len};
  switch (type) {
    case KELO_DM_TYPE_SCALAR1:
    case KELO_DM_TYPE_SCALAR2:
    case KELO_DM_TYPE_SCALAR3:
    case KELO_DM_TYPE_SCALAR4:
      row.len = scalar_length(item, value, len);
      return row;
    case KELO_DM_TYPE_STRING: {
      // The registry of items passes the field that contains the address of the text. Other callers pass the text.
      const char* const text = value == &item.def_value ? reinterpret_cast<const char*>(item.def_value)
                                                        : static_cast<const char*>(value);
      row.value = text;
      row.len = text == nullptr ? 0 : static_cast<int>(std::strlen(text));
      return row;
    }
    case KELO_DM_TYPE_BUFFER:
      row.value = nullptr;
      if (value != nullptr) std::memcpy(&row.value, value, sizeof row.value);
      return row;
    default:
      row.type = 0;
      row.value = nullptr;
      row.len = -1;
      return row;
  }
}

int write_default(const Row& row) {
  constexpr const char* kCaller = "dm_write_def_db";
  if (row.len < 0) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s param invald\n", kCaller);
    return DM_SQLITE_FAILED;
  }
  if (row.table == nullptr || row.key == nullptr || row.value == nullptr) return log::param_null(kCaller);
  {
    const Connection db = open_database(kCaller, defaults_path());
    if (!db) return DM_SQLITE_NOT_OPENED;
    const Outcome created = execute_formatted(db.get(), sql::kCreateDefaults, row.table);
    if (!created.ok()) {
      KELO_LOG_AS(kCaller, LOG_LVL_ERR, "[%d] create table error, %s\n", __LINE__, created.text());
      return DM_SQLITE_FAILED;
    }
    store_default(db.get(), row);
  }
  // A power cut would roll the row back until the removal of SQLite's journal is on storage.
  static_cast<void>(base::sync_directory_of(defaults_path()));
  return 0;
}

int read_default(const ItemRead& item, std::uint32_t* type) {
  constexpr const char* kCaller = "dm_read_def_db";
  const Connection db = open_database(kCaller, defaults_path());
  if (!db) return DM_SQLITE_NOT_OPENED;
  const SqlText select(sql::kSelectDefault, item.table, item.key);
  const PreparedStatement selected = prepare_to_read(db.get(), select.c_str());
  if (!selected.ok()) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "[%d] sqlite3_prepare error, %d\n", __LINE__, selected.code);
    return DM_SQLITE_NOT_PREPARED;
  }
  return fetch_value(kCaller, selected.statement.get(), item.buf, item.size, type);
}

}  // namespace kelo::store
