#include "base/heap.hpp"
#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/files.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/rows.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

// What a read of one file is worth: a value must match its checksum, and only the three named failures stand.
int verified(int result, const void* value, std::uint32_t crc) {
  switch (result) {
    case DM_SQLITE_FAILED:
    case DM_SQLITE_NOT_PREPARED:
    case DM_SQLITE_NOT_OPENED:
      return result;
    default:
      return result > 0 && value_crc(value, result) == static_cast<std::int32_t>(crc) ? result
                                                                                      : DM_SQLITE_BAD_CRC;
  }
}

int read_verified(const char* path, const char* table, const char* key, void* buf, int len) {
  std::uint32_t crc = 0;
  const int result = dm_read_db(path, table, key, buf, &crc, len);
  return verified(result, buf, crc);
}

}  // namespace

int dm_sqlite_read(uint32_t /*id*/, kelo_dm_item_desc* item, void* buf, int len) {
  if (item == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const kelo::base::LockGuard lock(sqlite_mutex);
  KELO_LOG(LOG_LVL_DBUG, "tab:%s, key:%s \n", item->item_table, item->item_key);
  return dm_pal_read(item->item_table, item->item_key, buf, len);
}

int dm_pal_read_by_key(const char* table, const char* key, void* buf, int len) {
  constexpr int kBadArgument = -3;
  if (table == nullptr || key == nullptr || buf == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return kBadArgument;
  }
  return dm_pal_read(table, key, buf, len);
}

int dm_pal_read(const char* table, const char* key, void* buf, int len) {
  if (table == nullptr || key == nullptr || buf == nullptr || len < 0) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  // The primary is read to find its corruption and have it repaired; the value comes from the backup. A
  // longer value in the primary must not show behind the backup's, since callers of the data manager are not
  // told the length.
  const auto aside = kelo::base::zeroed_array<char>(static_cast<std::size_t>(len));
  const int primary = read_verified(DB_CONFIG, table, key, aside ? aside.get() : buf, len);
  KELO_LOG(LOG_LVL_DBUG, "rd ret  %d \n", primary);
  const int backup = read_verified(DB_CONFIGBAK, table, key, buf, len);
  if (backup > 0 || backup == DM_SQLITE_NOT_PREPARED || backup == DM_SQLITE_FAILED) return backup;
  return read_verified(DB_CONFIGBAK, table, key, buf, len);
}

int dm_read_db(const char* db_path, const char* table, const char* key, void* buf, uint32_t* crc_out,
               int len) {
  if (db_path == nullptr || table == nullptr || key == nullptr || buf == nullptr || len < 0) {
    KELO_LOG(LOG_LVL_ERR, "%s NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const SqlText select(sql::kSelectItem, table, key);
  for (bool repaired = false;; repaired = true) {
    Database db = open_database(__func__, db_path);
    if (!db) return DM_SQLITE_NOT_OPENED;
    const Preparation selected = prepare(db.get(), select.c_str());
    if (selected.ok()) return fetch_value(__func__, selected.statement.get(), buf, len, crc_out);
    KELO_LOG(LOG_LVL_ERR, "[%d] sqlite3_prepare error, %d \n", __LINE__, selected.code);
    if (selected.code != SQLITE_CORRUPT || repaired) return DM_SQLITE_NOT_PREPARED;
    db.reset();
    repair_primary(__func__, kReadRepair);
  }
}
