// SPDX-License-Identifier: MIT
// The exported functions that write, read, empty and clean items, and the callback that is told of changes.
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "base/heap.hpp"
#include "data_manager/item_function.hpp"
#include "data_manager/registry.hpp"
#include "data_manager/subscribers.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace {

using kelo::dm::check_and_find_item;
using kelo::dm::check_arguments;
using kelo::dm::clean_flag;
using kelo::dm::has_bytes;
using kelo::dm::ItemFunction;
using kelo::dm::kBadArgument;
using kelo::dm::log_item;
using kelo::dm::read_stored;
using kelo::dm::required;

constexpr ItemFunction kWrite = {"kelo_dm_write", "kelo_dm_write", kBadArgument};
constexpr ItemFunction kWriteVerified = {"kelo_dm_write_verified", "kelo_dm_write_verified", kBadArgument};
constexpr ItemFunction kWriteDb = {"kelo_dm_write_db", "kelo_dm_write_db", kBadArgument};
constexpr ItemFunction kEmpty = {"kelo_dm_empty", "kelo_dm_empty", kBadArgument};
constexpr ItemFunction kRead = {"kelo_dm_read", "oem_dm_read", kBadArgument};
constexpr ItemFunction kReadDb = {"kelo_dm_read_db", "oem_dm_read_db", kBadArgument};
constexpr ItemFunction kReadConfig = {"kelo_dm_read_from_dbconfigfile", "oem_dm_read", 3};
constexpr ItemFunction kCacheWrite = {"kelo_dm_cache_write", "kelo_dm_cache_write", kBadArgument};
constexpr ItemFunction kCacheRead = {"kelo_dm_cache_read", "kelo_dm_cache_read", kBadArgument};
constexpr ItemFunction kRegEvent = {"kelo_dm_reg_event_callback", "kelo_dm_reg_event_callback", kBadArgument};

constexpr std::int32_t kNotVerified = -1;

std::atomic<kelo_dm_event_fn> event_callback{nullptr};

int write_stored(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, const void* data,
                 int len) {
  return required(handle.operations.write)(static_cast<std::uint32_t>(id), &item, data, len);
}

// Tells the callback of the change when the storage has succeeded. Returns the storage's result.
int announce_change(int stored, std::int32_t id, const void* data, std::int32_t len) {
  if (stored != 0) return stored;
  if (const kelo_dm_event_fn callback = event_callback.load(std::memory_order_acquire))
    callback(id, data, len);
#ifdef KELO_ADDITIONS
  kelo::dm::announce_to_subscribers(id, data, len);
#endif
  return 0;
}

int report_memory_read(std::int32_t size) {
  KELO_LOG_AS(kRead.log_name, LOG_LVL_INFO, "DM_RD_MEM ret %d\n", size);
  return size;
}

// Writes a new value and returns the storage's result. While the storage is being cleaned, the value is dropped and
// the result is empty.
std::optional<int> write_unless_cleaning(const char* function, const kelo_dm_handle& handle, std::int32_t id,
                                         kelo_dm_item_desc& item, const void* data, std::int32_t len) {
  // The read of the value in memory always reports the full size of its buffer, which is one byte more than the new
  // value has. So the two never count as equal, and every value is written.
  if (len < INT32_MAX) report_memory_read(len + 1);
  log_item<LOG_LVL_DBUG>(function, item);
  const std::int32_t cleaning = clean_flag();
  KELO_LOG_AS(function, LOG_LVL_DBUG, "kelo_dm_is_run_clean: %d", cleaning);
  if (cleaning != 0) return std::nullopt;
  const int stored = write_stored(handle, id, item, data, len);
  KELO_LOG_AS(function, LOG_LVL_DBUG, "write cb ret:%d", stored);
  return stored;
}

int read_db(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, void* buf, int size) {
  log_item<LOG_LVL_ERR>(kReadDb.log_name, item);
  if (clean_flag() != 0) return 0;
  if (read_stored(handle, id, item, buf, size) >= 0) return 0;
  KELO_LOG_AS(kReadDb.log_name, LOG_LVL_ERR, "%s def value:%x not register!\n", kReadDb.message_name,
              static_cast<unsigned>(id));
  return kReadDb.refusal;
}

// Returns whether the stored value begins with `data`. The buffer has one byte more, so that a storage that does not
// cut values can still return one that is one byte longer.
bool is_stored_already(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item,
                       const void* data, std::int32_t len) {
  if (len == INT32_MAX) return false;
  const auto stored = kelo::base::zeroed_array<char>(static_cast<std::size_t>(len) + 1);
  return stored != nullptr && read_db(handle, id, item, stored.get(), len + 1) == 0 &&
         std::memcmp(stored.get(), data, static_cast<std::size_t>(len)) == 0;
}

}  // namespace

bool kelo::dm::check_arguments(bool valid, const char* log_name, const char* message_name) {
  if (!valid) KELO_LOG_AS(log_name, LOG_LVL_ERR, "%s param NULL\n", message_name);
  return valid;
}

kelo_dm_item_desc* kelo::dm::check_and_find_item(bool valid_arguments, std::int32_t id, const char* log_name,
                                                 const char* message_name) {
  return check_arguments(valid_arguments, log_name, message_name) ? find_item(id, log_name) : nullptr;
}

