// SPDX-License-Identifier: MIT
// kelo_dm_for_each_item(): the registered items, each once, in the order of registration.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/settings.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/recording_backend.hpp"

namespace {

using Items = std::vector<std::pair<std::int32_t, std::string>>;

kelo_dm_item items[] = {
    KELO_DM_ITEM(3, "net", "third", KELO_DM_TYPE_SCALAR3, 1, 4),
    KELO_DM_TEXT_ITEM(1, "net", "first", "a"),
    KELO_DM_ITEM(-7, "net", "negative", KELO_DM_TYPE_SCALAR3, 1, 4),
    KELO_DM_END,
};

kelo_dm_item more_items[] = {
    KELO_DM_TEXT_ITEM(2, "wan", "second", "b"),
    KELO_DM_TEXT_ITEM(3, "wan", "again", "c"),
    KELO_DM_END,
};

kelo_dm_item no_items[] = {KELO_DM_END};

struct Visit {
  Items items;
  std::size_t most = 100;
};

std::int32_t keep(std::int32_t id, const kelo_dm_item_desc* item, void* user) {
  auto& visit = *static_cast<Visit*>(user);
  visit.items.emplace_back(id, item->item_key);
  return visit.items.size() == visit.most ? -40 : 0;
}

TEST(ItemList, NothingIsRegistered) {
  Visit visit;
  EXPECT_EQ(kelo_dm_for_each_item(keep, &visit), 0);
  ASSERT_EQ(kelo_dm_reg_def_items(no_items), 0);
  EXPECT_EQ(kelo_dm_for_each_item(keep, &visit), 0);
  EXPECT_TRUE(visit.items.empty());
}

TEST(ItemList, ItemsComeInTheOrderOfRegistration) {
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  const kelo::tests::LogCapture log;
  Visit visit;
  EXPECT_EQ(kelo_dm_for_each_item(keep, &visit), 0);
  EXPECT_EQ(visit.items, (Items{{3, "third"}, {1, "first"}, {-7, "negative"}}));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(ItemList, IdThatIsRegisteredAgainComesOnce) {
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  ASSERT_EQ(kelo_dm_reg_def_items(more_items), 0);
  Visit visit;
  EXPECT_EQ(kelo_dm_for_each_item(keep, &visit), 0);
  EXPECT_EQ(visit.items, (Items{{1, "first"}, {-7, "negative"}, {2, "second"}, {3, "again"}}));
}

TEST(ItemList, DescriptorIsTheRegisteredOne) {
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  const auto compare = [](std::int32_t /*id*/, const kelo_dm_item_desc* item, void* user) -> std::int32_t {
    return item == user ? 1 : 2;
  };
  EXPECT_EQ(kelo_dm_for_each_item(compare, &items[0].desc), 1);
}

TEST(ItemList, ResultOfTheCallbackEndsIt) {
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  for (const std::size_t most : {1U, 2U, 3U}) {
    Visit visit{{}, most};
    EXPECT_EQ(kelo_dm_for_each_item(keep, &visit), -40);
    EXPECT_EQ(visit.items.size(), most);
  }
}

TEST(ItemList, NullCallbackIsRefused) {
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  EXPECT_EQ(kelo_dm_for_each_item(nullptr, nullptr), -3);
}

TEST(ItemList, CallbackMayReadAndWriteItems) {
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  const kelo::tests::RecordingHandle handle;
  const auto write = [](std::int32_t id, const kelo_dm_item_desc* /*item*/, void* user) -> std::int32_t {
    return kelo_dm_write(static_cast<kelo_dm_handle*>(user), id, "abcd", 4);
  };
  EXPECT_EQ(kelo_dm_for_each_item(write, handle.get()), 0);
  EXPECT_EQ(kelo::tests::backend().count("write"), 3);
}

}  // namespace
