// What the calls of the data manager share: the registered items, the clean flag, the fatal end.
#ifndef KELO_DATA_MANAGER_REGISTRY_HPP
#define KELO_DATA_MANAGER_REGISTRY_HPP

#include <cstdint>

#include "base/fatal.hpp"
#include "kelo_utils/data_manager.h"

namespace kelo::dm {

inline constexpr int kBadArgument = -3;

// The default is the line of the call.
[[noreturn]] inline void fatal(int line = __builtin_LINE()) {
  base::fatal("data_manager/kelo_app_dm.c", line);
}

// The function in a handle's slot, which must be there.
template <typename Slot>
Slot required(Slot slot, int line = __builtin_LINE()) {
  if (slot == nullptr) fatal(line);
  return slot;
}

// The descriptor registered last under `id`; null, logged under the function name `function`, when there is
// none.
kelo_dm_item_desc* find_item(std::int32_t id, const char* function);

// Makes the lock of the list of registered items anew, in a child made by fork().
void renew_item_list_lock();

// Non-zero while the storage is being cleaned.
std::int32_t clean_flag();

// Raises the clean flag: its address for the back-end, which clears it, or null when it was raised already.
std::int32_t* raise_clean_flag();

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_REGISTRY_HPP