std::int32_t kelo_dm_write(kelo_dm_handle* handle, std::int32_t id, const void* data, std::int32_t len) {
  kelo_dm_item_desc* const item = check_and_find_item(kWrite, handle != nullptr && has_bytes(data, len), id);
  if (item == nullptr) return kWrite.refusal;
  const std::optional<int> stored = write_unless_cleaning(kWrite.log_name, *handle, id, *item, data, len);
  return stored ? announce_change(*stored, id, data, len) : 0;
}

std::int32_t kelo_dm_write_verified(kelo_dm_handle* handle, std::int32_t id, const void* data,
                                    std::int32_t len) {
  kelo_dm_item_desc* const item =
      check_and_find_item(kWriteVerified, handle != nullptr && has_bytes(data, len), id);
  if (item == nullptr) return kWriteVerified.refusal;
  // A value that cannot be verified must not be written, so the read function and the memory are checked first. The
  // buffer has one byte more than `data`, so that a longer stored value is noticed.
  required(handle->operations.read);
  const std::int32_t capacity = len < INT32_MAX ? len + 1 : len;
  const auto read_back = kelo::base::zeroed_array<char>(static_cast<std::size_t>(capacity));
  if (read_back == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "no memory to read %d bytes back\n", len);
    return kNotVerified;
  }
  const std::optional<int> stored =
      write_unless_cleaning(kWriteVerified.log_name, *handle, id, *item, data, len);
  if (stored != 0) return kNotVerified;
  if (read_stored(*handle, id, *item, read_back.get(), capacity) != len ||
      std::memcmp(read_back.get(), data, static_cast<std::size_t>(len)) != 0)
    return kNotVerified;
  return announce_change(0, id, data, len);
}

std::int32_t kelo_dm_write_db(kelo_dm_handle* handle, std::int32_t id, const void* data, std::int32_t len) {
  kelo_dm_item_desc* const item =
      check_and_find_item(kWriteDb, handle != nullptr && has_bytes(data, len), id);
  if (item == nullptr) return kWriteDb.refusal;
  if (is_stored_already(*handle, id, *item, data, len)) {
    KELO_LOG(LOG_LVL_INFO, "Try to write the same data\n");
    return 0;
  }
  log_item<LOG_LVL_ERR>(kWriteDb.log_name, *item);
  if (clean_flag() != 0) return 0;
  return announce_change(write_stored(*handle, id, *item, data, len), id, data, len);
}

std::int32_t kelo_dm_empty(kelo_dm_handle* handle, std::int32_t id) {
  kelo_dm_item_desc* const item = check_and_find_item(kEmpty, handle != nullptr, id);
  if (item == nullptr) return kEmpty.refusal;
  log_item<LOG_LVL_ERR>(kEmpty.log_name, *item);
  if (clean_flag() != 0) return 0;
  const std::uint32_t nothing = 0;
  return announce_change(write_stored(*handle, id, *item, &nothing, 0), id, &nothing, 0);
}

std::int32_t kelo_dm_read(kelo_dm_handle* handle, std::int32_t /*id*/, void* buf, std::int32_t size) {
  return check_arguments(kRead, handle != nullptr && has_bytes(buf, size)) ? report_memory_read(size)
                                                                           : kRead.refusal;
}

std::int32_t kelo_dm_read_db(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size) {
  kelo_dm_item_desc* const item = check_and_find_item(kReadDb, handle != nullptr && has_bytes(buf, size), id);
  return item != nullptr ? read_db(*handle, id, *item, buf, size) : kReadDb.refusal;
}

std::int32_t kelo_dm_read_from_dbconfigfile(kelo_dm_handle* handle, std::int32_t id, void* buf,
                                            std::int32_t size) {
  kelo_dm_item_desc* const item =
      check_and_find_item(kReadConfig, handle != nullptr && has_bytes(buf, size), id);
  if (item == nullptr) return kReadConfig.refusal;
  log_item<LOG_LVL_INFO>(kReadConfig.log_name, *item);
  if (clean_flag() != 0) return kReadConfig.refusal;
  return read_stored(*handle, id, *item, buf, size) < 0 ? kReadConfig.refusal : 0;
}

std::int32_t kelo_dm_cache_write(kelo_dm_handle* /*handle*/, const void* data, std::int32_t len) {
  return check_arguments(kCacheWrite, has_bytes(data, len)) ? len : kCacheWrite.refusal;
}

std::int32_t kelo_dm_cache_read(kelo_dm_handle* /*handle*/, void* buf, std::int32_t size) {
  return check_arguments(kCacheRead, has_bytes(buf, size)) ? size : kCacheRead.refusal;
}

std::int32_t kelo_dm_clean(kelo_dm_handle* handle, const char* backup) {
  if (handle == nullptr || handle->operations.clean == nullptr) return 0;
  std::int32_t* const flag = kelo::dm::set_clean_flag();
  return flag != nullptr ? handle->operations.clean(backup, 1, flag) : 0;
}

std::int32_t kelo_dm_reg_event_callback(kelo_dm_event_fn callback) {
  if (!check_arguments(kRegEvent, callback != nullptr)) return kRegEvent.refusal;
  event_callback.store(callback, std::memory_order_release);
  return 0;
}
