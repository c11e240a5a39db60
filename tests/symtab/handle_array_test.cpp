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
  EXPECT_EQ(0, hAlloc(&map));
  ASSERT_NE(nullptr, map);
  EXPECT_EQ(16, capacity_of(map));
  EXPECT_EQ(1, in_use_of(map));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(nullptr, map[i]) << i;
  release(&map);
}

TEST(Handle, HandsOutTheLowestNullSlot) {
  void** map = map_of(5);
  hFree(&map, 3);
  hFree(&map, 1);
  EXPECT_EQ(1, take(&map));
  EXPECT_EQ(3, take(&map));
  EXPECT_EQ(5, take(&map));
  EXPECT_EQ(6, in_use_of(map));
  release(&map);
}

TEST(Handle, ASlotLeftNullIsHandedOutAgain) {
  void** map = nullptr;
  EXPECT_EQ(0, hAlloc(&map));
  EXPECT_EQ(0, hAlloc(&map));
  EXPECT_EQ(2, in_use_of(map));
  release(&map);
}

TEST(Handle, SeventeenthAllocationGrowsTheArray) {
  void** map = map_of(16);
  EXPECT_EQ(16, capacity_of(map));
  EXPECT_EQ(16, hAlloc(&map));
  EXPECT_EQ(32, capacity_of(map));
  EXPECT_EQ(17, in_use_of(map));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(&marker, map[i]) << i;
  for (int i = 16; i < 32; ++i) EXPECT_EQ(nullptr, map[i]) << i;
  release(&map);
  EXPECT_EQ(nullptr, map);
}

TEST(Handle, SixteenCountedSlotsAreFullEvenWhenTheyHoldNull) {
  void** map = nullptr;
  for (int i = 0; i < 16; ++i) EXPECT_EQ(0, hAlloc(&map));
  EXPECT_EQ(16, hAlloc(&map));
  EXPECT_EQ(32, capacity_of(map));
  release(&map);
}

TEST(Handle, GrowsWhenNoSlotIsNullAlthoughFewAreCounted) {
  void** map = map_of(1);
  for (int i = 1; i < 16; ++i) map[i] = &marker;
  EXPECT_EQ(16, hAlloc(&map));
  EXPECT_EQ(32, capacity_of(map));
  EXPECT_EQ(2, in_use_of(map));
  release(&map);
}

TEST(Handle, GrowsAgainAndAgain) {
  void** map = nullptr;
  for (int i = 0; i < 100; ++i) ASSERT_EQ(i, take(&map));
  EXPECT_EQ(112, capacity_of(map));
  EXPECT_EQ(100, in_use_of(map));
  release(&map);
}

TEST(Handle, FreeReturnsOnePastTheHighestOccupiedSlot) {
  void** map = map_of(4);
  EXPECT_EQ(4, hFree(&map, 1));
  EXPECT_EQ(nullptr, map[1]);
  EXPECT_EQ(3, hFree(&map, 3));
  EXPECT_EQ(1, hFree(&map, 2));
  EXPECT_EQ(0, hFree(&map, 0));
  EXPECT_EQ(nullptr, map);
}

TEST(Handle, FreeReturnsTheCapacityWhileTheLastSlotIsOccupied) {
  void** map = map_of(16);
  EXPECT_EQ(16, hFree(&map, 0));
  EXPECT_EQ(15, hFree(&map, 15));
  release(&map);
}

TEST(Handle, FreeReturnsZeroWhenCountedSlotsHoldNull) {
  void** map = nullptr;
  hAlloc(&map);
  hAlloc(&map);
  EXPECT_EQ(0, hFree(&map, 0));
  ASSERT_NE(nullptr, map);
  EXPECT_EQ(1, in_use_of(map));
  release(&map);
}

TEST(Handle, AReleasedMapStartsAnew) {
  void** map = map_of(17);
  release(&map);
  EXPECT_EQ(0, hAlloc(&map));
  EXPECT_EQ(16, capacity_of(map));
  release(&map);
}

TEST(Handle, FreeRefusesHandlesOutsideTheArray) {
  void** map = map_of(2);
  for (const int handle : {-1, -2, 16, 17, 1 << 30}) EXPECT_EQ(-1, hFree(&map, handle)) << handle;
  EXPECT_EQ(2, in_use_of(map));
  EXPECT_EQ(16, capacity_of(map));
  release(&map);
}

TEST(Handle, NullMapsAreRefused) {
  void** map = nullptr;
  int max = 5;
  EXPECT_EQ(-1, hAlloc(nullptr));
  EXPECT_EQ(-1, hFree(nullptr, 0));
  EXPECT_EQ(-1, hFree(&map, 0));
  EXPECT_EQ(-1, hAllocEntry(nullptr, &max, 8));
  EXPECT_EQ(5, max);
  EXPECT_EQ(nullptr, map);
}

TEST(Handle, EntryGetsAZeroedBlockAndRaisesTheBound) {
  void** map = nullptr;
  int max = 0;
  EXPECT_EQ(0, hAllocEntry(&map, &max, 40));
  EXPECT_EQ(1, max);
  ASSERT_NE(nullptr, map[0]);
  const unsigned char zeros[40] = {};
  EXPECT_EQ(0, std::memcmp(zeros, map[0], sizeof zeros));
  EXPECT_EQ(1, hAllocEntry(&map, &max, 1));
  EXPECT_EQ(2, max);
  std::free(map[0]);
  std::free(map[1]);
  release(&map);
}

TEST(Handle, EntryLeavesAHigherBoundAlone) {
  for (const auto& [before, after] : std::vector<std::pair<int, int>>{{-1, 1}, {0, 1}, {1, 1}, {2, 2}}) {
    void** map = nullptr;
    int max = before;
    EXPECT_EQ(0, hAllocEntry(&map, &max, 0));
    EXPECT_EQ(after, max);
    release(&map);
  }
}

TEST(Handle, EntryWithoutSizeStaysNull) {
  for (const int size : {0, -1, -1000}) {
    void** map = nullptr;
    int max = 0;
    EXPECT_EQ(0, hAllocEntry(&map, &max, size));
    EXPECT_EQ(nullptr, map[0]);
    EXPECT_EQ(1, in_use_of(map));
    release(&map);
  }
}

TEST(Handle, EntryNeedsNoBound) {
  void** map = nullptr;
  EXPECT_EQ(0, hAllocEntry(&map, nullptr, 0));
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
    EXPECT_EQ(-1, handle) << served;
    EXPECT_EQ(nullptr, map) << served;
  }
  void** map = nullptr;
  {
    const FailingHeap heap(3);
    EXPECT_EQ(0, hAlloc(&map));
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
  EXPECT_EQ(-1, handle);
  EXPECT_EQ(before, map);
  EXPECT_EQ(16, capacity_of(map));
  EXPECT_EQ(16, in_use_of(map));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(&marker, map[i]) << i;
  EXPECT_EQ(16, take(&map));
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
  EXPECT_EQ(-1, handle);
  EXPECT_EQ(1, max);
  EXPECT_EQ(1, in_use_of(map));
  EXPECT_EQ(nullptr, map[1]);
  release(&map);

  max = 0;
  {
    const FailingHeap heap(3);  // enough for the array
    handle = hAllocEntry(&map, &max, 8);
  }
  EXPECT_EQ(-1, handle);
  EXPECT_EQ(0, max);
  EXPECT_EQ(nullptr, map);
}

}  // namespace
