// SPDX-License-Identifier: MIT
// The registered items, the clean flag and the fatal error of the data manager.
#ifndef KELO_DATA_MANAGER_REGISTRY_HPP
#define KELO_DATA_MANAGER_REGISTRY_HPP

#include <cstdint>

#include "base/fatal.hpp"
#include "kelo_utils/data_manager.h"

namespace kelo::dm {

inline constexpr int kBadArgument = -3;

// By default the error names the line of the caller.
[[noreturn]] inline void fatal(int line = __builtin_LINE()) {
  base::fatal("data_manager/kelo_app_dm.c", line);
}

// Logs that there is no storage and ends the process.
[[noreturn]] void fatal_without_storage(int line);

// Returns the function in a slot of a handle. The process ends when the slot is empty.
template <typename Slot>
Slot required(Slot slot, int line = __builtin_LINE()) {
  if (slot == nullptr) fatal_without_storage(line);
  return slot;
}

// Returns the descriptor that was registered last under `id`. The result is null, which is logged under the name
// `function`, when there is none.
kelo_dm_item_desc* find_item(std::int32_t id, const char* function);

// Moves `position` to the next registered item and returns it, in the order of registration. A null position is before
// the first item; the result is null after the last one. It is for the additions, and not in a library without them.
const kelo_dm_item* next_registered(q_link_type*& position);

// Initialises the lock of the list of registered items in a child made by fork().
void initialise_item_list_lock();

// Returns non-zero while the storage is being cleaned.
std::int32_t clean_flag();

// Sets the clean flag and returns its address, which the back-end needs to clear it. The result is null when the flag
// was already set.
std::int32_t* set_clean_flag();

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_REGISTRY_HPP
