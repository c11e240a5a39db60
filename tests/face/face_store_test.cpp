// SPDX-License-Identifier: MIT
// The store and its items in the C++ face, on real files: values of each type, every code, defaults and moves.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelo_utils/kelo.hpp"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"

namespace {

using kelo::ItemCode;
using kelo::Store;
using kelo::StoreOptions;
using Bytes = std::vector<unsigned char>;

enum ItemId { kNumber = 1, kByte, kShort, kText, kNoText, kBytes, kPoint, kOneOfNone };

struct Point {
  std::int32_t x;
  std::int32_t y;
};

const unsigned char factory_bytes[] = {0x00, 0xFF, 0x02};
const Point factory_point = {3, -4};

kelo_dm_item items[] = {
    KELO_DM_ITEM(kNumber, "net", "number", KELO_DM_TYPE_SCALAR3, -6, 4),
    KELO_DM_ITEM(kByte, "net", "byte", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(kShort, "net", "short", KELO_DM_TYPE_SCALAR2, 7, 2),
    KELO_DM_TEXT_ITEM(kText, "net", "text", "home"),
    KELO_DM_ITEM(kNoText, "net", "notext", KELO_DM_TYPE_STRING, 0, 4),
    KELO_DM_BYTES_ITEM(kBytes, "net", "bytes", factory_bytes),
    KELO_DM_ITEM(kPoint, "net", "point", KELO_DM_TYPE_BUFFER, KELO_DM_BYTES(&factory_point),
                 sizeof factory_point),
    KELO_DM_END,
};

StoreOptions options() {
  StoreOptions options;
  options.items = items;
  options.use_sqlite = true;
  options.number = 3;
  return options;
}

class FaceStore : public testing::Test {
 protected:
  FaceStore() {
    for (const auto& entry : std::filesystem::directory_iterator("/data")) std::filesystem::remove_all(entry);
    auto opened = Store::open(options());
    EXPECT_TRUE(opened);
    store_ = std::move(opened).value();
  }

  template <typename T>
  [[nodiscard]] kelo::Item<T> item(std::int32_t id) const {
    return store_.item<T>(id);
  }

  Store store_;
};

int refuse_to_write(std::uint32_t /*id*/, kelo_dm_item_desc* /*item*/, const void* /*data*/, int /*len*/) {
  return -8;
}
int fail_to_read(std::uint32_t /*id*/, kelo_dm_item_desc* /*item*/, void* /*buf*/, int /*size*/) {
  return -101;
}

TEST_F(FaceStore, GivesDefaultsUntilAValueIsStored) {
  EXPECT_EQ(item<std::int32_t>(kNumber).get().value(), -6);
  EXPECT_EQ(item<std::uint32_t>(kNumber).get().value(), 0xFFFFFFFAU);
  EXPECT_EQ(item<std::int16_t>(kShort).get().value(), 7);
  EXPECT_TRUE(item<bool>(kByte).get().value());
  EXPECT_EQ(item<std::string>(kText).get().value(), "home");
  EXPECT_EQ(item<Bytes>(kBytes).get().value(), Bytes({0x00, 0xFF, 0x02}));
  EXPECT_EQ(item<Point>(kPoint).get().value().y, -4);
}

TEST_F(FaceStore, StoresValuesOfEachType) {
  EXPECT_TRUE(item<std::int32_t>(kNumber).set(INT32_MIN));
  EXPECT_EQ(item<std::int32_t>(kNumber).get().value(), INT32_MIN);
  EXPECT_TRUE(item<std::uint32_t>(kNumber).set(UINT32_MAX));
  EXPECT_EQ(item<std::uint32_t>(kNumber).get().value(), UINT32_MAX);
  EXPECT_TRUE(item<float>(kNumber).set(1.5F));
  EXPECT_EQ(item<float>(kNumber).get().value(), 1.5F);
  EXPECT_TRUE(item<bool>(kByte).set(false));
  EXPECT_TRUE(item<bool>(kByte).get().ok());
  EXPECT_FALSE(item<bool>(kByte).get().value());
  EXPECT_TRUE(item<std::int16_t>(kShort).set(-2));
  EXPECT_EQ(item<std::int16_t>(kShort).get().value(), -2);
  EXPECT_TRUE(item<std::string>(kText).set("cabin"));
  EXPECT_EQ(item<std::string>(kText).get().value(), "cabin");
  EXPECT_TRUE(item<Bytes>(kBytes).set({0, 0, 1}));
  EXPECT_EQ(item<Bytes>(kBytes).get().value(), Bytes({0, 0, 1}));
  EXPECT_TRUE(item<Point>(kPoint).set({1, 2}));
  EXPECT_EQ(item<Point>(kPoint).get().value().x, 1);
  EXPECT_EQ(kelo::tests::scalar(DB_CONFIG, "select value from net where key = 'text'"), "cabin");
}

// A buffer of the face has 256 bytes at first, and a text needs one more for its terminator.
TEST_F(FaceStore, ValuesOfAnyLengthAreRead) {
  for (const std::size_t length : {1U, 255U, 256U, 257U, 4095U, 70000U}) {
    const std::string text(length, 'x');
    EXPECT_TRUE(item<std::string>(kText).set(text)) << length;
    EXPECT_EQ(item<std::string>(kText).get().value(), text) << length;
    const Bytes bytes(length, 0);
    EXPECT_TRUE(item<Bytes>(kBytes).set(bytes)) << length;
    EXPECT_EQ(item<Bytes>(kBytes).get().value(), bytes) << length;
  }
}

TEST_F(FaceStore, ResetGivesTheDefaultAgain) {
  EXPECT_TRUE(item<std::string>(kText).set("cabin"));
  EXPECT_EQ(item<std::string>(kText).default_value().value(), "home");
  EXPECT_TRUE(item<std::string>(kText).reset());
  EXPECT_EQ(item<std::string>(kText).get().value(), "home");
  EXPECT_EQ(item<std::string>(kOneOfNone).reset().code(), ItemCode::bad_argument);
}

TEST_F(FaceStore, DefaultsOfEachType) {
  EXPECT_EQ(item<std::int32_t>(kNumber).default_value().value(), -6);
  EXPECT_EQ(item<std::int16_t>(kShort).default_value().value(), 7);
  EXPECT_TRUE(item<bool>(kByte).default_value().value());
  EXPECT_EQ(item<Bytes>(kBytes).default_value().value(), Bytes({0x00, 0xFF, 0x02}));
  EXPECT_EQ(item<Point>(kPoint).default_value().value().x, 3);
  EXPECT_EQ(item<std::string>(kNoText).default_value().code(), ItemCode::none);
  EXPECT_EQ(item<std::string>(kOneOfNone).default_value().code(), ItemCode::bad_argument);
  EXPECT_EQ(item<std::string>(kNumber).default_value().code(), ItemCode::wrong_type);
  EXPECT_EQ(item<std::int32_t>(kText).default_value().code(), ItemCode::wrong_type);
  EXPECT_EQ(item<std::int32_t>(kShort).default_value().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<bool>(kShort).default_value().code(), ItemCode::wrong_length);
}

TEST_F(FaceStore, AnUnknownIdIsABadArgument) {
  EXPECT_EQ(item<std::int32_t>(kOneOfNone).get().code(), ItemCode::bad_argument);
  EXPECT_EQ(item<std::int32_t>(kOneOfNone).set(1).code(), ItemCode::bad_argument);
  EXPECT_EQ(item<bool>(kOneOfNone).get().code(), ItemCode::bad_argument);
  EXPECT_EQ(item<std::int64_t>(kOneOfNone).get().code(), ItemCode::bad_argument);
  EXPECT_EQ(item<std::string>(kOneOfNone).get().code(), ItemCode::bad_argument);
  EXPECT_EQ(item<Bytes>(kOneOfNone).set({1}).code(), ItemCode::bad_argument);
}

TEST_F(FaceStore, AnotherTypeIsRefused) {
  EXPECT_EQ(item<std::int32_t>(kText).get().code(), ItemCode::wrong_type);
  EXPECT_EQ(item<std::int32_t>(kText).set(1).code(), ItemCode::wrong_type);
  EXPECT_EQ(item<bool>(kBytes).get().code(), ItemCode::wrong_type);
  EXPECT_EQ(item<std::string>(kNumber).get().code(), ItemCode::wrong_type);
  EXPECT_EQ(item<std::string>(kBytes).set("a").code(), ItemCode::wrong_type);
  EXPECT_EQ(item<Bytes>(kText).get().code(), ItemCode::wrong_type);
  EXPECT_EQ(item<Bytes>(kText).set({1}).code(), ItemCode::wrong_type);
}

TEST_F(FaceStore, AnotherLengthIsRefused) {
  EXPECT_EQ(item<std::int32_t>(kShort).get().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::int64_t>(kNumber).get().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::int16_t>(kNumber).get().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<bool>(kShort).get().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::string>(kText).set("").code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::string>(kText).set(std::string("a\0b", 3)).code(), ItemCode::wrong_length);
  EXPECT_EQ(item<Bytes>(kBytes).set({}).code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::string>(kText).get().value(), "home");
}

TEST_F(FaceStore, NoValueAndNoDefault) {
  const auto text = item<std::string>(kNoText).get();
  EXPECT_EQ(text.code(), ItemCode::none);
  EXPECT_EQ(text.value(), "");
}

TEST_F(FaceStore, ADamagedValueIsReported) {
  EXPECT_TRUE(item<std::string>(kText).set("cabin"));
  EXPECT_TRUE(item<std::int32_t>(kNumber).set(5));
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK})
    kelo::tests::execute_sql(path, "update net set crc = crc + 1");
  EXPECT_EQ(item<std::string>(kText).get().code(), ItemCode::damaged);
  EXPECT_EQ(item<std::int32_t>(kNumber).get().code(), ItemCode::damaged);
}

