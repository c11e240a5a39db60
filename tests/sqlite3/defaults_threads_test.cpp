// SPDX-License-Identifier: MIT
// One thread reads defaults through the descriptors that others write with.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"

namespace {

using namespace kelo::tests;

kelo_dm_item items[] = {
    KELO_DM_TEXT_ITEM(1, "net", "apn", "internet"),
    KELO_DM_TEXT_ITEM(2, "net", "name", "home"),
    KELO_DM_END,
};

class StoreDefaultsThreads : public testing::Test {
 protected:
  void SetUp() override {
    alarm(120);
    kelo_set_log_tool_enable(0);
    kelo_set_log_level(LOG_LVL_CRT);
    kelo_dm_reg_def_items(items);
    handle = kelo_dm_reg(0);
  }
  void TearDown() override {
    kelo_dm_unreg(handle);
    alarm(0);
  }

  int write(int id, const std::string& value) const {
    return kelo_dm_write(handle, id, value.data(), static_cast<int>(value.size()));
  }
  static std::vector<std::string> stored_types() {
    return query_lines(DB_CONFIG, "select distinct type from net");
  }

  kelo_dm_handle* handle = nullptr;
};

TEST_F(StoreDefaultsThreads, ReadWhatOthersWriteWith) {
  ASSERT_EQ(kelo_dm_construct_def_database(0), 0);
  std::atomic<bool> stop = false;
  std::thread reader([&] {
    char value[64];
    while (!stop) EXPECT_GT(kelo_dm_def_items_read(handle, 1, &items[0].desc, value, sizeof value), 0);
  });
  std::vector<std::thread> writers;
  for (const int id : {1, 2})
    writers.emplace_back([&, id] {
      for (int round = 0; round < 50; ++round) EXPECT_EQ(write(id, std::to_string(round)), 0);
    });
  for (std::thread& writer : writers) writer.join();
  stop = true;
  reader.join();
  EXPECT_EQ(stored_types(), std::vector<std::string>{"5"});
}

// A default that cannot be read leaves 0 in the descriptor; no row must ever get that.
TEST_F(StoreDefaultsThreads, AMissingDefaultLeavesTheTypeOfTheRow) {
  char value[64];
  for (kelo_dm_item* item : {&items[0], &items[1]})
    EXPECT_LT(kelo_dm_def_items_read(handle, item->id, &item->desc, value, sizeof value), 0);
  EXPECT_EQ(items[0].desc.type, 0);
  EXPECT_EQ(write(1, "first"), 0);
  EXPECT_EQ(write(2, "second"), 0);
  EXPECT_EQ(stored_types(), std::vector<std::string>{"5"});
}

}  // namespace
