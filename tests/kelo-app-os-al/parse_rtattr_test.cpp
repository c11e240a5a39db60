// SPDX-License-Identifier: MIT
// The index of route attributes, on chains that no sender should make too.
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;

constexpr int kHighest = 5;

// Attributes in a block of exactly their size, and their table.
class Attributes {
 public:
  explicit Attributes(const std::string& bytes) : bytes_(bytes.size()) {
    std::memcpy(bytes_.data(), bytes.data(), bytes.size());
    table.fill(reinterpret_cast<rtattr*>(this));
  }

  void parse(int max = kHighest) { parse(max, static_cast<int>(bytes_.size())); }
  void parse(int max, int remaining) {
    kelo_parse_rtattr(table.data(), max, reinterpret_cast<rtattr*>(bytes_.data()), remaining);
  }

  // Where each entry points to: -1 for null, -2 for one never written.
  std::vector<long> offsets() const {
    std::vector<long> found;
    for (const rtattr* entry : table) {
      if (entry == nullptr) {
        found.push_back(-1);
      } else if (entry == reinterpret_cast<const rtattr*>(this)) {
        found.push_back(-2);
      } else {
        found.push_back(reinterpret_cast<const char*>(entry) - bytes_.data());
      }
    }
    return found;
  }

  std::array<rtattr*, kHighest + 2> table;

 private:
  ExactBuffer bytes_;
};

std::string attribute(std::uint16_t length, std::uint16_t type, const std::string& value = {}) {
  const rtattr header{length, type};
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) + value;
}

using Offsets = std::vector<long>;

TEST(AttributeIndex, ClearsTheTableUpToTheHighestTypeAndNoFurther) {
  Attributes attributes("");
  attributes.parse();
  EXPECT_EQ(attributes.offsets(), (Offsets{-1, -1, -1, -1, -1, -1, -2}));
}

TEST(AttributeIndex, HoldsEachAttributeUnderItsType) {
  Attributes attributes(attribute(8, 1, "1111") + attribute(4, 3) + attribute(8, 5, "5555"));
  attributes.parse();
  EXPECT_EQ(attributes.offsets(), (Offsets{-1, 0, -1, 8, -1, 12, -2}));
}

TEST(AttributeIndex, HoldsTypeZero) {
  Attributes attributes(attribute(4, 0));
  attributes.parse();
  EXPECT_EQ(attributes.offsets(), (Offsets{0, -1, -1, -1, -1, -1, -2}));
}

TEST(AttributeIndex, PassesOverTypesAboveTheHighest) {
  Attributes attributes(attribute(4, 6) + attribute(4, 0xFFFF) + attribute(4, 2));
  attributes.parse();
  EXPECT_EQ(attributes.offsets(), (Offsets{-1, -1, 8, -1, -1, -1, -2}));
}

TEST(AttributeIndex, KeepsTheLastOfOneType) {
  Attributes attributes(attribute(4, 2) + attribute(4, 2) + attribute(4, 2));
  attributes.parse();
  EXPECT_EQ(attributes.offsets()[2], 8);
}

TEST(AttributeIndex, AdvancesByWholeWords) {
  for (const std::uint16_t length : std::vector<std::uint16_t>{5, 6, 7, 8}) {
    Attributes attributes(attribute(length, 1, "abcd") + attribute(4, 2));
    attributes.parse();
    EXPECT_EQ(attributes.offsets(), (Offsets{-1, 0, 8, -1, -1, -1, -2})) << length;
  }
}

TEST(AttributeIndex, TakesALastAttributeWithoutItsPadding) {
  Attributes attributes(attribute(4, 1) + attribute(5, 2, "x"));
  attributes.parse();
  EXPECT_EQ(attributes.offsets(), (Offsets{-1, 0, 4, -1, -1, -1, -2}));
}

TEST(AttributeIndex, EndsBeforeALengthBelowTheHeader) {
  for (const std::uint16_t length : std::vector<std::uint16_t>{0, 1, 3}) {
    Attributes attributes(attribute(4, 1) + attribute(length, 2, "abcd") + attribute(4, 3));
    attributes.parse();
    EXPECT_EQ(attributes.offsets(), (Offsets{-1, 0, -1, -1, -1, -1, -2})) << length;
  }
}

TEST(AttributeIndex, EndsBeforeALengthBeyondTheEnd) {
  for (const std::uint16_t length : std::vector<std::uint16_t>{9, 12, 0xFFFF}) {
    Attributes attributes(attribute(4, 1) + attribute(length, 2, "abcd"));
    attributes.parse();
    EXPECT_EQ(attributes.offsets(), (Offsets{-1, 0, -1, -1, -1, -1, -2})) << length;
  }
  Attributes whole(attribute(4, 1) + attribute(8, 2, "abcd"));
  whole.parse();
  EXPECT_EQ(whole.offsets()[2], 4);
}

TEST(AttributeIndex, EndsWhereNoHeaderFits) {
  for (const std::size_t size : {1U, 2U, 3U}) {
    Attributes attributes(attribute(4, 1) + attribute(4, 2).substr(0, size));
    attributes.parse();
    EXPECT_EQ(attributes.offsets(), (Offsets{-1, 0, -1, -1, -1, -1, -2})) << size;
  }
}

TEST(AttributeIndex, LooksAtNoMoreThanRemains) {
  for (const int remaining : {0, 3, -1, INT32_MIN}) {
    Attributes attributes(attribute(4, 1));
    attributes.parse(kHighest, remaining);
    EXPECT_EQ(attributes.offsets(), (Offsets{-1, -1, -1, -1, -1, -1, -2})) << remaining;
  }
}

TEST(AttributeIndex, WritesNothingForAHighestTypeBelowZero) {
  for (const int max : {-1, INT32_MIN}) {
    Attributes attributes(attribute(4, 0) + attribute(4, 1));
    attributes.parse(max);
    EXPECT_EQ(attributes.offsets(), (Offsets{-2, -2, -2, -2, -2, -2, -2})) << max;
  }
}

TEST(AttributeIndex, ReadsAttributesOfAnyAlignment) {
  const ExactBuffer bytes("x" + attribute(5, 1, "v\0\0\0"s) + attribute(4, 2));
  std::array<rtattr*, 3> table{};
  kelo_parse_rtattr(table.data(), 2, reinterpret_cast<rtattr*>(bytes.data() + 1), 12);
  EXPECT_EQ(reinterpret_cast<char*>(table[1]), bytes.data() + 1);
  EXPECT_EQ(reinterpret_cast<char*>(table[2]), bytes.data() + 9);
}

TEST(AttributeIndex, LogsNullArguments) {
  const LogCapture log;
  Attributes attributes(attribute(4, 1));
  kelo_parse_rtattr(nullptr, kHighest, attributes.table[0], 4);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_parse_rtattr", "kelo_parse_rtattr param NULL\n"), 1) << log.dump();
  kelo_parse_rtattr(attributes.table.data(), kHighest, nullptr, 4);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_parse_rtattr", "kelo_parse_rtattr param NULL\n"), 2) << log.dump();
  EXPECT_EQ(attributes.offsets(), (Offsets{-1, -1, -1, -1, -1, -1, -2}));
}

}  // namespace
