// The table of the items held in memory, which readers search without a lock.
#include "data_manager/memory_items.hpp"

#include <atomic>
#include <cstddef>

#include "base/lock.hpp"

// Nothing is ever removed, so readers need no lock: a slot goes from empty to an item once, and a table that
// has been outgrown keeps its slots for those who still look there. What such a reader misses was added after
// it had begun.
namespace kelo::dm {
namespace {

struct Table {
  Table* outgrown;  // keeps the tables before this one reachable
  unsigned bits;    // the number of slots is 2 to this power
  std::atomic<MemoryItem*> slots[1];

  [[nodiscard]] std::size_t size() const { return std::size_t{1} << bits; }
  // Multiplying by the golden ratio spreads ids that follow each other.
  [[nodiscard]] std::size_t home(std::int32_t id) const {
    return (static_cast<std::uint32_t>(id) * 2654435769u) >> (32 - bits);
  }
  // The slot that holds this id, or the empty one where it would go. There always is one: tables are half
  // full at most.
  [[nodiscard]] std::atomic<MemoryItem*>& slot_of(std::int32_t id) {
    std::size_t place = home(id);
    for (;; place = (place + 1) & (size() - 1)) {
      const MemoryItem* const item = slots[place].load(std::memory_order_acquire);
      if (item == nullptr || item->id == id) return slots[place];
    }
  }
};

constexpr unsigned kFirstBits = 6;

std::atomic<Table*> current{nullptr};
pthread_mutex_t add_lock = PTHREAD_MUTEX_INITIALIZER;
std::size_t count;  // items in the store; guarded by add_lock

Table* make_table(unsigned bits, Table* outgrown) {
  const std::size_t bytes = offsetof(Table, slots) + (std::size_t{1} << bits) * sizeof(Table::slots[0]);
  auto* const table = static_cast<Table*>(std::calloc(1, bytes));
  if (table == nullptr) return nullptr;
  table->outgrown = outgrown;
  table->bits = bits;
  return table;
}

// A table with room for one more item; null when there is no memory for it. Called under add_lock.
Table* table_with_room() {
  Table* const old = current.load(std::memory_order_relaxed);
  if (old != nullptr && (count + 1) * 2 <= old->size()) return old;
  Table* const grown = make_table(old == nullptr ? kFirstBits : old->bits + 1, old);
  if (grown == nullptr) return nullptr;
  for (std::size_t place = 0; old != nullptr && place < old->size(); ++place) {
    MemoryItem* const item = old->slots[place].load(std::memory_order_relaxed);
    if (item != nullptr) grown->slot_of(item->id).store(item, std::memory_order_relaxed);
  }
  current.store(grown, std::memory_order_release);
  return grown;
}

}  // namespace

MemoryItem* find_memory_item(std::int32_t id) {
  Table* const table = current.load(std::memory_order_acquire);
  return table == nullptr ? nullptr : table->slot_of(id).load(std::memory_order_acquire);
}

ReadLock::ReadLock(MemoryItem& item) : item_(item) {
  if (pthread_rwlock_tryrdlock(&item_.lock) == 0) return;
  renew_inherited_locks();
  pthread_rwlock_rdlock(&item_.lock);
}

WriteLock::WriteLock(MemoryItem& item) : item_(item) {
  if (pthread_rwlock_trywrlock(&item_.lock) == 0) return;
  renew_inherited_locks();
  pthread_rwlock_wrlock(&item_.lock);
}

// By assignment: in the child of a program with threads a sanitizer's own locks may be held, which its
// versions of the functions would wait for.
void renew_item_locks() {
  add_lock = PTHREAD_MUTEX_INITIALIZER;
  Table* const table = current.load(std::memory_order_acquire);
  for (std::size_t place = 0; table != nullptr && place < table->size(); ++place) {
    MemoryItem* const item = table->slots[place].load(std::memory_order_acquire);
    if (item != nullptr) item->lock = PTHREAD_RWLOCK_INITIALIZER;
  }
}

Added add_memory_item(base::HeapPtr<MemoryItem>& item) {
  const MemoryChange change;
  if (pthread_mutex_trylock(&add_lock) != 0) {
    renew_inherited_locks();
    pthread_mutex_lock(&add_lock);
  }
  const base::LockGuard lock(add_lock, base::AdoptLock{});
  if (find_memory_item(item->id) != nullptr) return Added::already_there;
  Table* const table = table_with_room();
  if (table == nullptr) return Added::no_memory;
  std::atomic<MemoryItem*>& slot = table->slot_of(item->id);
  slot.store(item.release(), std::memory_order_release);
  ++count;
  return Added::stored;
}

}  // namespace kelo::dm
