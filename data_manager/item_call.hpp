// What the calls that write or read one item share.
#ifndef KELO_DATA_MANAGER_ITEM_CALL_HPP
#define KELO_DATA_MANAGER_ITEM_CALL_HPP

#include <cstdint>

#include "data_manager/registry.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace kelo::dm {

// How one of the calls shows itself. Log searches in the field rely on the names as they are, those of other
// functions included.
struct ItemCall {
  const char* function;   // name in its log lines
  const char* complaint;  // name in its message about a bad argument
  int refusal;            // result for a bad argument or an unknown id
};

inline bool has_bytes(const void* bytes, std::int32_t count) { return bytes != nullptr && count >= 1; }

// The names of a call are handed on one by one: a call as a constant object takes relocations.
bool check_arguments(bool good, const char* function, const char* complaint);
kelo_dm_item_desc* find_item_of_call(bool good_arguments, std::int32_t id, const char* function,
                                     const char* complaint);

// Whether the arguments of `call` are good; logged when they are not.
inline bool check_arguments(ItemCall call, bool good) {
  return check_arguments(good, call.function, call.complaint);
}

// The item that a call with these arguments is about; null, logged, when the call is refused.
inline kelo_dm_item_desc* item_of_call(ItemCall call, bool good_arguments, std::int32_t id) {
  return find_item_of_call(good_arguments, id, call.function, call.complaint);
}

template <int level>
void log_item(const char* function, const kelo_dm_item_desc& item) {
  constexpr int kNameSize = sizeof(item.item_table);
  KELO_LOG_AS(function, level, "hash:%.*s %.*s\n", kNameSize, item.item_table, kNameSize, item.item_key);
}

// Reads the stored value with the handle's function, which must be there.
inline int read_stored(const kelo_dm_handle& handle, std::int32_t id, kelo_dm_item_desc& item, void* buf,
                       int size) {
  return required(handle.operations.read)(static_cast<std::uint32_t>(id), &item, buf, size);
}

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_ITEM_CALL_HPP
