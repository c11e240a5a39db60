// SPDX-License-Identifier: MIT
// The stamp of log lines has the digits that printf() prints.
#include "log/line_parts.hpp"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdio>
#include <string>

namespace {

using Fields = std::array<int, 7>;

std::string stamp(const Fields& f) {
  char text[128];
  kelo::base::TextBuilder line(text);
  kelo::log::append_stamp(line, {f[0], f[1], f[2], f[3], f[4], f[5], f[6]});
  return line.c_str();
}

std::string printed(const Fields& f) {
  char text[128];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", f[0], f[1], f[2], f[3], f[4], f[5],
                f[6]);
  return text;
}

TEST(LineParts, StampsATime) {
  EXPECT_EQ(stamp({2024, 5, 6, 7, 8, 9, 10}), "2024-05-06 07:08:09.010");
  EXPECT_EQ(stamp({0, 0, 0, 0, 0, 0, 0}), "0000-00-00 00:00:00.000");
  EXPECT_EQ(stamp({9999, 12, 31, 23, 59, 60, 999}), "9999-12-31 23:59:60.999");
}

TEST(LineParts, StampsEveryNumberOfEachField) {
  for (std::size_t field = 0; field < Fields{}.size(); ++field) {
    for (int number = -1100; number <= 11000; ++number) {
      Fields fields = {2024, 5, 6, 7, 8, 9, 10};
      fields[field] = number;
      ASSERT_EQ(stamp(fields), printed(fields));
    }
    for (const int number : {INT_MIN, INT_MAX}) {
      Fields fields = {2024, 5, 6, 7, 8, 9, 10};
      fields[field] = number;
      ASSERT_EQ(stamp(fields), printed(fields));
    }
  }
}

}  // namespace