TEST_F(FaceStore, AStorageThatFailsIsReported) {
  store_.handle()->operations.read = fail_to_read;
  EXPECT_EQ(item<std::int32_t>(kNumber).get().code(), ItemCode::not_readable);
  EXPECT_EQ(item<std::string>(kText).get().code(), ItemCode::not_readable);
  EXPECT_EQ(item<Point>(kPoint).get().code(), ItemCode::not_readable);
  store_.handle()->operations.write = refuse_to_write;
  EXPECT_EQ(item<std::int32_t>(kNumber).set(1).code(), ItemCode::none);
  EXPECT_EQ(item<Point>(kPoint).set({1, 2}).code(), ItemCode::none);
  EXPECT_EQ(item<std::string>(kText).reset().code(), -8);
}

TEST_F(FaceStore, MovesAndItsItemsStayValid) {
  static_assert(!std::is_copy_constructible_v<Store> && !std::is_copy_assignable_v<Store>);
  const auto text = item<std::string>(kText);
  Store moved = std::move(store_);
  EXPECT_FALSE(store_);
  EXPECT_EQ(store_.handle(), nullptr);
  EXPECT_TRUE(text.set("cabin"));
  store_ = std::move(moved);
  // NOLINTNEXTLINE(bugprone-use-after-move): what is left after a move is part of the interface
  EXPECT_FALSE(moved);
  EXPECT_EQ(text.get().value(), "cabin");
  store_.close();
  store_.close();
  EXPECT_FALSE(store_);
}

