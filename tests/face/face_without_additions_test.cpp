// SPDX-License-Identifier: MIT
// What the C++ face has in a library without the additions: items of each kind on real files, with their codes, and
// the headers of everything else.
#ifndef KELO_NO_ADDITIONS
#define KELO_NO_ADDITIONS
#endif
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/kelo.hpp"

namespace {

using kelo::ItemCode;
using kelo::Store;
using Bytes = std::vector<unsigned char>;

enum ItemId { kNumber = 1, kByte, kShort, kText, kBytes, kOneOfNone };

const unsigned char factory_bytes[] = {0x00, 0xFF, 0x02};

kelo_dm_item items[] = {
    KELO_DM_ITEM(kNumber, "net", "number", KELO_DM_TYPE_SCALAR3, -6, 4),
    KELO_DM_ITEM(kByte, "net", "byte", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(kShort, "net", "short", KELO_DM_TYPE_SCALAR2, 7, 2),
    KELO_DM_TEXT_ITEM(kText, "net", "text", "home"),
    KELO_DM_BYTES_ITEM(kBytes, "net", "bytes", factory_bytes),
    KELO_DM_END,
};

class FaceWithoutAdditions : public testing::Test {
 protected:
  FaceWithoutAdditions() {
    for (const auto& entry : std::filesystem::directory_iterator("/data")) std::filesystem::remove_all(entry);
    kelo::StoreOptions options;
    options.items = items;
    auto opened = Store::open(options);
    EXPECT_TRUE(opened);
    store_ = std::move(opened).value();
  }

  template <typename T>
  [[nodiscard]] kelo::Item<T> item(std::int32_t id) const {
    return store_.item<T>(id);
  }

  Store store_;
};

TEST_F(FaceWithoutAdditions, GivesDefaults) {
  EXPECT_EQ(item<std::int32_t>(kNumber).get().value(), -6);
  EXPECT_TRUE(item<bool>(kByte).get().value());
  EXPECT_EQ(item<std::string>(kText).get().value(), "home");
  EXPECT_EQ(item<Bytes>(kBytes).get().value(), Bytes({0x00, 0xFF, 0x02}));
}

TEST_F(FaceWithoutAdditions, StoresValues) {
  EXPECT_TRUE(item<std::int32_t>(kNumber).set(INT32_MIN));
  EXPECT_EQ(item<std::int32_t>(kNumber).get().value(), INT32_MIN);
  EXPECT_TRUE(item<std::uint32_t>(kNumber).set(UINT32_MAX));
  EXPECT_EQ(item<std::uint32_t>(kNumber).get().value(), UINT32_MAX);
  EXPECT_TRUE(item<bool>(kByte).set(false));
  EXPECT_TRUE(item<bool>(kByte).get());
  EXPECT_FALSE(item<bool>(kByte).get().value());
  EXPECT_TRUE(item<std::string>(kText).reset());
  EXPECT_EQ(item<std::string>(kText).get().value(), "home");
}

// A buffer of the face has 256 bytes at first.
TEST_F(FaceWithoutAdditions, ValuesOfAnyLengthAreRead) {
  for (const std::size_t length : {1U, 255U, 256U, 257U, 70000U}) {
    const std::string text(length, 'x');
    EXPECT_TRUE(item<std::string>(kText).set(text)) << length;
    EXPECT_EQ(item<std::string>(kText).get().value(), text) << length;
    const Bytes bytes(length, 0);
    EXPECT_TRUE(item<Bytes>(kBytes).set(bytes)) << length;
    EXPECT_EQ(item<Bytes>(kBytes).get().value(), bytes) << length;
  }
}

TEST_F(FaceWithoutAdditions, ATextEndsAtItsFirstNul) {
  EXPECT_EQ(kelo_dm_write(store_.handle(), kText, "a\0b", 3), 0);
  EXPECT_EQ(item<std::string>(kText).get().value(), "a");
}

TEST_F(FaceWithoutAdditions, FailuresHaveTheSameCodes) {
  EXPECT_EQ(item<std::int32_t>(kShort).get().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<bool>(kShort).get().code(), ItemCode::wrong_length);
  EXPECT_EQ(item<bool>(kText).set(true).code(), ItemCode::ok) << "types are not compared";
  EXPECT_EQ(item<std::string>(kText).set("").code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::string>(kText).set(std::string("a\0b", 3)).code(), ItemCode::wrong_length);
  EXPECT_EQ(item<Bytes>(kBytes).set({}).code(), ItemCode::wrong_length);
  EXPECT_EQ(item<std::string>(kOneOfNone).get().code(), ItemCode::bad_argument);
  EXPECT_EQ(item<std::int32_t>(kOneOfNone).set(1).code(), ItemCode::bad_argument);
  EXPECT_EQ(Store().item<std::string>(kText).get().code(), ItemCode::bad_argument);
}

TEST_F(FaceWithoutAdditions, RunsToolsAndConvertsText) {
  EXPECT_EQ(kelo::run_tool("echo a").value(), "a\n");
  EXPECT_EQ(kelo::to_hex({0xAF}), "AF");
  EXPECT_EQ(kelo::utf8_from_ussd(0x44, Bytes(3, 'a')), "aaa");
}

}  // namespace
