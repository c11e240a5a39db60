#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/rows.hpp"
#include "sqlite3/src/sql.hpp"
#include "sqlite3/src/version.hpp"

namespace {

using namespace kelo::store;

// Set once the version record has been written into the defaults database.
std::atomic<bool> defaults_version_written{false};

struct DefaultValue {
  const void* bytes;
  int len;
  std::int32_t type;
};

// A fixed-size default may be handed over where it stands in its descriptor; a length that claims more than
// the descriptor holds is cut there.
int scalar_length(const kelo_dm_item_desc& item, const void* value, int len) {
  constexpr int kRoom = sizeof item - offsetof(kelo_dm_item_desc, def_value);
  return value == &item.def_value ? std::min(len, kRoom) : len;
}

DefaultValue default_value(const kelo_dm_item_desc& item, const void* value, int len) {
  switch (item.type) {
    case KELO_DM_TYPE_SCALAR1:
    case KELO_DM_TYPE_SCALAR2:
    case KELO_DM_TYPE_SCALAR3:
    case KELO_DM_TYPE_SCALAR4:
      return {value, scalar_length(item, value, len), item.type};
    case KELO_DM_TYPE_STRING: {
      // The item registry hands over the field that holds the text's address, a direct caller the text
      // itself.
      const char* const text = value == &item.def_value ? reinterpret_cast<const char*>(item.def_value)
                                                        : static_cast<const char*>(value);
      return {text, text == nullptr ? 0 : static_cast<int>(std::strlen(text)), item.type};
    }
    case KELO_DM_TYPE_BUFFER: {
      const void* bytes = nullptr;
      if (value != nullptr) std::memcpy(&bytes, value, sizeof bytes);
      return {bytes, len, item.type};
    }
    default:
      return {nullptr, -1, 0};
  }
}

void dm_update_def_record(sqlite3* db, const Row& row) {
  const RowStep step = {__func__, ""};
  if (dm_record_exist(db, row.table, row.key) != 0) {
    const SqlText update(sql::kUpdateDefault, row.table, row.type, row.len, row.key);
    store_row(step, db, row, update.c_str());
  } else {
    const SqlText insert(sql::kInsertDefault, row.table, row.key, row.type, row.len);
    store_row(step, db, row, insert.c_str());
  }
}

}  // namespace

int dm_sqlite_def_db_const(uint32_t /*id*/, kelo_dm_item_desc* item, const void* value, int len) {
  if (item == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const DefaultValue stored = default_value(*item, value, len);
  const int result = dm_write_def_db(item->item_table, item->item_key,
                                     static_cast<std::uint32_t>(stored.type), stored.bytes, stored.len);
  if (defaults_version_written.exchange(true)) return result;
  return dm_write_def_db(SQL_VER_TAB, SQL_VER_KEY, kVersionType, &kVersion, kVersionLength);
}

int dm_write_def_db(const char* table, const char* key, uint32_t type, const void* value, int len) {
  if (len < 0) {
    KELO_LOG(LOG_LVL_ERR, "%s param invald\n", __func__);
    return DM_SQLITE_FAILED;
  }
  if (table == nullptr || key == nullptr || value == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const Database db = open_database(__func__, DB_DEF_ITEMS);
  if (!db) return DM_SQLITE_NOT_OPENED;
  const SqlText create(sql::kCreateDefaults, table);
  const Outcome created = execute(db.get(), create.c_str());
  if (!created.ok()) {
    KELO_LOG(LOG_LVL_ERR, "[%d] create table error, %s\n", __LINE__, created.text());
    return DM_SQLITE_FAILED;
  }
  dm_update_def_record(db.get(), {table, 0, key, static_cast<std::int32_t>(type), value, len});
  return 0;
}

int dm_sqlite_def_db_read(uint32_t /*id*/, kelo_dm_item_desc* item, void* buf, int len) {
  if (item == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  std::uint32_t type = 0;
  const int result = dm_read_def_db(item->item_table, item->item_key, &type, buf, len);
  item->type = static_cast<std::int32_t>(type);
  return result;
}

int dm_read_def_db(const char* table, const char* key, uint32_t* type_out, void* buf, int len) {
  if (table == nullptr || key == nullptr || buf == nullptr || len < 0) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const Database db = open_database(__func__, DB_DEF_ITEMS);
  if (!db) return DM_SQLITE_NOT_OPENED;
  const SqlText select(sql::kSelectDefault, table, key);
  const Preparation selected = prepare(db.get(), select.c_str());
  if (!selected.ok()) {
    KELO_LOG(LOG_LVL_ERR, "[%d] sqlite3_prepare error, %d\n", __LINE__, selected.code);
    return DM_SQLITE_NOT_PREPARED;
  }
  return fetch_value(__func__, selected.statement.get(), buf, len, type_out);
}
