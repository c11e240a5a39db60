// SPDX-License-Identifier: MIT
// Divisions agree with those of the language, at the ends of the words and on many numbers in between.
#include "base/division.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

using kelo::base::divide;
using kelo::base::divide_in_place;

constexpr std::uint32_t kDivisors[] = {1, 2, 3, 7, 10, 61, 1000, 86400, 146097, 0x7FFFFFFF, 0x80000000};

void expect_division(std::uint64_t number, std::uint32_t divisor) {
  SCOPED_TRACE(testing::Message() << number << " / " << divisor);
  std::uint64_t quotient = number;
  EXPECT_EQ(divide_in_place(quotient, divisor), number % divisor);
  EXPECT_EQ(quotient, number / divisor);
  const auto low = static_cast<std::uint32_t>(number);
  EXPECT_EQ(kelo::base::remainder(low, divisor), low % divisor);
}

}  // namespace

TEST(Division, DividesAtTheEndsOfTheWords) {
  for (const std::uint32_t divisor : kDivisors) {
    for (const std::uint64_t end : {std::uint64_t{0}, std::uint64_t{divisor}, std::uint64_t{1} << 31,
                                    std::uint64_t{1} << 32, std::uint64_t{divisor} << 32}) {
      for (const std::uint64_t number : {end - 1, end, end + 1}) expect_division(number, divisor);
    }
  }
}

TEST(Division, DividesNumbersOfEverySize) {
  std::mt19937_64 random(1);
  for (const std::uint32_t divisor : kDivisors) {
    for (unsigned shift = 0; shift < 64; ++shift) expect_division(random() >> shift, divisor);
  }
}

TEST(Division, DividesByConstants) {
  for (std::uint32_t number = 0; number <= 86400; ++number) {
    ASSERT_EQ((divide<60, 86400>(number)), number / 60);
    ASSERT_EQ((divide<3600, 86400>(number)), number / 3600);
  }
  EXPECT_EQ((divide<100, 600'000'000>(599'999'999)), 5'999'999U);
  EXPECT_EQ((divide<100, 600'000'000>(600'000'000)), 6'000'000U);
}
