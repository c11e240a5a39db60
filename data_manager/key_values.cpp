// SPDX-License-Identifier: MIT
// The exported functions that write and read the key-value pairs of an item, which are stored as one text.
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "data_manager/key_value_text.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace {

using kelo::dm::KeyValue;

constexpr std::int32_t kRefused = 3;

// This holds the longest text of an item and a terminator.
using Text = std::array<char, DM_MAX_KEY_VALUE_STRLEN + 1>;

// Reads an item's text. A negative result is a failure, which is logged under the name `function`.
std::int32_t read_text(kelo_dm_handle* handle, std::int32_t id, const char* function, Text& text) {
  const std::int32_t result = kelo_dm_read(handle, id, text.data(), DM_MAX_KEY_VALUE_STRLEN);
  if (result < 0) KELO_LOG_AS(function, LOG_LVL_ERR, "read db failed\n");
  return result;
}

bool lengths_are_valid(const KeyValue& pair) {
  return !pair.key.empty() && !pair.value.empty() &&
         pair.key.size() + pair.value.size() <= KELO_DM_KEY_VALUE_MAX;
}

}  // namespace

std::int32_t kelo_dm_write_key_value_pairs(kelo_dm_handle* handle, std::int32_t id, const char* key,
                                           const char* value, std::int32_t* out_len) {
  if (key == nullptr || value == nullptr || out_len == nullptr) {
    kelo::log::param_null(__func__);
    return kRefused;
  }
  KELO_LOG(LOG_LVL_DBUG, "write key: %s, value: %s\n", key, value);
  const KeyValue pair = {key, value};
  if (!lengths_are_valid(pair)) {
    KELO_LOG(LOG_LVL_ERR, "length of key or value error\n");
    return kRefused;
  }
  Text stored{};
  if (const std::int32_t result = read_text(handle, id, __func__, stored); result < 0) return result;
  const std::string_view list = stored.data();
  if (text_size(pair) + list.size() > DM_MAX_KEY_VALUE_STRLEN) {
    KELO_LOG(LOG_LVL_ERR, "ERROR: the length of db str out of DM_MAX_KEY_VALUE_STRLEN\n");
    return kRefused;
  }
  Text edited;
  const std::string_view text = set_pair(list, pair, edited);
  KELO_LOG(LOG_LVL_DBUG, "final str, write to db: %s\n", text.data());
  *out_len = static_cast<std::int32_t>(text.size());
  const std::int32_t result = kelo_dm_write(handle, id, text.data(), *out_len);
  if (result != 0) KELO_LOG(LOG_LVL_ERR, "write db failed\n");
  return result;
}

std::int32_t kelo_dm_read_key_value_pairs(kelo_dm_handle* handle, std::int32_t id,
                                          char (*keys)[KELO_DM_KEY_VALUE_ROW_SIZE],
                                          char (*values)[KELO_DM_KEY_VALUE_ROW_SIZE], std::int32_t* count) {
  if (keys == nullptr || values == nullptr || count == nullptr) {
    kelo::log::param_null(__func__);
    return kRefused;
  }
  *count = 0;
  Text stored{};
  if (const std::int32_t result = read_text(handle, id, __func__, stored); result < 0) return result;
  KELO_LOG(LOG_LVL_DBUG, "read from db: %s\n", stored.data());
  std::string_view list = stored.data();
  for (std::optional<KeyValue> pair = kelo::dm::take_pair(list); pair; pair = kelo::dm::take_pair(list)) {
    kelo::dm::fill_row(keys[*count], pair->key);
    kelo::dm::fill_row(values[*count], pair->value);
    KELO_LOG(LOG_LVL_DBUG, "key: %s, value: %s\n", keys[*count], values[*count]);
    ++*count;
  }
  KELO_LOG(LOG_LVL_DBUG, "key-value pairs num: %d\n", *count);
  return 0;
}
