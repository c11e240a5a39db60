// SPDX-License-Identifier: MIT
// Handle arrays grow, and hand out the lowest slot that is free.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "kelo_utils/symtab.h"
#include "tests/support/failing_heap.hpp"

namespace {

using kelo::tests::FailingHeap;

int marker;  // what occupied slots point at

int capacity_of(void** map) { return *static_cast<int*>(map[-2]); }
int in_use_of(void** map) { return *static_cast<int*>(map[-1]); }

int take(void*** map) {
  const int handle = hAlloc(map);
  if (handle >= 0) (*map)[handle] = &marker;
  return handle;
}

// A map whose first `count` slots are occupied.
void** map_of(int count) {
  void** map = nullptr;
  for (int i = 0; i < count; ++i) take(&map);
  return map;
}

void release(void*** map) {
  while (*map != nullptr) hFree(map, 0);
}

TEST(Handle, FirstAllocationMakesSixteenNullSlots) {
  void** map = nullptr;
  EXPECT_EQ(hAlloc(&map), 0);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(capacity_of(map), 16);
  EXPECT_EQ(in_use_of(map), 1);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(map[i], nullptr) << i;
  release(&map);
}

TEST(Handle, HandsOutTheLowestNullSlot) {
  void** map = map_of(5);
  hFree(&map, 3);
  hFree(&map, 1);
  EXPECT_EQ(take(&map), 1);
  EXPECT_EQ(take(&map), 3);
  EXPECT_EQ(take(&map), 5);
  EXPECT_EQ(in_use_of(map), 6);
  release(&map);
}

TEST(Handle, ASlotLeftNullIsHandedOutAgain) {
  void** map = nullptr;
  EXPECT_EQ(hAlloc(&map), 0);
  EXPECT_EQ(hAlloc(&map), 0);
  EXPECT_EQ(in_use_of(map), 2);
  release(&map);
}

TEST(Handle, SeventeenthAllocationGrowsTheArray) {
  void** map = map_of(16);
  EXPECT_EQ(capacity_of(map), 16);
  EXPECT_EQ(hAlloc(&map), 16);
  EXPECT_EQ(capacity_of(map), 32);
  EXPECT_EQ(in_use_of(map), 17);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(&marker, map[i]) << i;
  for (int i = 16; i < 32; ++i) EXPECT_EQ(map[i], nullptr) << i;
  release(&map);
  EXPECT_EQ(map, nullptr);
}

TEST(Handle, SixteenCountedSlotsAreFullEvenWhenTheyHoldNull) {
  void** map = nullptr;
  for (int i = 0; i < 16; ++i) EXPECT_EQ(hAlloc(&map), 0);
  EXPECT_EQ(hAlloc(&map), 16);
  EXPECT_EQ(capacity_of(map), 32);
  release(&map);
}

TEST(Handle, GrowsWhenNoSlotIsNullAlthoughFewAreCounted) {
  void** map = map_of(1);
  for (int i = 1; i < 16; ++i) map[i] = &marker;
  EXPECT_EQ(hAlloc(&map), 16);
  EXPECT_EQ(capacity_of(map), 32);
  EXPECT_EQ(in_use_of(map), 2);
  release(&map);
}

TEST(Handle, GrowsAgainAndAgain) {
  void** map = nullptr;
  for (int i = 0; i < 100; ++i) ASSERT_EQ(i, take(&map));
  EXPECT_EQ(capacity_of(map), 112);
  EXPECT_EQ(in_use_of(map), 100);
  release(&map);
}

TEST(Handle, FreeReturnsOnePastTheHighestOccupiedSlot) {
  void** map = map_of(4);
  EXPECT_EQ(hFree(&map, 1), 4);
  EXPECT_EQ(map[1], nullptr);
  EXPECT_EQ(hFree(&map, 3), 3);
  EXPECT_EQ(hFree(&map, 2), 1);
  EXPECT_EQ(hFree(&map, 0), 0);
  EXPECT_EQ(map, nullptr);
}

TEST(Handle, FreeReturnsTheCapacityWhileTheLastSlotIsOccupied) {
  void** map = map_of(16);
  EXPECT_EQ(hFree(&map, 0), 16);
  EXPECT_EQ(hFree(&map, 15), 15);
  release(&map);
}

TEST(Handle, FreeReturnsZeroWhenCountedSlotsHoldNull) {
  void** map = nullptr;
  hAlloc(&map);
  hAlloc(&map);
  EXPECT_EQ(hFree(&map, 0), 0);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(in_use_of(map), 1);
  release(&map);
}

TEST(Handle, AReleasedMapStartsAnew) {
  void** map = map_of(17);
  release(&map);
  EXPECT_EQ(hAlloc(&map), 0);
  EXPECT_EQ(capacity_of(map), 16);
  release(&map);
}

TEST(Handle, FreeRefusesHandlesOutsideTheArray) {
  void** map = map_of(2);
  for (const int handle : {-1, -2, 16, 17, 1 << 30}) EXPECT_EQ(hFree(&map, handle), -1) << handle;
  EXPECT_EQ(in_use_of(map), 2);
  EXPECT_EQ(capacity_of(map), 16);
  release(&map);
}

TEST(Handle, NullMapsAreRefused) {
  void** map = nullptr;
  int max = 5;
  EXPECT_EQ(hAlloc(nullptr), -1);
  EXPECT_EQ(hFree(nullptr, 0), -1);
  EXPECT_EQ(hFree(&map, 0), -1);
  EXPECT_EQ(hAllocEntry(nullptr, &max, 8), -1);
  EXPECT_EQ(max, 5);
  EXPECT_EQ(map, nullptr);
}

TEST(Handle, EntryGetsAZeroedBlockAndRaisesTheBound) {
  void** map = nullptr;
  int max = 0;
  EXPECT_EQ(hAllocEntry(&map, &max, 40), 0);
  EXPECT_EQ(max, 1);
  ASSERT_NE(map[0], nullptr);
  const unsigned char zeros[40] = {};
  EXPECT_EQ(std::memcmp(zeros, map[0], sizeof zeros), 0);
  EXPECT_EQ(hAllocEntry(&map, &max, 1), 1);
  EXPECT_EQ(max, 2);
  std::free(map[0]);
  std::free(map[1]);
  release(&map);
}

TEST(Handle, EntryLeavesAHigherBoundAlone) {
  for (const auto& [before, after] : std::vector<std::pair<int, int>>{{-1, 1}, {0, 1}, {1, 1}, {2, 2}}) {
    void** map = nullptr;
    int max = before;
    EXPECT_EQ(hAllocEntry(&map, &max, 0), 0);
    EXPECT_EQ(after, max);
    release(&map);
  }
}

TEST(Handle, EntryWithoutSizeStaysNull) {
  for (const int size : {0, -1, -1000}) {
    void** map = nullptr;
    int max = 0;
    EXPECT_EQ(hAllocEntry(&map, &max, size), 0);
    EXPECT_EQ(map[0], nullptr);
    EXPECT_EQ(in_use_of(map), 1);
    release(&map);
  }
}

TEST(Handle, EntryNeedsNoBound) {
  void** map = nullptr;
  EXPECT_EQ(hAllocEntry(&map, nullptr, 0), 0);
  release(&map);
}

TEST(Handle, FirstAllocationWithoutMemoryLeavesTheMapNull) {
  for (int served = 0; served < 3; ++served) {
    void** map = nullptr;
    int handle = 0;
    {
      const FailingHeap heap(served);
      handle = hAlloc(&map);
    }
    EXPECT_EQ(handle, -1) << served;
    EXPECT_EQ(map, nullptr) << served;
  }
  void** map = nullptr;
  {
    const FailingHeap heap(3);
    EXPECT_EQ(hAlloc(&map), 0);
  }
  release(&map);
}

TEST(Handle, GrowthWithoutMemoryLeavesTheArrayAsItWas) {
  void** map = map_of(16);
  void** const before = map;
  int handle = 0;
  {
    const FailingHeap heap(0);
    handle = hAlloc(&map);
  }
  EXPECT_EQ(handle, -1);
  EXPECT_EQ(before, map);
  EXPECT_EQ(capacity_of(map), 16);
  EXPECT_EQ(in_use_of(map), 16);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(&marker, map[i]) << i;
  EXPECT_EQ(take(&map), 16);
  release(&map);
}

TEST(Handle, EntryWithoutMemoryForItsBlockGivesTheSlotBack) {
  void** map = map_of(1);
  int max = 1;
  int handle = 0;
  {
    const FailingHeap heap(0);
    handle = hAllocEntry(&map, &max, 8);
  }
  EXPECT_EQ(handle, -1);
  EXPECT_EQ(max, 1);
  EXPECT_EQ(in_use_of(map), 1);
  EXPECT_EQ(map[1], nullptr);
  release(&map);

  max = 0;
  {
    const FailingHeap heap(3);  // enough for the array
    handle = hAllocEntry(&map, &max, 8);
  }
  EXPECT_EQ(handle, -1);
  EXPECT_EQ(max, 0);
  EXPECT_EQ(map, nullptr);
}

}  // namespace
