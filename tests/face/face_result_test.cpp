// SPDX-License-Identifier: MIT
// Results of the C++ face: values, codes, and values that move.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "kelo_utils/kelo.hpp"

namespace {

using kelo::Result;

TEST(FaceResult, HasAValue) {
  const Result<int> result = 5;
  EXPECT_TRUE(result);
  EXPECT_TRUE(result.ok());
  EXPECT_EQ(result.code(), 0);
  EXPECT_EQ(result.value(), 5);
  EXPECT_EQ(result.value_or(7), 5);
}

TEST(FaceResult, HasACode) {
  const auto result = Result<std::string>::failed(-3);
  EXPECT_FALSE(result);
  EXPECT_FALSE(result.ok());
  EXPECT_EQ(result.code(), -3);
  EXPECT_EQ(result.value(), "");
  EXPECT_EQ(result.value_or("other"), "other");
}

TEST(FaceResult, AFailureKeepsWhatIsKnown) {
  const auto result = Result<std::string>::failed(2, "half");
  EXPECT_FALSE(result);
  EXPECT_EQ(result.value(), "half");
  EXPECT_EQ(result.value_or("other"), "other");
}

TEST(FaceResult, APositiveCodeIsAFailure) { EXPECT_FALSE(Result<int>::failed(1)); }

TEST(FaceResult, IsFilledByACall) {
  const auto fill = [](int code) {
    return Result<int>::filled_by([code](int& value) {
      value = 9;
      return code;
    });
  };
  EXPECT_EQ(fill(0).value(), 9);
  EXPECT_TRUE(fill(0));
  EXPECT_EQ(fill(-4).code(), -4);
}

TEST(FaceResult, ValuesThatOnlyMoveAreMovedOut) {
  Result<std::unique_ptr<int>> result = std::make_unique<int>(3);
  const std::unique_ptr<int> taken = std::move(result).value();
  EXPECT_EQ(*taken, 3);
  // NOLINTNEXTLINE(bugprone-use-after-move): what is left after a move is part of the interface
  EXPECT_EQ(result.value(), nullptr);
  EXPECT_EQ(*Result(std::make_unique<int>(4)).value_or(nullptr), 4);
}

TEST(FaceResult, WithoutAValueItIsACode) {
  EXPECT_TRUE(Result<void>());
  EXPECT_TRUE(Result<void>::of(0).ok());
  EXPECT_FALSE(Result<void>::of(-1));
  EXPECT_EQ(Result<void>::of(-1).code(), -1);
}

TEST(FaceResult, IsNoNumber) {
  EXPECT_FALSE((std::is_convertible_v<Result<int>, bool>));
  EXPECT_FALSE((std::is_convertible_v<Result<int>, int>));
  EXPECT_EQ(sizeof(Result<std::int32_t>), 2 * sizeof(std::int32_t));
}

}  // namespace
