// SPDX-License-Identifier: MIT
// Tells a program which items are registered.
#include <cstdint>

#include "data_manager/registry.hpp"
#include "kelo_utils/settings.h"

std::int32_t kelo_dm_for_each_item(kelo_dm_item_fn callback, void* user) {
  if (callback == nullptr) return kelo::dm::kBadArgument;
  q_link_type* position = nullptr;
  while (const kelo_dm_item* const item = kelo::dm::next_registered(position)) {
    // A later item with the same id has taken the place of this one.
    if (kelo::dm::find_item(item->id, __func__) != &item->desc) continue;
    if (const std::int32_t result = callback(item->id, &item->desc, user)) return result;
  }
  return 0;
}
