// SPDX-License-Identifier: MIT
// The exported functions that write and read items.
#include <atomic>

#include "base/atomic_ref.hpp"
#include "base/lock.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/face/arguments.hpp"
#include "sqlite3/src/item_read.hpp"
#include "sqlite3/src/item_write.hpp"
#include "sqlite3/src/mutex.hpp"

using kelo::base::LockGuard;
using namespace kelo::store;

namespace {

Row row_of(const char* table, std::uint32_t id, const char* key, std::uint32_t type, const void* value,
           int len) {
  return {table, static_cast<std::int32_t>(id), key, static_cast<std::int32_t>(type), value, len};
}

bool arguments_are_valid(const char* table, const char* key, const void* bytes, int len) {
  return table != nullptr && key != nullptr && bytes != nullptr && len >= 0;
}

// Another thread that reads the default of an item without one sets the type to 0.
std::uint32_t type_of(kelo_dm_item_desc& item) {
  const std::int32_t type = kelo::base::AtomicRef(item.type).load(std::memory_order_relaxed);
  return static_cast<std::uint32_t>(type != 0 ? type : item.def_type);
}

int journalled_write(std::uint32_t id, const Row& row) {
  constexpr const char* kCaller = "dm_pal_write";
  if (!arguments_are_valid(row.table, row.key, row.value, row.len)) return refuse_arguments(kCaller);
  const Operation operation(kCaller, Access::exclusive);
  return operation ? write_item(id, row) : DM_SQLITE_FAILED;
}

int verified_read(const ItemRead& item) {
  constexpr const char* kCaller = "dm_pal_read";
  if (!arguments_are_valid(item.table, item.key, item.buf, item.size)) return refuse_arguments(kCaller);
  Operation operation(kCaller, Access::shared);
  return operation ? read_item(operation, item) : DM_SQLITE_NOT_OPENED;
}

}  // namespace

int dm_sqlite_write(uint32_t id, kelo_dm_item_desc* item, const void* value, int len) {
  if (item == nullptr) return kelo::log::param_null(__func__);
  const LockGuard lock(sqlite_mutex);
  KELO_LOG(LOG_LVL_DBUG, "tab:%s, key:%s \n", item->item_table, item->item_key);
  return journalled_write(id, row_of(item->item_table, id, item->item_key, type_of(*item), value, len));
}

int dm_pal_write(const char* table, uint32_t id, const char* key, uint32_t type, const void* value, int len) {
  return journalled_write(id, row_of(table, id, key, type, value, len));
}

int dm_write_db(const char* db_path, const char* table, uint32_t id, const char* key, uint32_t type,
                const void* value, int len) {
  if (db_path == nullptr || !arguments_are_valid(table, key, value, len)) return refuse_arguments(__func__);
  const Operation operation(__func__, Access::exclusive);
  if (!operation) return DM_SQLITE_NOT_OPENED;
  return write_row(db_path, row_of(table, id, key, type, value, len), OnCorruption::repair);
}

int dm_sqlite_read(uint32_t /*id*/, kelo_dm_item_desc* item, void* buf, int len) {
  if (item == nullptr) return kelo::log::param_null(__func__);
  const LockGuard lock(sqlite_mutex);
  KELO_LOG(LOG_LVL_DBUG, "tab:%s, key:%s \n", item->item_table, item->item_key);
  return verified_read({item->item_table, item->item_key, buf, len});
}

int dm_pal_read_by_key(const char* table, const char* key, void* buf, int len) {
  constexpr int kBadArgument = -3;
  if (table == nullptr || key == nullptr || buf == nullptr) {
    kelo::log::param_null(__func__);
    return kBadArgument;
  }
  return verified_read({table, key, buf, len});
}

int dm_pal_read(const char* table, const char* key, void* buf, int len) {
  return verified_read({table, key, buf, len});
}

int dm_read_db(const char* db_path, const char* table, const char* key, void* buf, uint32_t* crc_out,
               int len) {
  if (db_path == nullptr || !arguments_are_valid(table, key, buf, len)) return refuse_arguments(__func__);
  Operation operation(__func__, Access::shared);
  return operation ? read_row(operation, db_path, {table, key, buf, len}, crc_out) : DM_SQLITE_NOT_OPENED;
}
