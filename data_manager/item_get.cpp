// The value of an item, stored or default, whole and with its length.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "base/heap.hpp"
#include "data_manager/item_call.hpp"
#include "data_manager/registry.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace {

using kelo::dm::ItemCall;
using kelo::dm::kBadArgument;

constexpr ItemCall kGet = {"kelo_dm_get", "kelo_dm_get", kBadArgument};

constexpr std::int32_t kFound = 0;
constexpr std::int32_t kNoValue = -1;
constexpr std::int32_t kBufferTooSmall = -2;
constexpr std::int32_t kDamaged = -4;
constexpr std::int32_t kNotReadable = -5;

// What a storage's read answers in place of a number of bytes, as far as it matters here.
constexpr int kNoRow = -1;
constexpr int kNoTable = -100;      // or a table that cannot be read
constexpr int kBadChecksum = -102;  // or a buffer that is too small

// In their place where there was no memory to read into.
constexpr int kNoMemory = INT_MIN;

// Answers of the hook for the storage's health which say that nothing is wrong with it.
constexpr int kHealthy = 0;
constexpr int kNoStorageYet = -1;

constexpr int kFirstRoom = 4096;
constexpr int kLargestRoom = 16 * 1024 * 1024;
constexpr int kGrowth = 16;

struct ReadValue {
  int result;  // number of bytes, or the storage's failure
  kelo::base::HeapPtr<char[]> bytes;
};

// Reads the stored value into ever more memory. Only a value that leaves some of it over is known to be
// whole: storages cut, or fail the checksum of what they have cut.
ReadValue read_whole(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item,
                     std::int32_t expected) {
  for (int room = std::max(kFirstRoom, expected < INT32_MAX ? expected + 1 : expected);; room *= kGrowth) {
    auto bytes = kelo::base::zeroed_array<char>(static_cast<std::size_t>(room));
    if (bytes == nullptr) return {kNoMemory, nullptr};
    const int result = kelo::dm::read_stored(handle, id, item, bytes.get(), room);
    if (result < room && result != kBadChecksum) return {result, std::move(bytes)};
    if (room >= kLargestRoom) return {kBadChecksum, nullptr};
  }
}

bool storage_is_sound() {
  const int health = dm_pal_check_db_health();
  return health == kHealthy || health == kNoStorageYet;
}

// The default in the item's record; nothing when the record has none, or claims more than its field holds.
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

std::int32_t hand_out(std::span<const char> value, void* buf, std::int32_t size, std::int32_t* len) {
  *len = static_cast<std::int32_t>(value.size());
  if (*len > size) return kBufferTooSmall;
  if (!value.empty()) std::memcpy(buf, value.data(), value.size());
  return kFound;
}

}  // namespace

std::int32_t kelo_dm_get(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size,
                         std::int32_t* len) {
  const bool good_arguments = handle != nullptr && len != nullptr && kelo::dm::has_bytes(buf, size);
  kelo_dm_item_desc* const item = kelo::dm::item_of_call(kGet, good_arguments, id);
  if (item == nullptr) return kGet.refusal;
  kelo::dm::log_item<LOG_LVL_DBUG>(kGet.function, *item);
  if (kelo::dm::clean_flag() != 0) return kNotReadable;

  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): without a handle there is no item
  ReadValue stored = read_whole(*handle, id, *item, size);
  // A damaged backup, which a storage makes anew when a read has found it, may have the value now.
  if (stored.result == kNoRow || stored.result == kNoTable) stored = read_whole(*handle, id, *item, size);
  if (stored.result >= 0)
    return hand_out({stored.bytes.get(), static_cast<std::size_t>(stored.result)}, buf, size, len);
  if (stored.result == kNoRow || (stored.result == kNoTable && storage_is_sound())) {
    const std::optional<std::span<const char>> value = default_of(*item);
    return value ? hand_out(*value, buf, size, len) : kNoValue;
  }
  KELO_LOG(LOG_LVL_ERR, "read cb ret:%d\n", stored.result);
  return stored.result == kBadChecksum ? kDamaged : kNotReadable;
}
