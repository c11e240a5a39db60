#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/heap.hpp"
#include "data_manager/registry.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace {

using kelo::dm::clean_flag;
using kelo::dm::kBadArgument;
using kelo::dm::required;

// How one of the calls shows itself. Log searches in the field rely on the names as they are, those of other
// functions included.
struct Call {
  const char* function;   // name in its log lines
  const char* complaint;  // name in its message about a bad argument
  int refused;            // result for a bad argument or an unknown id
};

constexpr Call kWrite = {"kelo_dm_write", "kelo_dm_write", kBadArgument};
constexpr Call kWriteDb = {"kelo_dm_write_db", "kelo_dm_write_db", kBadArgument};
constexpr Call kEmpty = {"kelo_dm_empty", "kelo_dm_empty", kBadArgument};
constexpr Call kRead = {"kelo_dm_read", "oem_dm_read", kBadArgument};
constexpr Call kReadDb = {"kelo_dm_read_db", "oem_dm_read_db", kBadArgument};
constexpr Call kReadConfig = {"kelo_dm_read_from_dbconfigfile", "oem_dm_read", 3};
constexpr Call kCacheWrite = {"kelo_dm_cache_write", "kelo_dm_cache_write", kBadArgument};
constexpr Call kCacheRead = {"kelo_dm_cache_read", "kelo_dm_cache_read", kBadArgument};
constexpr Call kRegEvent = {"kelo_dm_reg_event_callback", "kelo_dm_reg_event_callback", kBadArgument};

std::atomic<kelo_dm_event_fn> event_callback{nullptr};

bool has_bytes(const void* bytes, std::int32_t count) { return bytes != nullptr && count >= 1; }

bool accept(const Call& call, bool good_arguments) {
  if (!good_arguments) KELO_LOG_AS(call.function, LOG_LVL_ERR, "%s param NULL\n", call.complaint);
  return good_arguments;
}

// The item that a call with these arguments is about; null when the call must be refused.
kelo_dm_item_desc* admit(const Call& call, bool good_arguments, std::int32_t id) {
  return accept(call, good_arguments) ? kelo::dm::find_item(id, call.function) : nullptr;
}

template <int level>
void log_item(const Call& call, const kelo_dm_item_desc& item) {
  constexpr int kNameSize = sizeof(item.item_table);
  KELO_LOG_AS(call.function, level, "hash:%.*s %.*s\n", kNameSize, item.item_table, kNameSize, item.item_key);
}

int store(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, const void* data, int len) {
  return required(handle.operations.write)(static_cast<std::uint32_t>(id), &item, data, len);
}

int load(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, void* buf, int size) {
  return required(handle.operations.read)(static_cast<std::uint32_t>(id), &item, buf, size);
}

// Ends a write: announces the change unless the storage failed.
int announce(int stored, std::int32_t id, const void* data, std::int32_t len) {
  if (stored != 0) return stored;
  if (const kelo_dm_event_fn callback = event_callback.load(std::memory_order_acquire))
    callback(id, data, len);
  return 0;
}

int report_memory_read(std::int32_t size) {
  KELO_LOG_AS(kRead.function, LOG_LVL_INFO, "DM_RD_MEM ret %d\n", size);
  return size;
}

int read_db(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, void* buf, int size) {
  log_item<LOG_LVL_ERR>(kReadDb, item);
  if (clean_flag() != 0) return 0;
  if (load(handle, id, item, buf, size) >= 0) return 0;
  KELO_LOG_AS(kReadDb.function, LOG_LVL_ERR, "%s def value:%x not register!\n", kReadDb.complaint,
              static_cast<unsigned>(id));
  return kReadDb.refused;
}

// Whether the stored value begins with `data`. It is read with room for one byte more, so that a value one
// byte longer than `data` still passes a storage that refuses to cut.
bool holds_already(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, const void* data,
                   std::int32_t len) {
  if (len == INT32_MAX) return false;
  const auto stored = kelo::base::zeroed_array<char>(static_cast<std::size_t>(len) + 1);
  return stored != nullptr && read_db(handle, id, item, stored.get(), len + 1) == 0 &&
         std::memcmp(stored.get(), data, static_cast<std::size_t>(len)) == 0;
}

}  // namespace

