// SPDX-License-Identifier: MIT
// The table of the items held in memory, which readers search without a lock.
#include "data_manager/memory_items.hpp"

#include <atomic>
#include <cstddef>

#include "base/lock.hpp"

// Readers need no lock, since nothing is ever removed. A slot changes once, from empty to an item. A table that was
// replaced by a larger one keeps its slots for readers that still search it. Such a reader can miss only an item that
// was added after its search began.
namespace kelo::dm {
namespace {

struct Table {
  Table* outgrown;  // the smaller table before this one, for leak checkers
  unsigned bits;    // the number of slots is 2 to this power
  std::atomic<MemoryItem*> slots[1];

  [[nodiscard]] std::size_t size() const { return std::size_t{1} << bits; }
  // The factor is 2^32 divided by the golden ratio, which spreads consecutive ids.
  [[nodiscard]] std::size_t first_index(std::int32_t id) const {
    return (static_cast<std::uint32_t>(id) * 2654435769u) >> (32 - bits);
  }
  // Returns the slot with this id, or the empty slot for it. There always is an empty slot, since at most half of
  // them are used.
  [[nodiscard]] std::atomic<MemoryItem*>& slot_of(std::int32_t id) {
    std::size_t index = first_index(id);
    for (;; index = (index + 1) & (size() - 1)) {
      const MemoryItem* const item = slots[index].load(std::memory_order_acquire);
      if (item == nullptr || item->id == id) return slots[index];
    }
  }
};

constexpr unsigned kFirstBits = 6;

std::atomic<Table*> current_table{nullptr};
pthread_mutex_t add_lock = PTHREAD_MUTEX_INITIALIZER;
std::size_t item_count;  // guarded by add_lock

Table* make_table(unsigned bits, Table* outgrown) {
  const std::size_t bytes = offsetof(Table, slots) + (std::size_t{1} << bits) * sizeof(Table::slots[0]);
  auto* const table = static_cast<Table*>(std::calloc(1, bytes));
  if (table == nullptr) return nullptr;
  table->outgrown = outgrown;
  table->bits = bits;
  return table;
}

// Returns a table that can take one more item, or null when there is no memory for it. The caller holds add_lock.
Table* table_with_free_slot() {
  Table* const old = current_table.load(std::memory_order_relaxed);
  if (old != nullptr && (item_count + 1) * 2 <= old->size()) return old;
  Table* const grown = make_table(old == nullptr ? kFirstBits : old->bits + 1, old);
  if (grown == nullptr) return nullptr;
  for (std::size_t index = 0; old != nullptr && index < old->size(); ++index) {
    MemoryItem* const item = old->slots[index].load(std::memory_order_relaxed);
    if (item != nullptr) grown->slot_of(item->id).store(item, std::memory_order_relaxed);
  }
  current_table.store(grown, std::memory_order_release);
  return grown;
}

}  // namespace

MemoryItem* find_memory_item(std::int32_t id) {
  Table* const table = current_table.load(std::memory_order_acquire);
  return table == nullptr ? nullptr : table->slot_of(id).load(std::memory_order_acquire);
}

ReadLock::ReadLock(MemoryItem& item) : item_(item) {
  if (pthread_rwlock_tryrdlock(&item_.lock) == 0) return;
  initialise_inherited_locks();
  pthread_rwlock_rdlock(&item_.lock);
}

WriteLock::WriteLock(MemoryItem& item) : item_(item) {
  if (pthread_rwlock_trywrlock(&item_.lock) == 0) return;
  initialise_inherited_locks();
  pthread_rwlock_wrlock(&item_.lock);
}

// The locks are assigned instead of initialised by functions. In the child of a program with threads, a sanitizer's
// versions of those functions could wait for locks of the sanitizer that are never released.
void initialise_item_locks() {
  add_lock = PTHREAD_MUTEX_INITIALIZER;
  Table* const table = current_table.load(std::memory_order_acquire);
  for (std::size_t index = 0; table != nullptr && index < table->size(); ++index) {
    MemoryItem* const item = table->slots[index].load(std::memory_order_acquire);
    if (item != nullptr) item->lock = PTHREAD_RWLOCK_INITIALIZER;
  }
}

AddResult add_memory_item(base::HeapPtr<MemoryItem>& item) {
  const MemoryChange change;
  if (pthread_mutex_trylock(&add_lock) != 0) {
    initialise_inherited_locks();
    pthread_mutex_lock(&add_lock);
  }
  const base::LockGuard lock(add_lock, base::AdoptLock{});
  if (find_memory_item(item->id) != nullptr) return AddResult::already_there;
  Table* const table = table_with_free_slot();
  if (table == nullptr) return AddResult::no_memory;
  std::atomic<MemoryItem*>& slot = table->slot_of(item->id);
  slot.store(item.release(), std::memory_order_release);
  ++item_count;
  return AddResult::stored;
}

}  // namespace kelo::dm
