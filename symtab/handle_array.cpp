// SPDX-License-Identifier: MIT
// Handle arrays: growing arrays of pointers, in which a handle is the index of a slot.
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/heap.hpp"
#include "kelo_utils/symtab.h"

namespace {

constexpr int kGrowth = 16;  // slots

// Two words are in front of slot 0. They point to the number of slots and to the number of handles in use.
constexpr int kHeaderWords = 2;
constexpr int kCapacityWord = -2;
constexpr int kInUseWord = -1;

int& capacity_of(void** slots) { return *static_cast<int*>(slots[kCapacityWord]); }
int& in_use_of(void** slots) { return *static_cast<int*>(slots[kInUseWord]); }

void** make_slots() {
  auto block = kelo::base::zeroed_array<void*>(kHeaderWords + kGrowth);
  auto capacity = kelo::base::zeroed<int>();
  auto in_use = kelo::base::zeroed<int>();
  if (!block || !capacity || !in_use) return nullptr;
  *capacity = kGrowth;
  void** const slots = block.release() + kHeaderWords;
  slots[kCapacityWord] = capacity.release();
  slots[kInUseWord] = in_use.release();
  return slots;
}

void free_slots(void** slots) {
  std::free(slots[kCapacityWord]);
  std::free(slots[kInUseWord]);
  std::free(slots - kHeaderWords);
}

// Returns the array with `kGrowth` more slots, perhaps at another address, or null when memory runs out.
void** grow(void** slots) {
  const int capacity = capacity_of(slots);
  if (capacity > INT_MAX - kGrowth) return nullptr;
  const std::size_t words = static_cast<std::size_t>(capacity) + kHeaderWords + kGrowth;
  auto* const block = static_cast<void**>(std::realloc(slots - kHeaderWords, words * sizeof(void*)));
  if (block == nullptr) return nullptr;
  slots = block + kHeaderWords;
  std::memset(slots + capacity, 0, kGrowth * sizeof(void*));
  capacity_of(slots) += kGrowth;
  return slots;
}

int lowest_null_slot(void** slots) {
  const int capacity = capacity_of(slots);
  for (int handle = 0; handle < capacity; ++handle) {
    if (slots[handle] == nullptr) return handle;
  }
  return -1;
}

// Returns 0 when every slot is null.
int one_past_highest_occupied(void** slots) {
  int bound = capacity_of(slots);
  while (bound > 0 && slots[bound - 1] == nullptr) --bound;
  return bound;
}

}  // namespace

int hAlloc(void*** map) {
  if (map == nullptr) return -1;
  if (*map == nullptr) *map = make_slots();
  void** slots = *map;
  if (slots == nullptr) return -1;

  const int capacity = capacity_of(slots);
  int handle = in_use_of(slots) < capacity ? lowest_null_slot(slots) : -1;
  if (handle < 0) {
    slots = grow(slots);
    if (slots == nullptr) return -1;
    *map = slots;
    handle = capacity;
  }
  in_use_of(slots) += 1;
  return handle;
}

int hFree(void*** map, int handle) {
  if (map == nullptr || *map == nullptr) return -1;
  void** const slots = *map;
  if (handle < 0 || handle >= capacity_of(slots)) return -1;

  slots[handle] = nullptr;
  in_use_of(slots) -= 1;
  if (in_use_of(slots) > 0) return one_past_highest_occupied(slots);
  free_slots(slots);
  *map = nullptr;
  return 0;
}

int hAllocEntry(void*** map, int* max, int size) {
  const int handle = hAlloc(map);
  if (handle < 0) return -1;
  if (size > 0) {
    auto block = kelo::base::zeroed_array<unsigned char>(static_cast<std::size_t>(size));
    if (!block) {
      hFree(map, handle);
      return -1;
    }
    (*map)[handle] = block.release();
  }
  if (max != nullptr && *max <= handle) *max = handle + 1;
  return handle;
}
