// SPDX-License-Identifier: MIT
// Subscriptions of the C++ face: what their functions receive, how they move, and how they end.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelo_utils/kelo.hpp"
#include "tests/support/recording_backend.hpp"

namespace {

using kelo::Change;
using kelo::Item;
using kelo::ItemCode;
using kelo::Result;
using kelo::Subscription;
using kelo::tests::RecordingHandle;

kelo_dm_item items[] = {
    KELO_DM_ITEM(1, "net", "number", KELO_DM_TYPE_SCALAR3, 5, 4),
    KELO_DM_TEXT_ITEM(2, "net", "text", "home"),
    KELO_DM_END,
};

class FaceSubscription : public testing::Test {
 protected:
  FaceSubscription() { kelo_dm_reg_def_items(items); }

  void write_number(std::int32_t value) {
    EXPECT_EQ(kelo_dm_write(handle_.get(), 1, &value, sizeof value), 0);
  }
  void write_text(const std::string& text) {
    EXPECT_EQ(kelo_dm_write(handle_.get(), 2, text.data(), static_cast<std::int32_t>(text.size())), 0);
  }

  RecordingHandle handle_;
  Item<std::int32_t> number_{handle_.get(), 1};
  Item<std::string> text_{handle_.get(), 2};
};

TEST_F(FaceSubscription, HearsTheValuesOfItsItem) {
  std::vector<std::string> heard;
  const auto subscription = text_.on_change([&](const Result<std::string>& text) {
    heard.push_back(text ? text.value() : std::to_string(text.code()));
  });
  ASSERT_TRUE(subscription);
  write_text("cabin");
  write_number(3);
  write_text(std::string("a\0b", 3));
  EXPECT_TRUE(text_.reset());
  EXPECT_EQ(heard, (std::vector<std::string>{"cabin", "a", "-1"}));
}

TEST_F(FaceSubscription, AValueOfAnotherLengthHasACode) {
  std::vector<std::int32_t> codes;
  const auto subscription =
      number_.on_change([&](const Result<std::int32_t>& number) { codes.push_back(number.code()); });
  write_number(7);
  EXPECT_EQ(kelo_dm_write(handle_.get(), 1, "ab", 2), 0);
  EXPECT_EQ(codes, (std::vector<std::int32_t>{0, ItemCode::wrong_length}));
}

TEST_F(FaceSubscription, MovesAndEndsOnce) {
  static_assert(!std::is_copy_constructible_v<Subscription> && !std::is_copy_assignable_v<Subscription>);
  int heard = 0;
  auto made = Subscription::to_all([&](const Change& /*change*/) { ++heard; });
  ASSERT_TRUE(made);
  Subscription first = std::move(made).value();
  // NOLINTNEXTLINE(bugprone-use-after-move): what is left after a move is part of the interface
  EXPECT_FALSE(made.value());
  {
    const Subscription second = std::move(first);
    // NOLINTNEXTLINE(bugprone-use-after-move): what is left after a move is part of the interface
    EXPECT_FALSE(first);
    EXPECT_TRUE(second);
    write_number(1);
    EXPECT_EQ(heard, 1);
  }
  write_number(2);
  EXPECT_EQ(heard, 1);
  first.end();
  first = Subscription();
}

TEST_F(FaceSubscription, DestroysItsFunctionWhenItEnds) {
  const auto token = std::make_shared<int>(0);
  auto subscription = Subscription::to_all([token](const Change& /*change*/) {});
  EXPECT_EQ(token.use_count(), 2);
  subscription.value().end();
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(FaceSubscription, EndsInItsOwnFunction) {
  const auto token = std::make_shared<int>(0);
  Subscription subscription;
  auto made = Subscription::to_all([&subscription, token](const Change& /*change*/) {
    subscription.end();
    ++*token;  // the function is destroyed after it has returned
  });
  subscription = std::move(made).value();
  write_number(1);
  write_number(2);
  EXPECT_EQ(*token, 1);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(FaceSubscription, EndsWithinACallFurtherOut) {
  const auto token = std::make_shared<int>(0);
  Subscription subscription;
  auto made = Subscription::to_all([&, token](const Change& change) {
    ++*token;
    if (change.id == 1) {
      write_text("nested");
      EXPECT_EQ(token.use_count(), 2);
    } else {
      subscription.end();
    }
  });
  subscription = std::move(made).value();
  write_number(1);
  EXPECT_EQ(*token, 2);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(FaceSubscription, ThereAreAsManyAsTheLibraryHas) {
  const auto token = std::make_shared<int>(0);
  for (int round = 0; round < 5; ++round) {
    std::vector<Subscription> all;
    for (int i = 0; i < KELO_DM_MOST_SUBSCRIPTIONS; ++i) {
      auto made = Subscription::to_all([token](const Change& /*change*/) {});
      ASSERT_TRUE(made) << i;
      all.push_back(std::move(made).value());
    }
    EXPECT_EQ(Subscription::to_all([token](const Change& /*change*/) {}).code(), ItemCode::none);
    EXPECT_EQ(token.use_count(), KELO_DM_MOST_SUBSCRIPTIONS + 1);
  }
  EXPECT_EQ(token.use_count(), 1);
}

// The writer is in the middle of calls while subscriptions begin and end, within a function and outside.
TEST_F(FaceSubscription, EndWhileAnotherThreadWrites) {
  handle_.get()->operations.write = [](std::uint32_t, kelo_dm_item_desc*, const void*, int) { return 0; };
  std::atomic<bool> over{false};
  std::thread writer([&] {
    while (!over) write_number(1);
  });
  for (int i = 0; i < 200; ++i) {
    Subscription inner = Subscription::to_all([](const Change& /*change*/) {}).value();
    bool ended = false;
    auto outer = Subscription::to_all([&](const Change& change) {
      if (change.id != 2 || ended) return;
      ended = true;
      inner.end();
    });
    ASSERT_TRUE(outer);
    write_text("end");
    EXPECT_FALSE(inner);
  }
  over = true;
  writer.join();
}

}  // namespace
