// SPDX-License-Identifier: MIT
// What a write and a read of an item take of the heap while they last, and that nothing of it stays.
#include <gtest/gtest.h>

#include <string>

#include "kelo_utils/log.h"
#include "tests/support/store_memory.hpp"

namespace {

// SQLite has its page cache in it, and the library's part depends on the value alone.
constexpr long kMostBesideValue = 384L * 1024;

TEST(StoreMemory, IsTakenForTheCallAlone) {
  kelo_set_log_level(LOG_LVL_CRT);
  for (const kelo::tests::StoreCall& call : kelo::tests::measure_store()) {
    SCOPED_TRACE(std::string(call.name) + " of " + std::to_string(call.bytes));
    EXPECT_GE(call.result, 0);
    if (!kelo::tests::kHeapIsCounted) continue;
    EXPECT_GT(call.heap.peak, call.bytes / 2) << "the count has not seen it";
    EXPECT_LT(call.heap.peak, kMostBesideValue + 4L * call.bytes);
    EXPECT_EQ(call.heap.kept, 0);
  }
}

}  // namespace