TEST_F(FaceStore, NoStoreIsABadArgument) {
  const Store none;
  EXPECT_EQ(none.item<std::int32_t>(kNumber).get().code(), ItemCode::bad_argument);
  EXPECT_EQ(none.item<std::string>(kText).set("a").code(), ItemCode::bad_argument);
  EXPECT_EQ(none.store_defaults().code(), ItemCode::bad_argument);
  EXPECT_EQ(none.clean().code(), ItemCode::bad_argument);
}

TEST_F(FaceStore, StoresDefaultsAndIsCleaned) {
  EXPECT_EQ(store_.handle()->id, 3);
  EXPECT_TRUE(store_.store_defaults());
  EXPECT_EQ(kelo::tests::scalar(DB_DEF_ITEMS, "select value from net where key = 'text'"), "home");
  EXPECT_TRUE(item<std::string>(kText).set("cabin"));
  EXPECT_TRUE(store_.clean());
  EXPECT_EQ(item<std::string>(kText).get().value(), "home");
}

// Each test is a process of its own, in which the place may be chosen before the first handle only.
TEST(FaceStorePlace, IsChosen) {
  auto there = options();
  std::filesystem::create_directories("/data/one");
  std::filesystem::create_directories("/data/two");
  there.primary_dir = "/data/one/";
  there.backup_dir = "/data/two/";
  const auto store = Store::open(there);
  ASSERT_TRUE(store);
  EXPECT_TRUE(store.value().item<std::string>(kText).set("cabin"));
  EXPECT_TRUE(std::filesystem::exists("/data/one/config.db"));
}

}  // namespace
