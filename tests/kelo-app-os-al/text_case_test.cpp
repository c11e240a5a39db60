// SPDX-License-Identifier: MIT
// Letters change their case, other bytes do not.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/every_text.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::every_text;
using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;

constexpr char kPoison = '!';

char ascii_upper(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

std::string ascii_upper(std::string text) {
  for (char& character : text) character = ascii_upper(character);
  return text;
}

// The C library's table of capital letters starts at -128; below zero this one has an answer of its own.
constexpr int kLowest = -128;
constexpr int kHighest = 255;

std::array<int, kHighest - kLowest + 1> make_upper_table() {
  std::array<int, kHighest - kLowest + 1> table{};
  int character = kLowest;
  for (int& entry : table) {
    const bool small = character >= 'a' && character <= 'z';
    entry = small ? character - 'a' + 'A' : character;
    if (character < 0) entry = kPoison;
    ++character;
  }
  return table;
}

}  // namespace

// The library's calls land here, whether the compiler left toupper() a call or made it a look at the table.
extern "C" {

const int** __ctype_toupper_loc() noexcept {
  static const auto table = make_upper_table();
  static const int* zero = table.data() - kLowest;
  return &zero;
}

int toupper(int __c) noexcept {
  return __c < kLowest || __c > kHighest ? __c : (*__ctype_toupper_loc())[__c];
}
}

namespace {

// ---- starts_with and ends_with ----

TEST(StartsAndEndsWith, AgreeWithAPlainComparison) {
  const std::vector<std::string> texts = every_text("aAb\xE4\xC4", 3);
  for (const std::string& text : texts) {
    const ExactBuffer text_buffer(text);
    for (const std::string& part : texts) {
      const ExactBuffer part_buffer(part);
      EXPECT_EQ(text.starts_with(part) ? 1 : 0, starts_with(text_buffer.data(), part_buffer.data(), 0))
          << text << ' ' << part;
      EXPECT_EQ(text.ends_with(part) ? 1 : 0, ends_with(text_buffer.data(), part_buffer.data(), 0))
          << text << ' ' << part;
      const std::string capital = ascii_upper(text);
      for (const int ignore_case : {1, -1, 256}) {
        EXPECT_EQ(capital.starts_with(ascii_upper(part)) ? 1 : 0,
                  starts_with(text_buffer.data(), part_buffer.data(), ignore_case))
            << text << ' ' << part;
        EXPECT_EQ(capital.ends_with(ascii_upper(part)) ? 1 : 0,
                  ends_with(text_buffer.data(), part_buffer.data(), ignore_case))
            << text << ' ' << part;
      }
    }
  }
}

TEST(StartsAndEndsWith, ReturnZeroForANullPointerSilently) {
  const LogCapture log;
  for (const int ignore_case : {0, 1}) {
    EXPECT_EQ(starts_with(nullptr, "a", ignore_case), 0);
    EXPECT_EQ(starts_with("a", nullptr, ignore_case), 0);
    EXPECT_EQ(ends_with(nullptr, "a", ignore_case), 0);
    EXPECT_EQ(ends_with("a", nullptr, ignore_case), 0);
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

// ---- tolowercase ----

TEST(ToLowerCase, ChangesTheAsciiCapitalsOnly) {
  for (int character = -300; character <= 300; ++character) {
    const bool capital = character >= 65 && character <= 90;
    EXPECT_EQ(capital ? character + 32 : character, tolowercase(character)) << character;
  }
  EXPECT_EQ(tolowercase(INT_MAX), INT_MAX);
  EXPECT_EQ(tolowercase(INT_MIN), INT_MIN);
}

// ---- kelo_string_toupper ----

TEST(StringToUpper, ConvertsInPlace) {
  for (const std::string& text : every_text("azZ{`1", 4)) {
    const ExactBuffer buffer(text);
    EXPECT_EQ(buffer.data(), kelo_string_toupper(buffer.data()));
    EXPECT_EQ(ascii_upper(text), buffer.data());
  }
}

TEST(StringToUpper, LeavesEveryByteAbove127Alone) {
  std::string text;
  for (int byte = 1; byte <= 255; ++byte) text += static_cast<char>(byte);
  const ExactBuffer buffer(text);
  kelo_string_toupper(buffer.data());
  EXPECT_EQ(ascii_upper(text), buffer.data());
}

TEST(StringToUpper, LogsANullPointer) {
  const LogCapture log;
  EXPECT_EQ(kelo_string_toupper(nullptr), nullptr);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_string_toupper", "kelo_string_toupper param NULL\n"), 1)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
