// The items held in memory, found by id in constant time.
#ifndef KELO_DATA_MANAGER_MEMORY_ITEMS_HPP
#define KELO_DATA_MANAGER_MEMORY_ITEMS_HPP

#include <pthread.h>

#include <cstdint>

#include "base/heap.hpp"
#include "data_manager/memory_fork_gate.hpp"

namespace kelo::dm {

// One item, which lives until the process ends once it is in the store.
struct MemoryItem {
  pthread_rwlock_t lock;  // guards all below but the id, which never changes
  std::int32_t id;
  std::int32_t length;    // valid bytes of the value
  std::int32_t capacity;  // bytes the block has room for
  char* value;
};

// Hold an item's lock for their scope; a child made by fork() never waits for a thread that it does not have.
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

// The item with this id; null when there is none. Never waits.
MemoryItem* find_memory_item(std::int32_t id);

enum class Added { stored, already_there, no_memory };

// Puts `item` into the store, which then owns it, unless an item with its id is there.
Added add_memory_item(base::HeapPtr<MemoryItem>& item);

// Makes the locks of the store and of its items anew, in a child made by fork().
void renew_item_locks();

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MEMORY_ITEMS_HPP
