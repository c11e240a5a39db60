// SPDX-License-Identifier: MIT
// Defaults that do not all fit on the flash: /data of this sandbox holds 300 kilobytes.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/sqlite.h"
#include "tests/support/defaults_start.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;

constexpr int kItems = 40;
const std::string large(10'000, 'x');

// Each with a value of `length` bytes.
std::vector<kelo_dm_item> images(int length) {
  std::vector<kelo_dm_item> items(
      kItems + 1, KELO_DM_ITEM(1, "images", "", KELO_DM_TYPE_BUFFER, KELO_DM_TEXT(large.data()), length));
  for (kelo_dm_item& item : items)
    std::snprintf(item.desc.item_key, sizeof item.desc.item_key, "key%d",
                  static_cast<int>(&item - &items[0]));
  items.back().id = -1;
  return items;
}

std::string start(int length) {
  std::vector<kelo_dm_item> items = images(length);
  const ChildResult child = build_defaults(items);
  EXPECT_EQ(child.exit_status, 0) << child.standard_error;
  return without_places(child.standard_output);
}

long rows_of_length(int length) {
  const auto lengths = query_lines(DB_DEF_ITEMS, "select len || '|' || length(value) from images");
  return std::count(lengths.begin(), lengths.end(), std::to_string(length) + "|" + std::to_string(length));
}

class DefaultsFullFlash : public testing::Test {
 protected:
  void SetUp() override {
    alarm(100);
    empty_data();
    ASSERT_LT(std::filesystem::space("/data").capacity, 400'000U) << "the sandbox made /data as it always is";
  }
  void TearDown() override { alarm(0); }
};

// Those that fit take their places, each other one is logged and stays as it was.
TEST_F(DefaultsFullFlash, HoldsWhatFitsAsIfStoredOneByOne) {
  std::vector<std::string> rows[2];
  std::string lines[2];
  for (const bool single : {true, false}) {
    one_by_one = single;
    empty_data();
    EXPECT_EQ(start(4), "");
    lines[single] = start(10'000);
    rows[single] = stored_defaults();
    EXPECT_GT(rows_of_length(10'000), 5);
    EXPECT_GT(rows_of_length(4), 5);
    EXPECT_EQ(rows_of_length(10'000) + rows_of_length(4), kItems);
    EXPECT_EQ(scalar(DB_DEF_ITEMS, "pragma integrity_check"), "ok");
  }
  EXPECT_NE(lines[false], "");
  EXPECT_EQ(lines[false], lines[true]);
  EXPECT_TRUE(rows[false] == rows[true]);
}

// Until the first single write the old defaults are all there.
TEST_F(DefaultsFullFlash, LosesNothingByTheTransactionThatDidNotFit) {
  EXPECT_EQ(start(4), "");
  const std::string before = read_file(DB_DEF_ITEMS);
  std::vector<kelo_dm_item> items = images(10'000);
  build_defaults(items, [](const auto& build) {
    const Fault none_by_itself({"sqlite3_open", SQLITE_CANTOPEN, DB_DEF_ITEMS, 2, kEveryTime});
    build();
  });
  EXPECT_TRUE(read_file(DB_DEF_ITEMS) == before);
}

}  // namespace
