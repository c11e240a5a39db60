// The items held in memory, found by id in constant time.
#ifndef KELO_DATA_MANAGER_MEMORY_ITEMS_HPP
#define KELO_DATA_MANAGER_MEMORY_ITEMS_HPP

#include <pthread.h>

#include <cstdint>

#include "base/heap.hpp"

namespace kelo::dm {

// One item, which lives until the process ends once it is in the store.
struct MemoryItem {
  pthread_rwlock_t lock;  // guards all below but the id, which never changes
  std::int32_t id;
  std::int32_t length;    // valid bytes of the value
  std::int32_t capacity;  // bytes the block has room for
  char* value;
};

// The item with this id; null when there is none. Never waits.
MemoryItem* find_memory_item(std::int32_t id);

enum class Added { stored, already_there, no_memory };

// Puts `item` into the store, which then owns it, unless an item with its id is there.
Added add_memory_item(base::HeapPtr<MemoryItem>& item);

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MEMORY_ITEMS_HPP