std::int32_t kelo_dm_write(kelo_dm_handle* handle, std::int32_t id, const void* data, std::int32_t len) {
  kelo_dm_item_desc* const item = admit(kWrite, handle != nullptr && has_bytes(data, len), id);
  if (item == nullptr) return kWrite.refused;
  // The value in memory is asked for with room for one byte more, and always counts as having that byte: it
  // never equals the new one, and every write goes through.
  if (len < INT32_MAX) report_memory_read(len + 1);
  log_item<LOG_LVL_DBUG>(kWrite, *item);
  const std::int32_t cleaning = clean_flag();
  KELO_LOG(LOG_LVL_DBUG, "kelo_dm_is_run_clean: %d", cleaning);
  if (cleaning != 0) return 0;
  const int stored = store(*handle, id, *item, data, len);
  KELO_LOG(LOG_LVL_DBUG, "write cb ret:%d", stored);
  return announce(stored, id, data, len);
}

std::int32_t kelo_dm_write_db(kelo_dm_handle* handle, std::int32_t id, const void* data, std::int32_t len) {
  kelo_dm_item_desc* const item = admit(kWriteDb, handle != nullptr && has_bytes(data, len), id);
  if (item == nullptr) return kWriteDb.refused;
  if (holds_already(*handle, id, *item, data, len)) {
    KELO_LOG(LOG_LVL_INFO, "Try to write the same data\n");
    return 0;
  }
  log_item<LOG_LVL_ERR>(kWriteDb, *item);
  if (clean_flag() != 0) return 0;
  return announce(store(*handle, id, *item, data, len), id, data, len);
}

std::int32_t kelo_dm_empty(kelo_dm_handle* handle, std::int32_t id) {
  kelo_dm_item_desc* const item = admit(kEmpty, handle != nullptr, id);
  if (item == nullptr) return kEmpty.refused;
  log_item<LOG_LVL_ERR>(kEmpty, *item);
  if (clean_flag() != 0) return 0;
  const std::uint32_t nothing = 0;
  return announce(store(*handle, id, *item, &nothing, 0), id, &nothing, 0);
}

std::int32_t kelo_dm_read(kelo_dm_handle* handle, std::int32_t /*id*/, void* buf, std::int32_t size) {
  return accept(kRead, handle != nullptr && has_bytes(buf, size)) ? report_memory_read(size) : kRead.refused;
}

std::int32_t kelo_dm_read_db(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size) {
  kelo_dm_item_desc* const item = admit(kReadDb, handle != nullptr && has_bytes(buf, size), id);
  return item != nullptr ? read_db(*handle, id, *item, buf, size) : kReadDb.refused;
}

std::int32_t kelo_dm_read_from_dbconfigfile(kelo_dm_handle* handle, std::int32_t id, void* buf,
                                            std::int32_t size) {
  kelo_dm_item_desc* const item = admit(kReadConfig, handle != nullptr && has_bytes(buf, size), id);
  if (item == nullptr) return kReadConfig.refused;
  log_item<LOG_LVL_INFO>(kReadConfig, *item);
  if (clean_flag() != 0) return kReadConfig.refused;
  return load(*handle, id, *item, buf, size) < 0 ? kReadConfig.refused : 0;
}

std::int32_t kelo_dm_cache_write(kelo_dm_handle* /*handle*/, const void* data, std::int32_t len) {
  return accept(kCacheWrite, has_bytes(data, len)) ? len : kCacheWrite.refused;
}

std::int32_t kelo_dm_cache_read(kelo_dm_handle* /*handle*/, void* buf, std::int32_t size) {
  return accept(kCacheRead, has_bytes(buf, size)) ? size : kCacheRead.refused;
}

std::int32_t kelo_dm_clean(kelo_dm_handle* handle, const char* backup) {
  if (handle == nullptr || handle->operations.clean == nullptr) return 0;
  std::int32_t* const flag = kelo::dm::raise_clean_flag();
  return flag != nullptr ? handle->operations.clean(backup, 1, flag) : 0;
}

std::int32_t kelo_dm_reg_event_callback(kelo_dm_event_fn callback) {
  if (!accept(kRegEvent, callback != nullptr)) return kRegEvent.refused;
  event_callback.store(callback, std::memory_order_release);
  return 0;
}
