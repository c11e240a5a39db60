// SPDX-License-Identifier: MIT
// The helpers that the exported functions for one item share: refusals, log lines, the read of the stored value.
#ifndef KELO_DATA_MANAGER_ITEM_FUNCTION_HPP
#define KELO_DATA_MANAGER_ITEM_FUNCTION_HPP

#include <cstdint>

#include "data_manager/registry.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace kelo::dm {

// This is what differs between the exported functions. Searches of logs in the field rely on the names, also where a
// function uses the name of another one.
struct ItemFunction {
  const char* log_name;      // under which its lines are logged
  const char* message_name;  // in its message about a bad argument
  int refusal;               // result for a bad argument or an unknown id
};

inline bool has_bytes(const void* bytes, std::int32_t count) { return bytes != nullptr && count >= 1; }

// These take the names one by one: an ItemFunction in memory would need relocations.
bool check_arguments(bool valid, const char* log_name, const char* message_name);
kelo_dm_item_desc* check_and_find_item(bool valid_arguments, std::int32_t id, const char* log_name,
                                       const char* message_name);

// Returns `valid`, and logs a message when it is false.
inline bool check_arguments(ItemFunction function, bool valid) {
  return check_arguments(valid, function.log_name, function.message_name);
}

// Returns the item with this id. The result is null, which is logged, for bad arguments or an unknown id.
inline kelo_dm_item_desc* check_and_find_item(ItemFunction function, bool valid_arguments, std::int32_t id) {
  return check_and_find_item(valid_arguments, id, function.log_name, function.message_name);
}

template <int level>
void log_item(const char* log_name, const kelo_dm_item_desc& item) {
  constexpr int kNameSize = sizeof(item.item_table);
  KELO_LOG_AS(log_name, level, "hash:%.*s %.*s\n", kNameSize, item.item_table, kNameSize, item.item_key);
}

// The handle must have a read function: without one the process ends.
inline int read_stored(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, void* buf,
                       int size) {
  return required(handle.operations.read)(static_cast<std::uint32_t>(id), &item, buf, size);
}

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_ITEM_FUNCTION_HPP
