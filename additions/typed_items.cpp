// SPDX-License-Identifier: MIT
// Items read and written as values of a type. The length and the type are checked.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "data_manager/registry.hpp"
#include "kelo_utils/settings.h"

namespace {

constexpr std::int32_t kBoolSize = 1;
constexpr std::int32_t kWordSize = 4;

enum class Kind : std::uint8_t { scalar, text, bytes };

bool has_kind(const kelo_dm_item_desc& item, Kind kind) {
  switch (kind) {
    case Kind::scalar:
      return KELO_DM_IS_SCALAR(item.def_type);
    case Kind::text:
      return item.def_type == KELO_DM_TYPE_STRING;
    case Kind::bytes:
      return item.def_type == KELO_DM_TYPE_BUFFER;
  }
  return false;
}

// Finds the item in `item`. It is left empty unless the result is ::KELO_DM_VALUE_OK.
std::int32_t check(bool valid_arguments, std::int32_t id, Kind kind, const char* function,
                   const kelo_dm_item_desc*& item) {
  item = valid_arguments ? kelo::dm::find_item(id, function) : nullptr;
  if (item == nullptr) return KELO_DM_VALUE_BAD_ARGUMENT;
  return has_kind(*item, kind) ? KELO_DM_VALUE_OK : KELO_DM_VALUE_WRONG_TYPE;
}

bool is_scalar_size(std::int32_t len, bool byte_allowed) {
  return len == kWordSize || (byte_allowed && len == kBoolSize);
}

// Reads a scalar of four bytes, or of one where that is allowed.
std::int32_t get_scalar(kelo_dm_handle* handle, std::int32_t id, std::uint32_t* value, bool byte_allowed,
                        const char* function) {
  const kelo_dm_item_desc* item = nullptr;
  std::int32_t result = check(handle != nullptr && value != nullptr, id, Kind::scalar, function, item);
  if (result != KELO_DM_VALUE_OK) return result;
  std::uint32_t stored = 0;
  std::int32_t len = 0;
  result = kelo_dm_get(handle, id, &stored, sizeof stored, &len);
  if (result == KELO_DM_VALUE_TOO_LONG || (result == KELO_DM_VALUE_OK && !is_scalar_size(len, byte_allowed)))
    return KELO_DM_VALUE_WRONG_LENGTH;
  if (result != KELO_DM_VALUE_OK) return result;
  std::uint8_t first = 0;
  std::memcpy(&first, &stored, sizeof first);
  *value = len == kBoolSize ? first : stored;
  return KELO_DM_VALUE_OK;
}

// Writes a scalar of four bytes, or of one where the item has that length and it is allowed.
std::int32_t set_scalar(kelo_dm_handle* handle, std::int32_t id, std::uint32_t value, bool byte_allowed,
                        const char* function) {
  const kelo_dm_item_desc* item = nullptr;
  const std::int32_t result = check(handle != nullptr, id, Kind::scalar, function, item);
  if (result != KELO_DM_VALUE_OK) return result;
  if (!is_scalar_size(item->len, byte_allowed)) return KELO_DM_VALUE_WRONG_LENGTH;
  const auto byte = static_cast<std::uint8_t>(value);
  const void* const data = item->len == kBoolSize ? static_cast<const void*>(&byte) : &value;
  return kelo_dm_write_verified(handle, id, data, item->len);
}

std::int32_t get_counted(kelo_dm_handle* handle, std::int32_t id, Kind kind, void* buf, std::int32_t size,
                         std::int32_t* len, const char* function) {
  const kelo_dm_item_desc* item = nullptr;
  const std::int32_t result =
      check(handle != nullptr && buf != nullptr && size >= 1 && len != nullptr, id, kind, function, item);
  return result == KELO_DM_VALUE_OK ? kelo_dm_get(handle, id, buf, size, len) : result;
}

std::int32_t set_counted(kelo_dm_handle* handle, std::int32_t id, Kind kind, const void* data,
                         std::int32_t len, const char* function) {
  const kelo_dm_item_desc* item = nullptr;
  const std::int32_t result = check(handle != nullptr && data != nullptr, id, kind, function, item);
  if (result != KELO_DM_VALUE_OK) return result;
  return len >= 1 ? kelo_dm_write_verified(handle, id, data, len) : KELO_DM_VALUE_WRONG_LENGTH;
}

}  // namespace

std::int32_t kelo_dm_get_int32(kelo_dm_handle* handle, std::int32_t id, std::int32_t* value) {
  return get_scalar(handle, id, reinterpret_cast<std::uint32_t*>(value), false, __func__);
}

std::int32_t kelo_dm_get_uint32(kelo_dm_handle* handle, std::int32_t id, std::uint32_t* value) {
  return get_scalar(handle, id, value, false, __func__);
}

std::int32_t kelo_dm_get_bool(kelo_dm_handle* handle, std::int32_t id, std::int32_t* value) {
  std::uint32_t stored = 0;
  const std::int32_t result = get_scalar(handle, id, value != nullptr ? &stored : nullptr, true, __func__);
  if (result == KELO_DM_VALUE_OK) *value = stored != 0 ? 1 : 0;
  return result;
}

std::int32_t kelo_dm_get_text(kelo_dm_handle* handle, std::int32_t id, char* buf, std::int32_t size) {
  std::int32_t len = 0;
  std::int32_t result = get_counted(handle, id, Kind::text, buf, size, &len, __func__);
  if (result == KELO_DM_VALUE_OK && len == size) result = KELO_DM_VALUE_TOO_LONG;
  if (buf != nullptr && size >= 1) buf[result == KELO_DM_VALUE_OK ? len : 0] = '\0';
  return result;
}

std::int32_t kelo_dm_get_bytes(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size,
                               std::int32_t* len) {
  return get_counted(handle, id, Kind::bytes, buf, size, len, __func__);
}

std::int32_t kelo_dm_set_int32(kelo_dm_handle* handle, std::int32_t id, std::int32_t value) {
  return set_scalar(handle, id, static_cast<std::uint32_t>(value), false, __func__);
}

std::int32_t kelo_dm_set_uint32(kelo_dm_handle* handle, std::int32_t id, std::uint32_t value) {
  return set_scalar(handle, id, value, false, __func__);
}

std::int32_t kelo_dm_set_bool(kelo_dm_handle* handle, std::int32_t id, std::int32_t value) {
  return set_scalar(handle, id, value != 0 ? 1 : 0, true, __func__);
}

std::int32_t kelo_dm_set_text(kelo_dm_handle* handle, std::int32_t id, const char* text) {
  const std::size_t length = text != nullptr ? std::strlen(text) : 0;
  return set_counted(handle, id, Kind::text, text,
                     length <= INT32_MAX ? static_cast<std::int32_t>(length) : 0, __func__);
}

std::int32_t kelo_dm_set_bytes(kelo_dm_handle* handle, std::int32_t id, const void* data, std::int32_t len) {
  return set_counted(handle, id, Kind::bytes, data, len, __func__);
}
