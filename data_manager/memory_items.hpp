// SPDX-License-Identifier: MIT
// The items whose values are in memory. They are found by their ids in constant time.
#ifndef KELO_DATA_MANAGER_MEMORY_ITEMS_HPP
#define KELO_DATA_MANAGER_MEMORY_ITEMS_HPP

#include <pthread.h>

#include <cstdint>

#include "base/heap.hpp"
#include "data_manager/memory_fork_gate.hpp"

namespace kelo::dm {

// An item that was added is never freed.
struct MemoryItem {
  pthread_rwlock_t lock;  // guards the members below except for the id, which never changes
  std::int32_t id;
  std::int32_t length;    // bytes of the value
  std::int32_t capacity;  // bytes of its block
  char* value;
};

// These guards hold an item's lock for their scope. In a child made by fork() they do not wait for the parent's
// threads.
class [[nodiscard]] ReadLock {
 public:
  explicit ReadLock(MemoryItem& item);
  ~ReadLock() { pthread_rwlock_unlock(&item_.lock); }
  ReadLock(const ReadLock&) = delete;
  ReadLock& operator=(const ReadLock&) = delete;

 private:
  MemoryItem& item_;
};

class [[nodiscard]] WriteLock {
 public:
  explicit WriteLock(MemoryItem& item);
  ~WriteLock() { pthread_rwlock_unlock(&item_.lock); }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;

 private:
  const MemoryChange change_;
  MemoryItem& item_;
};

// Returns the item with this id, or null. It never waits.
MemoryItem* find_memory_item(std::int32_t id);

enum class AddResult { stored, already_there, no_memory };

// Adds `item` unless there is an item with its id. `item` is empty when it was added.
AddResult add_memory_item(base::HeapPtr<MemoryItem>& item);

// Initialises the locks of the table and of its items in a child made by fork().
void initialise_item_locks();

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MEMORY_ITEMS_HPP
