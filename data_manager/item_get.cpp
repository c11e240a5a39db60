// SPDX-License-Identifier: MIT
// kelo_dm_get(): reads the whole value of an item, stored or default, and its length.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "base/heap.hpp"
#include "data_manager/item_function.hpp"
#include "data_manager/registry.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace {

using kelo::dm::ItemFunction;
using kelo::dm::kBadArgument;

constexpr ItemFunction kGet = {"kelo_dm_get", "kelo_dm_get", kBadArgument};

constexpr std::int32_t kFound = 0;
constexpr std::int32_t kNoValue = -1;
constexpr std::int32_t kBufferTooSmall = -2;
constexpr std::int32_t kDamaged = -4;
constexpr std::int32_t kNotReadable = -5;

// A storage's read returns these in place of a number of bytes. Other failures are treated alike.
constexpr int kNoRow = -1;
constexpr int kNoTable = -100;      // also for a table that cannot be read
constexpr int kBadChecksum = -102;  // also for a buffer that is too small

// This result means that there was no memory for the read.
constexpr int kNoMemory = INT_MIN;

// The hook for the storage's health returns one of these when it reports no damage.
constexpr int kHealthy = 0;
constexpr int kNoStorageYet = -1;

constexpr int kFirstBufferSize = 4096;
constexpr int kLargestBufferSize = 16 * 1024 * 1024;
constexpr int kGrowthFactor = 16;

struct ReadValue {
  int result;  // number of bytes, or a negative result of the storage
  kelo::base::HeapPtr<char[]> bytes;
};

// Reads the stored value into larger and larger buffers. A value that fills its buffer may have been cut: storages
// cut it silently or report a bad checksum of the part.
ReadValue read_whole(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item,
                     std::int32_t expected) {
  for (int capacity = std::max(kFirstBufferSize, expected < INT32_MAX ? expected + 1 : expected);;
       capacity *= kGrowthFactor) {
    auto bytes = kelo::base::zeroed_array<char>(static_cast<std::size_t>(capacity));
    if (bytes == nullptr) return {kNoMemory, nullptr};
    const int result = kelo::dm::read_stored(handle, id, item, bytes.get(), capacity);
    if (result < capacity && result != kBadChecksum) return {result, std::move(bytes)};
    if (capacity >= kLargestBufferSize) return {kBadChecksum, nullptr};
  }
}

bool storage_is_undamaged() {
  const int health = dm_pal_check_db_health();
  return health == kHealthy || health == kNoStorageYet;
}

// Returns the default in the item's record, or nothing when the record has none or gives a length above its field's.
std::optional<std::span<const char>> default_of(const kelo_dm_item_desc& item) {
  const auto* const bytes =
      reinterpret_cast<const char*>(item.def_value);  // NOLINT(performance-no-int-to-ptr)
  switch (item.def_type) {
    case KELO_DM_TYPE_SCALAR1:
    case KELO_DM_TYPE_SCALAR2:
    case KELO_DM_TYPE_SCALAR3:
    case KELO_DM_TYPE_SCALAR4:
      if (item.len < 1 || item.len > static_cast<std::int32_t>(sizeof item.def_value)) return std::nullopt;
      return std::span(reinterpret_cast<const char*>(&item.def_value), static_cast<std::size_t>(item.len));
    case KELO_DM_TYPE_STRING:
      if (bytes == nullptr) return std::nullopt;
      return std::span(bytes, std::strlen(bytes));
    case KELO_DM_TYPE_BUFFER:
      if (bytes == nullptr || item.len < 0) return std::nullopt;
      return std::span(bytes, static_cast<std::size_t>(item.len));
    default:
      return std::nullopt;
  }
}

std::int32_t copy_value(std::span<const char> value, void* buf, std::int32_t size, std::int32_t* len) {
  *len = static_cast<std::int32_t>(value.size());
  if (*len > size) return kBufferTooSmall;
  if (!value.empty()) std::memcpy(buf, value.data(), value.size());
  return kFound;
}

}  // namespace

std::int32_t kelo_dm_get(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size,
                         std::int32_t* len) {
  const bool valid_arguments = handle != nullptr && len != nullptr && kelo::dm::has_bytes(buf, size);
  kelo_dm_item_desc* const item = kelo::dm::check_and_find_item(kGet, valid_arguments, id);
  if (item == nullptr) return kGet.refusal;
  kelo::dm::log_item<LOG_LVL_DBUG>(kGet.log_name, *item);
  if (kelo::dm::clean_flag() != 0) return kNotReadable;

  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): the item is null when the handle is
  ReadValue stored = read_whole(*handle, id, *item, size);
  // A read that finds a damaged backup repairs it, so the second read may find the value.
  if (stored.result == kNoRow || stored.result == kNoTable) stored = read_whole(*handle, id, *item, size);
  if (stored.result >= 0)
    return copy_value({stored.bytes.get(), static_cast<std::size_t>(stored.result)}, buf, size, len);
  if (stored.result == kNoRow || (stored.result == kNoTable && storage_is_undamaged())) {
    const std::optional<std::span<const char>> value = default_of(*item);
    return value ? copy_value(*value, buf, size, len) : kNoValue;
  }
  KELO_LOG(LOG_LVL_ERR, "read cb ret:%d\n", stored.result);
  return stored.result == kBadChecksum ? kDamaged : kNotReadable;
}
