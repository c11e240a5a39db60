// SPDX-License-Identifier: MIT
// Numbers in hexadecimal digits.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/every_text.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/hex_text.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::every_text;
using kelo::tests::ExactBuffer;
using kelo::tests::is_digits;
using kelo::tests::LogCapture;
using kelo::tests::pair_of;

// ---- DecToHex ----

TEST(DecToHex, KnowsSixteenDigits) {
  for (int value = -300; value <= 300; ++value) {
    const char expected = value >= 0 && value <= 15 ? "0123456789ABCDEF"[value] : '\0';
    EXPECT_EQ(DecToHex(value), expected) << value;
  }
  for (const int value : {INT_MIN, INT_MIN + 15, INT_MAX, 0x10000}) EXPECT_EQ(DecToHex(value), '\0') << value;
}

// ---- kelo_hex_HexaToInteger ----

int strictly(const std::string& text) {
  if (!is_digits(text)) return -1;
  const unsigned long long value = std::strtoull(text.c_str(), nullptr, 16);
  return value > INT_MAX ? -1 : static_cast<int>(value);
}

TEST(HexaToInteger, ReadsEveryShortText) {
  for (const std::string& text : every_text("09afAFgG/:@`x -\x80\xB1", 3)) {
    const ExactBuffer buffer(text);
    EXPECT_EQ(strictly(text), kelo_hex_HexaToInteger(buffer.data())) << text;
  }
}

TEST(HexaToInteger, ReadsNumbersOfEveryLength) {
  for (const std::string& text : every_text("078F", 9)) {
    if (text.size() < 7) continue;
    ASSERT_EQ(strictly(text), kelo_hex_HexaToInteger(text.c_str())) << text;
  }
}

TEST(HexaToInteger, KeepsToPositiveNumbers) {
  EXPECT_EQ(kelo_hex_HexaToInteger("7FFFFFFF"), 2147483647);
  EXPECT_EQ(kelo_hex_HexaToInteger("7ffffff"), 0x7FFFFFF);
  EXPECT_EQ(kelo_hex_HexaToInteger("8000000"), 0x8000000);
  EXPECT_EQ(kelo_hex_HexaToInteger("80000000"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger("FFFFFFFF"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger("100000000"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger("7FFFFFFF0"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger("1000000000000000000000001"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger("12G"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger("0x12"), -1);
  EXPECT_EQ(kelo_hex_HexaToInteger(""), 0);
  EXPECT_EQ(kelo_hex_HexaToInteger("000000000012"), 0x12);
}

TEST(HexaToInteger, LogsANullPointer) {
  const LogCapture log;
  EXPECT_EQ(kelo_hex_HexaToInteger(nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_hex_HexaToInteger", "kelo_hex_HexaToInteger param NULL\n"), 1)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 1u);
}

// ---- htoi ----

int leniently(std::string text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.erase(0, 2);
  std::uint64_t value = 0;
  for (const char character : text) {
    static const std::string kSmall = "0123456789abcdefghijklmnopqrstuvwxyz";
    static const std::string kCapital = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    const std::size_t digit = std::min(kSmall.find(character), kCapital.find(character));
    if (digit == std::string::npos) break;
    value = (value * 16 + digit) % 0x100000000;
  }
  return static_cast<int>(static_cast<std::uint32_t>(value));
}

TEST(Htoi, ReadsEveryPairOfCharacters) {
  for (const std::string prefix : {"", "1", "0x", "0X", "0", "x"}) {
    for (int first = 1; first <= 255; ++first) {
      for (int second = 1; second <= 255; ++second) {
        const std::string text = prefix + pair_of(first, second);
        ASSERT_EQ(leniently(text), htoi(text.c_str())) << text;
      }
    }
  }
}

TEST(Htoi, ReadsNoFurtherThanTheTerminator) {
  for (const std::string& text : every_text("0xXgZ-", 4)) {
    const ExactBuffer buffer(text);
    EXPECT_EQ(leniently(text), htoi(buffer.data())) << text;
  }
}

TEST(Htoi, CountsLettersBeyondFOn) {
  EXPECT_EQ(htoi("0x1g"), 32);
  EXPECT_EQ(htoi("g"), 16);
  EXPECT_EQ(htoi("Z"), 35);
  EXPECT_EQ(htoi("12 34"), 0x12);
  EXPECT_EQ(htoi(""), 0);
  EXPECT_EQ(htoi("0x"), 0);
  EXPECT_EQ(htoi("x0"), 33 * 16);
}

TEST(Htoi, KeepsTheLow32Bits) {
  EXPECT_EQ(htoi("7fffffff"), INT_MAX);
  EXPECT_EQ(htoi("80000000"), INT_MIN);
  EXPECT_EQ(htoi("0xFFFFFFFF"), -1);
  EXPECT_EQ(htoi("100000000"), 0);
  EXPECT_EQ(htoi("123456789"), 0x23456789);
  const std::string long_text(1000, 'z');
  EXPECT_EQ(leniently(long_text), htoi(long_text.c_str()));
}

TEST(Htoi, LogsANullPointer) {
  const LogCapture log;
  EXPECT_EQ(htoi(nullptr), 0);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "htoi", "htoi param NULL\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
